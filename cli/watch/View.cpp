#include "watch/View.h"

#include <algorithm>

#include "kel/QuantityText.h"
#include "tables/Table.h"
#include "watch/Columns.h"
#include "watch/Help.h"

namespace Cli::Watch {

namespace {

struct KeyHint {
   char const * key;
   char const * what;
};
constexpr KeyHint listHints[] = { { "q", "quit" },    { "?", "help" },  { "Enter", "history" },
                                  { "/", "filter" },  { "v", "show" },  { "s", "sort" },
                                  { "r", "reverse" }, { "+-", "time" }, { "Tab", "unit" } };
constexpr KeyHint storyHints[] = { { "Esc", "back" }, { "q", "quit" }, { "?", "help" }, { "+-", "time" } };
constexpr KeyHint helpHints[] = { { "Esc", "back" }, { "Up Down", "more" }, { "q", "quit" } };

// As many as there is room for.
template<std::size_t n>
Line hinted( KeyHint const ( &hints )[n], int columns ) {
   Line line;
   for( auto const & [key, what] : hints ) {
      Line one;
      one.add( key, Style::strong );
      one.add( std::string( " " ) + what + "  ", Style::faint );
      if( line.columns() + one.columns() > columns ) break;
      for( Span const & span : one.spans ) line.add( span.text, span.style );
   }
   return line;
}

void fade( std::vector<Line> & lines ) {
   for( Line & line : lines ) {
      for( Span & span : line.spans ) span.style = Style::faint;
   }
}

// The last character of UTF-8 text goes.
void shorten( std::string & text ) {
   while( !text.empty() && ( static_cast<unsigned char>( text.back() ) & 0xc0 ) == 0x80 ) text.pop_back();
   if( !text.empty() ) text.pop_back();
}

}  // namespace

void View::pressed( Press const & press ) {
   if( asksPattern_ ) return pressedInPattern( press );
   if( press.text == "q" || press.text == "Q" ) {
      left_ = true;
      return;
   }
   bool const back = press.key == Key::escape || press.key == Key::backspace;
   if( helps_ ) {
      bool const up = press.key == Key::up || press.key == Key::pageUp;
      bool const down = press.key == Key::down || press.key == Key::pageDown;
      helpTop_ = down ? helpTop_ + 1 : helpTop_ - std::min<std::size_t>( helpTop_, 1 );
      // Any other key ends it, as nobody reads the help to learn how to leave it.
      helps_ = up || down;
   } else if( press.text == "?" || press.text == "h" ) {
      helps_ = true;
      helpTop_ = 0;
   } else if( story_ ) {
      if( back || press.key == Key::enter ) return story_.reset();
      story_->pressed( press );
   } else if( press.key == Key::enter ) {
      open();
   } else if( press.text == "/" ) {
      asksPattern_ = true;
      patternBefore_ = list_.selection().pattern;
   } else if( press.key == Key::escape ) {
      auto selection = list_.selection();
      selection.pattern.clear();
      selection.show = Show::all;
      list_.selectionIs( selection );
   } else {
      list_.pressed( press );
   }
}

void View::pressedInPattern( Press const & press ) {
   auto selection = list_.selection();
   switch( press.key ) {
      case Key::enter: asksPattern_ = false; break;
      case Key::escape:
         asksPattern_ = false;
         selection.pattern = patternBefore_;
         break;
      case Key::backspace: shorten( selection.pattern ); break;
      case Key::text: selection.pattern += press.text; break;
      default: list_.pressed( press ); return;
   }
   list_.selectionIs( selection );
}

void View::open() {
   auto const place = list_.place();
   if( place && !place->second.empty() ) story_.emplace( place->first, place->second, look_ );
}

std::optional<ListView::Place> View::historyOf() const {
   if( !story_ ) return std::nullopt;
   return ListView::Place{ story_->unit(), story_->intf() };
}

void View::windowIs( Object const & window ) {
   if( story_ ) story_->windowIs( window );
}

void View::noWindowIs( std::string const & why ) {
   if( story_ ) story_->absentIs( fit( why, look_ ) );
}

Frame View::frame( Size size, Circumstances const & now ) {
   Frame frame;
   frame.lines.push_back( title( size.columns, now ) );
   if( !now.trouble.empty() ) {
      Line trouble;
      trouble.add( " " + now.trouble, Style::alarm );
      trouble.fitTo( size.columns, look_ );
      frame.lines.push_back( trouble );
   }
   int const rows = size.rows - static_cast<int>( frame.lines.size() ) - 1;
   auto lines = middle( { size.columns, rows } );
   if( !now.trouble.empty() ) fade( lines );
   for( Line & line : lines ) frame.lines.push_back( std::move( line ) );
   frame.lines.push_back( asksPattern_ ? pattern( size.columns, frame ) : keys( size.columns ) );
   return frame;
}

std::vector<Line> View::middle( Size size ) {
   std::vector<Line> lines;
   if( helps_ ) {
      lines = helpLines( size, look_ );
      std::size_t const surplus =
         lines.size() - std::min( lines.size(), static_cast<std::size_t>( std::max( size.rows, 0 ) ) );
      helpTop_ = std::min( helpTop_, surplus );
      lines.erase( lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>( helpTop_ ) );
   } else if( story_ ) {
      double now = 0;
      for( Unit const & unit : scene_.units() ) now = unit.key == story_->unit() ? unit.now : now;
      lines = story_->lines( size, scene_.intf( story_->unit(), story_->intf() ), now );
   } else {
      lines = list_.lines( size );
   }
   lines.resize( static_cast<std::size_t>( std::max( size.rows, 0 ) ) );
   return lines;
}

Line View::title( int columns, Circumstances const & now ) const {
   Line left;
   left.add( "maintctl watch", Style::bar );
   if( !now.unit.empty() ) left.add( " " + fit( now.unit, look_ ), Style::bar );
   Line right;
   if( !now.trouble.empty() ) {
      right.add( "NO ANSWER for " + spanText( now.silentSeconds ), Style::bar );
   } else {
      Selection const & selection = list_.selection();
      if( selection.show != Show::all )
         right.add( std::string( "only " ) + showName( selection.show ) + "  ", Style::bar );
      if( !selection.pattern.empty() ) right.add( "/" + selection.pattern + "  ", Style::bar );
      std::string const order = std::string( "by " ) + orderName( selection.order );
      if( columns >= 60 ) right.add( order + ( selection.reversed ? ", reversed  " : "  " ), Style::bar );
      if( columns >= 80 ) right.add( "every " + Kel::durationText( now.intervalSeconds ) + "  ", Style::bar );
   }
   right.add( ( now.trouble.empty() ? "" : "  " ) + now.time, Style::bar );
   return between( left, right, columns, look_ );
}

Line View::keys( int columns ) const {
   if( helps_ ) return between( hinted( helpHints, columns ), {}, columns, look_ );
   if( story_ ) return between( hinted( storyHints, columns ), {}, columns, look_ );
   Line right;
   right.add( list_.position(), Style::faint );
   return between( hinted( listHints, columns - right.columns() - 2 ), right, columns, look_ );
}

Line View::pattern( int columns, Frame & frame ) const {
   Line line;
   line.add( "/" + list_.selection().pattern, Style::strong );
   frame.cursor = std::min( line.columns(), columns - 1 );
   line.add( "   name or verdict; Enter keeps it, Esc takes it back", Style::faint );
   line.fitTo( columns, look_ );
   return line;
}

}  // namespace Cli::Watch

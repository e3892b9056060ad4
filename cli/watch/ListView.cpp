#include "watch/ListView.h"

#include <algorithm>
#include <array>
#include <map>

#include "watch/Columns.h"
#include "watch/Heads.h"

namespace Cli::Watch {

namespace {

constexpr std::array<double, 4> sparkSpans{ 60, 180, 300, 900 };
static_assert( sparkSpans.back() <= Series::keptSeconds );

// With fewer rows every line above the interfaces would cost one of them.
constexpr int fewRows = 10;

Line nothingShown( int columns, Look look ) {
   Line line;
   line.add( "  none of its interfaces is among what is shown (v, /)", Style::faint );
   line.fitTo( columns, look );
   return line;
}

}  // namespace

double ListView::sparkSeconds() const { return sparkSpans.at( span_ ); }

std::optional<ListView::Place> ListView::place() const {
   auto const all = items();
   if( all.empty() ) return std::nullopt;
   return placeOf( all[cursorIn( all )] );
}

std::string ListView::position() const {
   std::size_t const all = items().size();
   return all == 0 ? "" : std::to_string( cursorIn( items() ) + 1 ) + " of " + std::to_string( all );
}

// Units on their way through maintenance first, each kind in the order of the answer.
std::vector<ListView::Item> ListView::items() const {
   std::vector<Item> all;
   for( bool const judged : { true, false } ) {
      for( Unit const & unit : scene_.units() ) {
         if( unit.judged() != judged ) continue;
         auto const rows = selected( unit, selection_ );
         if( rows.empty() ) all.push_back( { &unit, nullptr } );
         for( Intf const * const intf : rows ) all.push_back( { &unit, intf } );
      }
   }
   return all;
}

ListView::Place ListView::placeOf( Item const & item ) { return { item.unit->key, item.intf ? item.intf->key : "" }; }

// Where what it goes with has gone it stays where it was. There is at least one item, or it is 0.
std::size_t ListView::cursorIn( std::vector<Item> const & items ) const {
   auto const found = std::find_if( items.begin(), items.end(), [&]( Item const & item ) {
      return followed_ && item.unit->key == followed_->first && item.intf && item.intf->key == followed_->second;
   } );
   if( found != items.end() ) return static_cast<std::size_t>( found - items.begin() );
   return items.empty() ? 0 : std::min( index_, items.size() - 1 );
}

void ListView::moveTo( std::vector<Item> const & items, std::ptrdiff_t index ) {
   if( items.empty() ) return;
   index_ = static_cast<std::size_t>( std::clamp<std::ptrdiff_t>( index, 0, std::ssize( items ) - 1 ) );
   // At the top stays whatever comes there, which is what is looked for most.
   followed_.reset();
   if( index_ > 0 ) followed_ = placeOf( items[index_] );
}

void ListView::moveToUnit( std::vector<Item> const & items, int step ) {
   if( items.empty() ) return;
   auto const at = [&]( std::ptrdiff_t i ) { return items[static_cast<std::size_t>( i )].unit; };
   std::ptrdiff_t const count = std::ssize( items );
   auto next = static_cast<std::ptrdiff_t>( index_ );
   do {
      next = ( next + step + count ) % count;
   } while( at( next ) == at( static_cast<std::ptrdiff_t>( index_ ) ) &&
            next != static_cast<std::ptrdiff_t>( index_ ) );
   // To its first interface, from whichever side.
   while( next > 0 && at( next - 1 ) == at( next ) ) --next;
   moveTo( items, next );
}

void ListView::pressed( Press const & press ) {
   auto const all = items();
   index_ = cursorIn( all );
   auto const here = static_cast<std::ptrdiff_t>( index_ );
   auto const page = static_cast<std::ptrdiff_t>( std::max<std::size_t>( shown_, 2 ) - 1 );
   switch( press.key ) {
      case Key::up: return moveTo( all, here - 1 );
      case Key::down: return moveTo( all, here + 1 );
      case Key::pageUp: return moveTo( all, here - page );
      case Key::pageDown: return moveTo( all, here + page );
      case Key::home: return moveTo( all, 0 );
      case Key::end: return moveTo( all, std::ssize( all ) - 1 );
      case Key::tab: return moveToUnit( all, 1 );
      case Key::backTab: return moveToUnit( all, -1 );
      case Key::text: break;
      case Key::enter:
      case Key::escape:
      case Key::backspace: return;
   }
   if( press.text == "k" ) return moveTo( all, here - 1 );
   if( press.text == "j" ) return moveTo( all, here + 1 );
   if( press.text == "s" ) selection_.order = nextOrder( selection_.order );
   if( press.text == "r" ) selection_.reversed = !selection_.reversed;
   if( press.text == "v" ) selection_.show = nextShow( selection_.show );
   if( press.text == "+" ) span_ = std::min( span_ + 1, sparkSpans.size() - 1 );
   if( press.text == "-" ) span_ = span_ > 0 ? span_ - 1 : 0;
}

int ListView::longestName() const {
   int longest = 0;
   for( Unit const & unit : scene_.units() ) {
      for( Intf const & intf : unit.intfs ) longest = std::max( longest, columnsOf( intf.name ) );
   }
   return longest;
}

std::vector<Line> ListView::lines( Size size ) {
   auto const all = items();
   index_ = cursorIn( all );
   top_ = std::min( top_, index_ );
   auto lines = rendered( all, size );
   // Down to where the cursor is among what is shown.
   for( ; top_ + shown_ <= index_ && top_ < index_; lines = rendered( all, size ) ) {
      top_ = shown_ == 0 ? index_ : index_ + 1 - shown_;
   }
   lines.resize( static_cast<std::size_t>( std::max( size.rows, 0 ) ) );
   return lines;
}

// From the item at the top on. Above the first one of each unit, and above the very first, stands the head of its unit.
std::vector<Line> ListView::rendered( std::vector<Item> const & items, Size size ) {
   Columns const columns( size.columns, longestName(), sparkSeconds(), look_ );
   auto const room = static_cast<std::size_t>( std::max( size.rows, 0 ) );
   std::vector<Line> lines;
   shown_ = 0;
   for( std::size_t i = top_; i < items.size() && lines.size() < room; ++i ) {
      auto const & [unit, intf] = items[i];
      if( i == top_ || items[i - 1].unit != unit ) {
         bool const apart = i > top_ && ( unit->judged() || items[i - 1].intf ) && size.rows >= fewRows;
         if( apart ) lines.emplace_back();
         auto head = headOf( *unit, size.columns, size.rows < fewRows, look_ );
         // Its name, where there is nothing below it for the cursor.
         if( !intf && i == index_ ) head.front().spans.front().style = Style::bar;
         lines.insert( lines.end(), head.begin(), head.end() );
         if( intf ) lines.push_back( columns.heading() );
         if( !intf && unit->judged() ) lines.push_back( nothingShown( size.columns, look_ ) );
      }
      if( intf ) lines.push_back( columns.row( *intf, unit->now, i == index_ ) );
      if( lines.size() <= room ) ++shown_;
   }
   return lines;
}

}  // namespace Cli::Watch

#include "watch/Frame.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cwchar>

namespace Cli::Watch {

namespace {

// One character with its columns: 0 for what combines with the one before it, -1 for what is none that can be shown.
struct Character {
   std::string_view bytes;
   int columns;
};

Character firstOf( std::string_view text ) {
   std::mbstate_t state{};
   wchar_t wide = 0;
   std::size_t const length = std::mbrtowc( &wide, text.data(), text.size(), &state );
   // 0 is a zero byte, the largest two are bytes that are no character, or only the beginning of one.
   if( length == 0 || length > text.size() ) return { text.substr( 0, 1 ), -1 };
   return { text.substr( 0, length ), ::wcwidth( wide ) };
}

// Calls `each` for the characters in turn, until it returns false.
template<class Each>
void walk( std::string_view text, Each const & each ) {
   while( !text.empty() ) {
      Character const character = firstOf( text );
      if( !each( character ) ) return;
      text.remove_prefix( character.bytes.size() );
   }
}

// The longest beginning with at most so many columns; what combines stays with its character.
std::string_view head( std::string_view text, int columns ) {
   std::size_t bytes = 0;
   walk( text, [&]( Character const & character ) {
      columns -= std::max( character.columns, 0 );
      if( columns >= 0 ) bytes += character.bytes.size();
      return columns >= 0;
   } );
   return text.substr( 0, bytes );
}

// The longest end with at most so many columns.
std::string_view tail( std::string_view text, int columns ) {
   int surplus = columnsOf( text ) - columns;
   std::size_t skipped = 0;
   walk( text, [&]( Character const & character ) {
      // Behind the last one that is skipped nothing may stand that combines with it.
      if( surplus <= 0 && character.columns != 0 ) return false;
      surplus -= std::max( character.columns, 0 );
      skipped += character.bytes.size();
      return true;
   } );
   return text.substr( skipped );
}

char const * ellipsis( Look look ) { return look.unicode ? "\u2026" : "~"; }

}  // namespace

void Line::add( std::string_view text, Style style ) {
   if( text.empty() ) return;
   if( !spans.empty() && spans.back().style == style ) {
      spans.back().text += text;
   } else {
      spans.push_back( { std::string( text ), style } );
   }
}

int Line::columns() const {
   int sum = 0;
   for( Span const & span : spans ) sum += columnsOf( span.text );
   return sum;
}

std::string Line::text() const {
   std::string all;
   for( Span const & span : spans ) all += span.text;
   return all.substr( 0, all.find_last_not_of( ' ' ) + 1 );
}

void Line::fitTo( int columns, Look look ) {
   int left = columns;
   for( auto span = spans.begin(); span != spans.end(); ++span ) {
      int const wide = columnsOf( span->text );
      if( wide > left ) {
         span->text = cut( span->text, left, look );
         left -= columnsOf( span->text );
         spans.erase( span + 1, spans.end() );
         break;
      }
      left -= wide;
   }
   if( left > 0 )
      add( std::string( static_cast<std::size_t>( left ), ' ' ), spans.empty() ? Style::plain : spans.back().style );
}

Line between( Line left, Line const & right, int columns, Look look ) {
   int const gap = columns - left.columns() - right.columns();
   if( gap >= 2 ) {
      left.add( std::string( static_cast<std::size_t>( gap ), ' ' ),
                left.spans.empty() ? Style::plain : left.spans.back().style );
      for( Span const & span : right.spans ) left.add( span.text, span.style );
   }
   left.fitTo( columns, look );
   return left;
}

int columnsOf( std::string_view text ) {
   int sum = 0;
   walk( text, [&]( Character const & character ) {
      sum += std::max( character.columns, 0 );
      return true;
   } );
   return sum;
}

std::string fit( std::string_view text, Look look ) {
   std::string out;
   walk( text, [&]( Character const & character ) {
      bool const ascii = static_cast<unsigned char>( character.bytes.front() ) < 0x80;
      // Nothing to combine with.
      bool const alone = character.columns == 0 && out.empty();
      if( character.columns >= 0 && !alone && ( ascii || look.unicode ) ) {
         out += character.bytes;
         return true;
      }
      for( char const c : character.bytes ) {
         std::array<char, 8> escaped{};
         std::snprintf( escaped.data(), escaped.size(), "\\x%02x", static_cast<unsigned char>( c ) );
         out += escaped.data();
      }
      return true;
   } );
   return out;
}

std::string cut( std::string const & text, int columns, Look look ) {
   if( columns <= 0 ) return "";
   if( columnsOf( text ) <= columns ) return text;
   return std::string( head( text, columns - 1 ) ) + ellipsis( look );
}

std::string cutMiddle( std::string const & text, int columns, Look look ) {
   if( columns < 3 || columnsOf( text ) <= columns ) return cut( text, columns, look );
   // The end tells more: it is where numbers stand.
   int const behind = columns / 2;
   return std::string( head( text, columns - 1 - behind ) ) + ellipsis( look ) + std::string( tail( text, behind ) );
}

std::string padded( std::string text, int columns ) {
   text.append( static_cast<std::size_t>( std::max( columns - columnsOf( text ), 0 ) ), ' ' );
   return text;
}

std::string paddedLeft( std::string const & text, int columns ) {
   return std::string( static_cast<std::size_t>( std::max( columns - columnsOf( text ), 0 ) ), ' ' ) + text;
}

void addBar( Line & line, double share, int columns, Style filled, Look look ) {
   auto const all = static_cast<std::size_t>( std::max( columns, 0 ) );
   // All of it only for the whole, and nothing only for nothing.
   double const cells = std::clamp( share, 0.0, 1.0 ) * static_cast<double>( all );
   auto const full = static_cast<std::size_t>( share > 0 ? std::max( std::floor( cells ), 1.0 ) : 0 );
   auto const repeated = []( char const * piece, std::size_t n ) {
      std::string text;
      for( ; n > 0; --n ) text += piece;
      return text;
   };
   line.add( repeated( look.unicode ? "\u2501" : "=", std::min( full, all ) ), filled );
   line.add( repeated( look.unicode ? "\u2500" : "-", all - std::min( full, all ) ), Style::faint );
}

}  // namespace Cli::Watch

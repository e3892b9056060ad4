#include "tables/Table.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>

#include "kel/QuantityText.h"

namespace Cli {

namespace {

using Line = std::vector<std::string>;

// All lines have as many cells as the first. Widths are bytes, so a name that is not ASCII shifts the rest of its line.
void printLines( std::ostream & out, std::vector<Line> const & lines, std::string const & indent ) {
   std::vector<std::size_t> widths( lines.front().size() );
   for( Line const & line : lines ) {
      for( std::size_t i = 0; i < line.size(); ++i ) widths[i] = std::max( widths[i], line[i].size() );
   }
   for( Line const & line : lines ) {
      out << indent;
      for( std::size_t i = 0; i < line.size(); ++i ) {
         out << line[i];
         if( i + 1 < line.size() ) out << std::string( widths[i] - line[i].size() + 2, ' ' );
      }
      out << "\n";
   }
}

std::string orDash( std::string const & cell ) { return cell.empty() ? "-" : cell; }

}  // namespace

void printTable( std::ostream & out, Columns columns, boost::json::array const & rows, Clocks const & clocks,
                 std::string const & indent ) {
   std::vector<Line> lines( 1 );
   for( Column const & column : columns ) lines.front().emplace_back( column.heading );
   for( auto const & row : rows ) {
      Line & line = lines.emplace_back();
      for( Column const & column : columns ) {
         line.push_back( column.shown( object( row ), column.member, clocks ) );
      }
   }
   printLines( out, lines, indent );
}

void printRow( std::ostream & out, Columns columns, Object const & row, Clocks const & clocks,
               std::string const & indent ) {
   std::vector<Line> lines;
   for( Column const & column : columns ) {
      lines.push_back( { column.heading, column.shown( row, column.member, clocks ) } );
   }
   printLines( out, lines, indent );
}

std::string spanText( double seconds ) { return Kel::durationText( std::max( 0.0, std::round( seconds ) ) ); }
std::string neededText( double seconds ) { return Kel::durationText( std::max( 0.0, std::ceil( seconds ) ) ); }

std::string clockText( double time, Clocks const & clocks ) {
   if( !clocks.wallClockOffset ) return Kel::numberText( time, 3 ) + " s";
   auto const seconds = static_cast<time_t>( std::floor( time + *clocks.wallClockOffset ) );
   tm parts{};
   localtime_r( &seconds, &parts );
   std::array<char, 64> text{};
   std::strftime( text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts );
   return text.data();
}

std::string plainCell( Object const & row, char const * member, Clocks const & ) {
   return orDash( text( row, member ) );
}

std::string yesCell( Object const & row, char const * member, Clocks const & ) {
   return yes( row, member ) ? "yes" : "-";
}

std::string namesCell( Object const & row, char const * member, Clocks const & ) {
   return orDash( namesText( row, member ) );
}

std::string rateCell( Object const & row, char const * member, Clocks const & ) {
   auto const rate = number( row, member );
   return rate ? Kel::rateText( *rate ) : "-";
}

std::string spanCell( Object const & row, char const * member, Clocks const & ) {
   auto const seconds = number( row, member );
   return seconds ? spanText( *seconds ) : "-";
}

std::string agoCell( Object const & row, char const * member, Clocks const & clocks ) {
   auto const time = number( row, member );
   return time ? spanText( clocks.now - *time ) + " ago" : "-";
}

std::string clockCell( Object const & row, char const * member, Clocks const & clocks ) {
   auto const time = number( row, member );
   return time ? clockText( *time, clocks ) : "-";
}

}  // namespace Cli

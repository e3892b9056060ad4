#include "tables/Table.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>

#include "kel/QuantityText.h"
#include "report/Readable.h"

namespace Cli {

namespace {

using Line = std::vector<std::string>;

std::size_t tableWidth = 0;
// Narrower, a text that is broken is harder to read than one that the terminal breaks.
constexpr std::size_t narrowest = 24;

// Broken at blanks into lines of at most `width`, where there are blanks; behind each but the last comes `indent`.
std::string broken( std::string_view text, std::size_t width, std::string const & indent ) {
   std::string lines;
   // No character has more than four bytes, and a hostile text may have millions.
   while( Report::columns( text.substr( 0, 4 * width + 4 ) ) > width ) {
      // Bytes are at least as many as columns, so this ends within the text.
      std::size_t end = 0;
      for( std::size_t blank = text.find( ' ' ); blank != std::string_view::npos;
           blank = text.find( ' ', blank + 1 ) ) {
         if( Report::columns( text.substr( 0, blank ) ) > width && end > 0 ) break;
         // A number stays with its unit.
         bool const behindNumber = blank > 0 && text[blank - 1] >= '0' && text[blank - 1] <= '9';
         if( !behindNumber ) end = blank;
      }
      if( end == 0 ) break;
      lines.append( text.substr( 0, end ) ).append( "\n" ).append( indent );
      text.remove_prefix( end + 1 );
   }
   return lines.append( text );
}

// All lines have as many cells as the first.
void printLines( std::ostream & out, std::vector<Line> const & lines, std::string const & indent ) {
   std::vector<std::size_t> widths( lines.front().size() );
   for( Line const & line : lines ) {
      for( std::size_t i = 0; i < line.size(); ++i ) widths[i] = std::max( widths[i], Report::columns( line[i] ) );
   }
   std::size_t before = indent.size();
   for( std::size_t i = 0; i + 1 < widths.size(); ++i ) before += widths[i] + 2;
   bool const breaks = tableWidth >= before + narrowest;
   for( Line const & line : lines ) {
      out << indent;
      for( std::size_t i = 0; i + 1 < line.size(); ++i ) {
         out << line[i] << std::string( widths[i] - Report::columns( line[i] ) + 2, ' ' );
      }
      out << ( breaks ? broken( line.back(), tableWidth - before, std::string( before, ' ' ) ) : line.back() ) << "\n";
   }
}

std::string orDash( std::string const & cell ) { return cell.empty() ? "-" : cell; }

}  // namespace

void tableWidthIs( std::size_t columns ) { tableWidth = columns; }

void printTable( std::ostream & out, Columns columns, boost::json::array const & rows, Clocks const & clocks,
                 std::string const & indent ) {
   std::vector<Object const *> objects;
   for( auto const & row : rows ) objects.push_back( &object( row ) );
   printTable( out, columns, objects, clocks, indent );
}

void printTable( std::ostream & out, Columns columns, std::vector<Object const *> const & rows, Clocks const & clocks,
                 std::string const & indent ) {
   std::vector<Line> lines( 1 );
   for( Column const & column : columns ) lines.front().emplace_back( column.heading );
   for( Object const * const row : rows ) {
      Line & line = lines.emplace_back();
      for( Column const & column : columns ) line.push_back( column.shown( *row, column.member, clocks ) );
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

std::string yesNoCell( Object const & row, char const * member, Clocks const & clocks ) {
   return plainCell( row, member, clocks ) == "-" ? "-" : yes( row, member ) ? "yes" : "no";
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

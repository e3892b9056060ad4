#include "watch/Help.h"

#include <algorithm>

#include "watch/Series.h"

namespace Cli::Watch {

namespace {

constexpr int keyColumns = 13;

struct Entry {
   char const * key;
   char const * what;
};

constexpr Entry keyEntries[] = {
   { "q", "quit" },
   { "Up Down j k", "one interface up or down; PgUp, PgDn, Home and End for more" },
   { "Tab", "the next unit" },
   { "Enter", "the history of the interface: rates, breaks, spikes, events; Esc comes back" },
   { "/", "only names with this part in them, or verdicts that begin so; Esc clears it" },
   { "v", "only those that are not settled, loud, not known, being proven, settled; or all" },
   { "s", "sort by what holds the unit up, name, rate, time still needed, last change" },
   { "r", "in reverse" },
   { "+ -", "a longer or shorter time in the spark lines" },
};

struct Sign {
   char const * unicode;
   char const * ascii;
   Style style;
   char const * what;
};

constexpr Sign signs[] = {
   { "\u25b2", "!", Style::loud, "loud: traffic at or above the threshold; stuck: it does not fall" },
   { "?", "?", Style::unknown, "waiting, unwatched or missing: nobody can tell" },
   { "\u25cb", "o", Style::plain, "quiet, down or gone, not yet for the load interval" },
   { "\u25cf", "*", Style::settled, "settled: proven, held down by maintd, or left out" },
};

// Words in the columns behind the key; what has no room goes on in the next line.
void addEntry( std::vector<Line> & lines, Line key, std::string_view what, Size size, Look look ) {
   int const indent = std::min( keyColumns, size.columns / 2 );
   key.fitTo( indent, look );
   lines.push_back( key );
   for( bool first = true; !what.empty(); first = false ) {
      std::size_t const length = what.find( ' ' );
      std::string const word( what.substr( 0, length ) );
      what.remove_prefix( length == std::string_view::npos ? what.size() : length + 1 );
      bool const full = lines.back().columns() + 1 + columnsOf( word ) > size.columns;
      if( !first && full ) lines.emplace_back().add( std::string( static_cast<std::size_t>( indent ), ' ' ) );
      bool const begins = lines.back().columns() == indent;
      lines.back().add( ( begins ? "" : " " ) + word );
   }
}

}  // namespace

std::vector<Line> helpLines( Size size, Look look ) {
   std::vector<Line> lines;
   auto const entry = [&]( std::string_view key, Style style, char const * what ) {
      Line line;
      line.add( key, style );
      addEntry( lines, line, what, size, look );
   };
   for( auto const & [key, what] : keyEntries ) entry( key, Style::strong, what );
   lines.emplace_back();
   for( auto const & [unicode, ascii, style, what] : signs ) entry( look.unicode ? unicode : ascii, style, what );
   lines.emplace_back();
   constexpr double parts[] = { 0, 0.3, 0.6, 0.9, 1.5, 4, 15, 40 };
   Line spark;
   addSpark( spark, { std::begin( parts ), std::end( parts ) }, 1, look );
   addEntry( lines, spark, "the lower half is below the threshold; above it 2, 5, 20 times and more", size, look );
   entry( "NEEDS", Style::strong, "how long it must go on being quiet; ~40 s: when a loud one may be quiet" );
   for( Line & line : lines ) line.fitTo( size.columns, look );
   return lines;
}

}  // namespace Cli::Watch

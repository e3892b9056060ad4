#include "watch/Help.h"

#include "watch/Series.h"

namespace Cli::Watch {

namespace {

struct Entry {
   char const * key;  // empty: it goes on
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

}  // namespace

std::vector<Line> helpLines( Size size, Look look ) {
   std::vector<Line> lines;
   for( auto const & [key, what] : keyEntries ) {
      Line & line = lines.emplace_back();
      line.add( padded( key, 13 ), Style::strong );
      line.add( what );
   }
   lines.emplace_back();
   for( auto const & [unicode, ascii, style, what] : signs ) {
      Line & line = lines.emplace_back();
      line.add( padded( look.unicode ? unicode : ascii, 13 ), style );
      line.add( what );
   }
   lines.emplace_back();
   Line & spark = lines.emplace_back();
   constexpr double parts[] = { 0, 0.3, 0.6, 0.9, 1.5, 4, 15, 40 };
   addSpark( spark, { std::begin( parts ), std::end( parts ) }, 1, look );
   spark.add( "     the lower half is below the threshold; above it 2, 5, 20 times and more" );
   Line & needs = lines.emplace_back();
   needs.add( padded( "NEEDS", 13 ), Style::strong );
   needs.add( "how long it must go on being quiet; ~40 s: when a loud one may be quiet" );
   for( Line & line : lines ) line.fitTo( size.columns, look );
   return lines;
}

}  // namespace Cli::Watch

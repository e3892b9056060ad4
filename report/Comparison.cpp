#include "report/Comparison.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <span>
#include <tuple>
#include <utility>

#include "kel/QuantityText.h"
#include "report/TextTable.h"

namespace Report {

namespace {

// Agents do things one after the other, a replay does them at one moment: less than this is the same time.
constexpr double sameSeconds = 0.1;
// What a person still reads through.
constexpr std::size_t rowsMax = 200;

struct Beside {
   std::string who;
   std::string what;
   std::optional<double> recorded;
   std::optional<double> replayed;

   [[nodiscard]] double first() const { return std::min( recorded.value_or( 1e300 ), replayed.value_or( 1e300 ) ); }
   [[nodiscard]] bool same() const { return recorded && replayed && std::abs( *recorded - *replayed ) < sameSeconds; }
   [[nodiscard]] std::string difference() const {
      if( !recorded ) return "only replayed";
      if( !replayed ) return "only recorded";
      if( same() ) return "same";
      double const later = *replayed - *recorded;
      return Kel::durationText( std::round( std::abs( later ) * 10 ) / 10 ) + ( later < 0 ? " earlier" : " later" );
   }
};

std::vector<Beside> paired( std::vector<Decided> const & recorded, std::vector<Decided> const & replayed ) {
   // By who and what, and how often it was decided before.
   std::map<std::tuple<std::string, std::string, std::size_t>, Beside> rows;
   for( auto const & [list, place] : { std::pair( &recorded, &Beside::recorded ), { &replayed, &Beside::replayed } } ) {
      std::map<std::pair<std::string, std::string>, std::size_t> counts;
      for( Decided const & d : *list ) {
         Beside & row = rows[{ d.who, d.what, counts[{ d.who, d.what }]++ }];
         row.who = d.who;
         row.what = d.what;
         row.*place = d.time;
      }
   }
   std::vector<Beside> all;
   for( auto & [key, row] : rows ) all.push_back( std::move( row ) );
   std::ranges::stable_sort( all, {}, &Beside::first );
   return all;
}

}  // namespace

std::string comparison( std::vector<Decided> const & recorded, std::vector<Decided> const & replayed,
                        Moments const & moments ) {
   auto const rows = paired( recorded, replayed );
   if( rows.empty() ) return "";
   auto const same = std::ranges::count_if( rows, &Beside::same );
   using enum Table::Align;
   Table table( { { "WHO", left }, { "WHAT", left }, { "RECORDED", right }, { "REPLAYED", right }, { "", left } } );
   auto const text = [&]( std::optional<double> const & time ) { return time ? moments.brief( *time ) : "-"; };
   for( Beside const & row : std::span( rows ).first( std::min( rows.size(), rowsMax ) ) ) {
      table.add( { row.who, row.what, text( row.recorded ), text( row.replayed ), row.difference() } );
   }
   std::string out = "\nDecided when recorded and when replayed: " + std::to_string( same ) + " of " +
                     std::to_string( rows.size() ) + " at the same time\n\n" + table.text();
   if( rows.size() > rowsMax ) out += "... and " + std::to_string( rows.size() - rowsMax ) + " more\n";
   return out;
}

}  // namespace Report

#include "watch/Series.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Cli::Watch {

namespace {

constexpr int halfLevels = 4;
constexpr std::array<char const *, 2 * halfLevels> stepBlocks{ "\u2581", "\u2582", "\u2583", "\u2584",
                                                               "\u2585", "\u2586", "\u2587", "\u2588" };
constexpr std::array<char const *, 2 * halfLevels> letters{ "_", ".", "-", "=", "+", "*", "%", "#" };

double rateOf( Cell const & cell, Direction direction ) {
   switch( direction ) {
      case Direction::in: return cell.in;
      case Direction::out: return cell.out;
      case Direction::either: return cell.higher();
   }
   return 0;
}

std::size_t levelAbove( double factor ) {
   std::size_t level = halfLevels;
   for( double const end : { 2.0, 5.0, 20.0 } ) level += factor >= end ? 1 : 0;
   return level;
}

std::size_t level( double rate, double threshold ) {
   if( rate >= threshold ) return levelAbove( rate / threshold );
   return static_cast<std::size_t>( rate / threshold * halfLevels );
}

}  // namespace

void Series::cellIs( Cell cell ) {
   if( !cells_.empty() ) {
      Cell & last = cells_.back();
      cell.from = std::max( cell.from, last.to );
      if( cell.to <= cell.from ) return;
      // A rate is read more often than it is measured.
      bool const same = cell.in == last.in && cell.out == last.out && cell.from <= last.to;
      if( same ) {
         last.to = cell.to;
         return;
      }
   }
   cells_.push_back( cell );
   auto const old = std::find_if( cells_.begin(), cells_.end(),
                                  [&]( Cell const & each ) { return each.to > cell.to - keptSeconds; } );
   cells_.erase( cells_.begin(), old );
}

void Series::pastIs( std::vector<Cell> const & past ) {
   std::vector<Cell> all;
   for( Cell cell : past ) {
      if( !cells_.empty() ) cell.to = std::min( cell.to, cells_.front().from );
      if( cell.to > cell.from ) all.push_back( cell );
   }
   all.insert( all.end(), cells_.begin(), cells_.end() );
   cells_ = std::move( all );
}

Ticks lastColumns( double now, double seconds, int columns ) {
   double const step = seconds / std::max( columns, 1 );
   // The last one has the present moment in it.
   double const end = std::floor( now / step ) + 1;
   return { ( end - columns ) * step, step, columns };
}

std::vector<std::optional<double>> highest( std::vector<Cell> const & cells, Direction direction,
                                            Ticks const & ticks ) {
   std::vector<std::optional<double>> rates( static_cast<std::size_t>( std::max( ticks.columns, 0 ) ) );
   for( Cell const & cell : cells ) {
      double const end = ( cell.to - ticks.from ) / ticks.step;
      if( end <= 0 ) continue;
      auto const first = static_cast<std::size_t>( std::max( ( cell.from - ticks.from ) / ticks.step, 0.0 ) );
      // A cell that ends where a column begins has no part in it.
      auto const last = std::min( static_cast<std::size_t>( std::ceil( end ) ), rates.size() );
      for( std::size_t i = first; i < last; ++i ) {
         rates[i] = std::max( rates[i].value_or( 0 ), rateOf( cell, direction ) );
      }
   }
   return rates;
}

void addSpark( Line & line, std::vector<std::optional<double>> const & rates, std::optional<double> threshold,
               Look look ) {
   auto const & steps = look.unicode ? stepBlocks : letters;
   double top = 1;
   for( auto const & rate : rates ) top = std::max( top, rate.value_or( 0 ) );
   // Its lower half would be empty otherwise.
   double const middle = threshold && *threshold > 0 ? *threshold : top * 2;
   for( auto const & rate : rates ) {
      if( !rate ) {
         line.add( " " );
         continue;
      }
      bool const loud = threshold && *rate >= *threshold;
      line.add( steps.at( level( *rate, middle ) ), loud ? Style::loud : Style::plain );
   }
}

}  // namespace Cli::Watch

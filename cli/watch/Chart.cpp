#include "watch/Chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

#include "kel/QuantityText.h"
#include "report/Scales.h"

namespace Cli::Watch {

namespace {

constexpr int eighths = 8;
constexpr std::array<char const *, eighths + 1> blocks{ " ",      "\u2581", "\u2582", "\u2583", "\u2584",
                                                        "\u2585", "\u2586", "\u2587", "\u2588" };

class Chart {
 public:
   explicit Chart( ChartAsked const & asked )
      : asked_( asked ), scale_( std::max( asked.highest, asked.threshold.value_or( 0 ) ) ) {
      // Two rows apart, so that they can be read.
      for( double const rate : scale_.ticks( 2.0 / asked.rows ) ) labels_[rowOf( rate )] = rate;
      if( asked_.threshold ) labels_[rowOf( *asked_.threshold )] = *asked_.threshold;
   }

   // From the bottom.
   [[nodiscard]] Line row( int number ) const {
      Line line;
      auto const label = labels_.find( number );
      bool const limit = isLimit( number );
      std::string const text = label == labels_.end() ? "" : Kel::rateText( label->second );
      line.add( paddedLeft( text, scaleColumns - 2 ), limit ? Style::strong : Style::faint );
      char const * const edge = asked_.look.unicode ? ( text.empty() ? " \u2502" : " \u2524" ) : " |";
      line.add( edge, Style::faint );
      for( auto const & rate : asked_.rates ) addCell( line, rate, number );
      return line;
   }

 private:
   // Of the chart's height, in eighths of a row. What flows is to be seen, however little it is.
   [[nodiscard]] int heightOf( double rate ) const {
      int const height = static_cast<int>( std::lround( scale_.share( rate ) * asked_.rows * eighths ) );
      return rate > 0 ? std::max( height, 1 ) : 0;
   }
   [[nodiscard]] int rowOf( double rate ) const {
      return std::clamp( static_cast<int>( scale_.share( rate ) * asked_.rows ), 0, asked_.rows - 1 );
   }
   [[nodiscard]] bool isLimit( int number ) const { return asked_.threshold && rowOf( *asked_.threshold ) == number; }

   void addCell( Line & line, std::optional<double> rate, int number ) const {
      int const filled = std::clamp( heightOf( rate.value_or( 0 ) ) - number * eighths, 0, eighths );
      bool const loud = rate && asked_.threshold && *rate >= *asked_.threshold;
      if( filled == 0 ) {
         char const * const dash = asked_.look.unicode ? "\u2508" : "-";
         line.add( isLimit( number ) ? dash : emptyCell( rate, number ), Style::faint );
      } else if( asked_.look.unicode ) {
         line.add( blocks.at( static_cast<std::size_t>( filled ) ), loud ? Style::loud : Style::plain );
      } else {
         line.add( filled >= eighths / 2 ? "#" : ".", loud ? Style::loud : Style::plain );
      }
   }

   // A zero that was measured is not the same as what was not.
   [[nodiscard]] char const * emptyCell( std::optional<double> rate, int number ) const {
      if( !rate || number > 0 ) return " ";
      return asked_.look.unicode ? "\u2581" : "_";
   }

   ChartAsked const & asked_;
   Report::RateScale const scale_;
   std::map<int, double> labels_;  // rates by their rows
};

}  // namespace

std::vector<Line> chart( ChartAsked const & asked ) {
   Chart const drawn( asked );
   std::vector<Line> lines;
   for( int number = asked.rows - 1; number >= 0; --number ) lines.push_back( drawn.row( number ) );
   return lines;
}

}  // namespace Cli::Watch

// Rates over time as a chart of characters, with the threshold as a line across it.
#pragma once

#include "watch/Series.h"

namespace Cli::Watch {

struct ChartAsked {
   std::vector<std::optional<double>> rates;  // a column each; none: not measured
   std::optional<double> threshold;
   double highest = 0;  // that the scale must reach
   int rows = 5;
   Look look;
};

// Columns at the left of a chart, in which its scale stands.
constexpr int scaleColumns = 11;

// As many lines as rows: the scale, and the chart.
[[nodiscard]] std::vector<Line> chart( ChartAsked const & asked );

}  // namespace Cli::Watch

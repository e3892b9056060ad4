// The rates of one interface over the last minutes, and spark lines of them.
#pragma once

#include <optional>
#include <vector>

#include "watch/Frame.h"

namespace Cli::Watch {

// Between two moments, bit/s. A time that no cell covers was not measured.
struct Cell {
   double from = 0;  // s, on the service's clock
   double to = 0;
   double in = 0;
   double out = 0;

   [[nodiscard]] double higher() const { return in > out ? in : out; }
};

enum class Direction : uint8_t { in, out, either };

class Series {
 public:
   // As long as the longest spark line shows.
   static constexpr double keptSeconds = 900;

   [[nodiscard]] std::vector<Cell> const & cells() const { return cells_; }

   // The latest. What it tells of a time that is covered already is dropped.
   void cellIs( Cell cell );
   // From before everything that is here, in the order of time.
   void pastIs( std::vector<Cell> const & past );

 private:
   std::vector<Cell> cells_;  // in the order of time
};

// Moments at which columns of a picture begin.
struct Ticks {
   double from = 0;
   double step = 1;  // s
   int columns = 0;
};

// The last `seconds` up to `now` in so many columns. Columns begin at multiples of their length, so that what has been
// drawn moves on whole, and does not flicker.
[[nodiscard]] Ticks lastColumns( double now, double seconds, int columns );

// The highest rate in each column; none where nothing was measured.
[[nodiscard]] std::vector<std::optional<double>> highest( std::vector<Cell> const & cells, Direction direction,
                                                          Ticks const & ticks );

// The lower half of its height is below the threshold, in equal steps; the upper half at or above it, up to twice,
// five times, twenty times of it, and beyond. Without a threshold only the lower half is used, up to the highest rate.
void addSpark( Line & line, std::vector<std::optional<double>> const & rates, std::optional<double> threshold,
               Look look );

}  // namespace Cli::Watch

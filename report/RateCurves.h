// The rates of one interface over a window as SVG path data, for a lane whose middle is no traffic.
//
// Coordinates are whole numbers: `columns` of them from left to right, half pixels from top to bottom. Cells that fall
// into one column share it, with the highest, the lowest and the mean rates of all. A curve has steps, because a rate
// holds for all the time of which its samples tell, and is broken where there are none.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "report/Scales.h"
#include "report/WindowStory.h"
#include "report/WindowTime.h"

namespace Report {

class RateCurves {
 public:
   using Rate = double StoryCell::*;

   RateCurves( StoryIntf const & intf, WindowTime const & time, RateScale const & rates, int columns, int height );

   // Where a rate stands: in above the middle, out below it.
   [[nodiscard]] int y( double bits, bool out ) const;
   [[nodiscard]] bool empty() const { return stretches_.empty(); }
   // The time that was measured, as an area over the whole height.
   [[nodiscard]] std::string measured() const;
   [[nodiscard]] std::string line( Rate rate, bool out ) const;
   [[nodiscard]] std::string area( Rate rate, bool out ) const;  // between no traffic and the rate
   [[nodiscard]] std::string band( Rate low, Rate high, bool out ) const;

 private:
   struct Column {
      int left, right;
      StoryCell cell;
   };
   using Stretch = std::vector<Column>;  // without a gap
   using Level = std::function<int( Column const & )>;

   void add( StoryCell const & cell, int left, int right );
   [[nodiscard]] Level level( Rate rate, bool out ) const;
   [[nodiscard]] std::string between( Level const & top, Level const & bottom ) const;

   RateScale const & rates_;
   int const columns_, height_;
   std::vector<Stretch> stretches_;
};

}  // namespace Report

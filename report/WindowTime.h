// Where a moment of a window stands in its picture.
//
// A stay of hours has an entry of minutes, and the entry is what the picture is looked at for. So the three parts of a
// window (entering, in maintenance, leaving) share the width by their lengths only as far as each of them keeps enough
// of it to be read; within a part time runs evenly.
#pragma once

#include <string>
#include <vector>

#include "report/Moments.h"
#include "report/WindowStory.h"

namespace Report {

class WindowTime {
 public:
   struct Tick {
      double share;
      std::string text;
   };

   explicit WindowTime( WindowStory const & story );

   // Of the width, 0 to 1; what lies outside of the window is at its ends.
   [[nodiscard]] double share( double time ) const;
   [[nodiscard]] std::string percent( double time ) const;  // the same, as "37.25%"
   [[nodiscard]] bool stretched() const { return stretched_; }
   [[nodiscard]] std::vector<double> boundaries() const;  // shares at which one part ends and the next begins
   // Round moments, such that texts `textWidth` pixels wide fit side by side in a picture of that width.
   [[nodiscard]] std::vector<Tick> ticks( Moments const & moments, double width, double textWidth ) const;

 private:
   struct Part {
      double from, to;  // s
      double least;     // share of the width
      double left = 0, right = 1;
   };

   void layOut();

   std::vector<Part> parts_;  // at least one
   bool stretched_ = false;
};

}  // namespace Report

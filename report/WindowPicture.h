// The timeline of a window as HTML with inline SVG: a lane per interface below an axis of time with the stages.
//
// In each lane, rates in go up from the middle and rates out go down, against the threshold on either side, so that a
// direction can be told without its colour; what was not measured is hatched. All lanes share the axis and the scale
// of rates, which is logarithmic. Lanes are rows of a table: they stretch to whatever width there is, their texts keep
// their size, no page break runs through one, and the axis is repeated on every page. The more interfaces, the lower
// their lanes.
#pragma once

#include <string>
#include <string_view>

#include "report/Moments.h"
#include "report/WindowStory.h"

namespace Report {

// Shapes and patterns that the pictures and tables of a page refer to; goes into the page once, before them.
[[nodiscard]] std::string_view pictureShapes();
// Whether the picture is about a screen high at most.
[[nodiscard]] bool lanesAreRoomy( WindowStory const & story );
[[nodiscard]] std::string windowPicture( WindowStory const & story, Moments const & moments );
// The mark of an event of that kind, for a legend or a table.
[[nodiscard]] std::string markOf( std::string_view kind );

}  // namespace Report

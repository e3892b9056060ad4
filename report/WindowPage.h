// The page of a window, for a change ticket: one HTML file that needs no script, no network and no font.
//
// It says first who took what out of service and when, whether and since when it was quiet and by which values, what
// was left out of the proof and what came back; then stages, timeline, interfaces, and everything that happened. It is
// made from the answer about a window and states nothing that does not follow from it: what is not known is said to be
// unknown, and of a stay that is underway it says as of when it speaks.
#pragma once

#include <string>

#include "kel/Value.h"

namespace Report {

// Whose answer it is. Of a stay that only was computed the page says so before all else, in whatever it is quoted.
enum class Origin { service, simulation };

// The whole file; the same answer gives the same bytes. Throws Kel::AttributeError for a Value that is no answer about
// a window.
[[nodiscard]] std::string windowPage( Kel::Value const & window, Origin origin = Origin::service );

}  // namespace Report

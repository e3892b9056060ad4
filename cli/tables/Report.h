// A window on the terminal: who took what out of service when, how its stages went, and what happened to each
// interface. Takes the API's answer about one window as it came.
#pragma once

#include "tables/Table.h"

namespace Cli {

extern Columns const stageColumns;            // of a stage in a window
extern Columns const windowInterfaceColumns;  // of an interface in a window
extern Columns const windowEventColumns;      // of what happened to an interface

void printReport( std::ostream & out, Object const & window );

// Which stages of the entry were gone past without being done, "stage verify: timed out"; empty when none was, or when
// the proof was made all the same.
[[nodiscard]] std::string unprovenText( Object const & window );
// Why the unit was turned back on its way in ("enter") or got stuck on its way out ("exit"); empty when the window does
// not tell.
[[nodiscard]] std::string turnedBackText( Object const & window, char const * operation );

}  // namespace Cli

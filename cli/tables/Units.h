// Units, their interfaces, and how far they are: what maintctl status, units, interfaces, ready, explain and the
// following of an entry print.
#pragma once

#include "tables/Table.h"

namespace Cli {

extern Columns const unitColumns;       // of a unit
extern Columns const accountColumns;    // of an interface in a unit
extern Columns const explainedColumns;  // the same, with all that is known
extern Columns const interfaceColumns;  // of an interface of the box

// All take answers of the API as they came.
void printUnits( std::ostream & out, Object const & answer );
void printInterfaces( std::ostream & out, Object const & answer );
// A unit with its interfaces and what they wait for: the worst ten of them and how many more there are, or all.
void printStatus( std::ostream & out, Object const & unit, bool all );
// One interface, in each unit that has it.
void printExplained( std::ostream & out, Object const & answer );
void printReady( std::ostream & out, Object const & answer );

// "ready, proven quiet up to 3 s ago", "not ready: 1 of 3 interfaces not settled",
// "DISTURBED: traffic is back on up1"; empty for a unit of which nothing is to be proven.
[[nodiscard]] std::string readinessText( Object const & unit );

}  // namespace Cli

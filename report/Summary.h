// The outcome of a run as two short tables: what became of each unit and of each interface.
#pragma once

#include <string>

#include "report/History.h"

namespace Report {

// Lines of text, for a terminal. Points in time are virtual seconds, as in the answers of the run.
[[nodiscard]] std::string summary( History const & history );

}  // namespace Report

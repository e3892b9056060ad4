// The tables of a window's page. They are complete, however many interfaces there are; on a narrow screen each row
// becomes a block with the names of its columns.
#pragma once

#include <string>

#include "report/Moments.h"
#include "report/WindowStory.h"

namespace Report {

[[nodiscard]] std::string stageTable( WindowStory const & story, Moments const & moments );
[[nodiscard]] std::string profileTable( WindowStory const & story );
[[nodiscard]] std::string interfaceTable( WindowStory const & story );
// Breaks, spikes, link changes and shutdowns; then, folded, each change of a verdict.
[[nodiscard]] std::string eventTables( WindowStory const & story, Moments const & moments );

}  // namespace Report

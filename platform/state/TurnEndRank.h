// The order in which those go on who wait for the end of a turn (kel/TurnEnd.h), for all that run in one agent.
#pragma once

namespace Maintenance {

// First links follow the error-disable entries, then accounts are judged, then stages go on. Then all of it is put on
// disk, and only then programs are run for it. What a recording says of the turn is said when nothing changes any more.
enum TurnEndRank : int {
   linksFollow = 10,
   accountsJudged = 20,
   stagesGoOn = 30,
   recordsKept = 40,
   hooksRun = 50,
   turnRecorded = 60
};

}  // namespace Maintenance

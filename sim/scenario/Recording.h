// What a recording of a box says of that box, beside the lines that are carried out: where and when it was made, and
// what was decided there. What the replay decides is kept beside it, for a comparison after the run.
//
//    {"recorded": {"host": "leaf1", "maintd": "1.0", "clock": 51234.5, "unixTime": 1763786401.25}}   first of all lines
//    {"recorded": {"unit": "fabric", "interface": "eth0", "is": "drained"}}                         at its time
//
// Owned by whoever runs the scenario, which hands over the lines. A scenario that has no such lines is no recording,
// and costs nothing here.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "decisions/Decisions.h"
#include "report/Comparison.h"
#include "scenario/Json.h"
#include "world/World.h"

namespace Sim {

class Recording {
 public:
   struct Header {
      std::string host;
      std::string maintd;  // its version; empty where it has none
      double clock = 0;    // s, of that maintd, where the recording begins
      double unixTime = 0;
   };

   // The world outlives this.
   explicit Recording( World & world ) : world_( world ) {}

   // Of a line, which may be any: none where it is not the first of a recording. Throws LineError for one that is, and
   // is wrong.
   [[nodiscard]] static std::optional<Header> headerOf( std::string_view line );

   // The argument of a line "recorded". In a turn. Throws LineError.
   void recorded( Json const & said );

   [[nodiscard]] std::optional<Header> const & header() const { return header_; }
   // What was decided then and now, as text; empty when this is no recording.
   [[nodiscard]] std::string comparison() const;

 private:
   void headerIs( Header const & header );

   World & world_;
   std::optional<Header> header_;
   double wallClockOffset_ = 0;  // s to add to a time of the replay for Unix time
   double began_ = 0;            // s
   std::unique_ptr<Service::Decisions> decisions_;
   std::vector<Report::Decided> recorded_;
   std::vector<Report::Decided> replayed_;
};

}  // namespace Sim

// The box's links as interface status records, and as rows of the counter table.
//
// Owned by the agent, driven by the link monitor inside turns. A link has a record and a row exactly while it exists.
#pragma once

#include <map>

#include "linux/LinkMonitor.h"
#include "quill/CounterWriter.h"
#include "state/MaintenanceState.h"

namespace Host {

class LinkFeed {
 public:
   // Both outlive this.
   LinkFeed( Maintenance::MaintenanceState & state, KelQuill::CounterWriter & counters )
      : state_( state ), counters_( counters ) {}

   void changed( Linux::Link const & link );
   void removed( Linux::Link const & link );

   // By kernel index, the interfaces that exist.
   [[nodiscard]] std::map<int, Lumo::IntfId> const & interfaces() const { return interfaces_; }

 private:
   Maintenance::MaintenanceState & state_;
   KelQuill::CounterWriter & counters_;
   std::map<int, Lumo::IntfId> interfaces_;
};

}  // namespace Host

// The box's links as the service's link records, and as rows of the counter table.
//
// Owned by the box's service, driven by the link monitor inside turns. A link has a record and a row exactly while it
// exists.
#pragma once

#include <map>

#include "links/LinkRecords.h"
#include "linux/LinkMonitor.h"
#include "quill/CounterWriter.h"

namespace Host {

class LinkFeed {
 public:
   // Both outlive this.
   LinkFeed( Service::LinkRecords & links, KelQuill::CounterWriter & counters )
      : links_( links ), counters_( counters ) {}

   void changed( Linux::Link const & link );
   void removed( Linux::Link const & link );

   // By kernel index, the interfaces that exist.
   [[nodiscard]] std::map<int, Lumo::IntfId> const & interfaces() const { return interfaces_; }

 private:
   Service::LinkRecords & links_;
   KelQuill::CounterWriter & counters_;
   std::map<int, Lumo::IntfId> interfaces_;
};

}  // namespace Host

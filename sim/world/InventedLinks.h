// The links of a box that exists only in memory: what was said of each last, and which of them are held down.
//
// Owned by the world, and there also while no service runs. What was said stays until something else is said; a link
// that is held is reported down whatever was said, until it is let go, or until somebody raises it by hand. While the
// records follow, each change is reported into them at once; while nobody is there to report, as when the agent is
// away, the links change alone, and the records are brought into step when they follow again.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "links/LinkRecords.h"
#include "world/InventedCounters.h"

namespace Sim {

class InventedLinks {
 public:
   // What is said of a link. What is absent stays as it is; a link that is new is then up, without members, and of the
   // kind that its name tells.
   struct Said {
      std::optional<bool> up;  // true also raises a link that is held
      std::optional<Lumo::IntfKind> kind;
      std::optional<uint16_t> vlanId;
      std::optional<std::vector<std::string>> members;
   };

   // Both outlive this.
   InventedLinks( Service::LinkRecords & records, InventedCounters & counters )
      : records_( records ), counters_( counters ) {}

   // The link as it would be after this, as the host reports it when nothing holds it.
   [[nodiscard]] Service::LinkReport after( Lumo::IntfId intf, Said const & said ) const;
   // Throws KelQuill::TableError when there is no room for the counters of a new link; nothing has changed then.
   void linkIs( Lumo::IntfId intf, Said const & said );
   // There is no such link any more; absent is no error.
   void linkDel( Lumo::IntfId intf );

   // Takes a link down, or brings it back to what was said last. Absent is no error.
   void heldIs( Lumo::IntfId intf, bool held );
   [[nodiscard]] std::vector<Lumo::IntfId> held() const;

   // Whether the records follow; when they begin to, they are brought into step first.
   void recordsFollow( bool follow );

 private:
   struct Link {
      Service::LinkReport said;
      bool held = false;
   };

   void report( Lumo::IntfId intf );

   Service::LinkRecords & records_;
   InventedCounters & counters_;
   std::map<Lumo::IntfId, Link> links_;
   std::set<Lumo::IntfId> unreported_;  // what changed while the records did not follow
   bool follow_ = true;
};

}  // namespace Sim

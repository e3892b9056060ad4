// Takes links down and lets them go as the error-disable entries say: the agent's hand on the links of the world.
//
// Owned by the agent and there only while that runs; when it goes, links stay as they are. At its construction links
// are brought into step with the entries that are there. Later a link whose entries have changed is taken down when it
// has one of any cause, and let go when it has none: at the end of the turn, and before anyone judges it. So an entry
// that is removed and written again in one turn moves no link.
#pragma once

#include <memory>
#include <set>

#include "kel/Dir.h"
#include "kel/ReactorMap.h"
#include "world/InventedLinks.h"

namespace Sim {

class LinkControl {
 public:
   // `links` outlive this.
   LinkControl( Kel::Ptr<Kel::Dir const> const & causes, InventedLinks & links );
   ~LinkControl();

 private:
   class Follow;
   class KelCauses;
   class KelCause;

   void handleEntry( Lumo::IntfId intf );
   void handleCauseDel();
   void follow();
   [[nodiscard]] bool hasEntry( Lumo::IntfId intf ) const;

   Kel::Ptr<Kel::Dir const> const causes_;
   InventedLinks & links_;
   std::set<Lumo::IntfId> changed_;  // to be followed
   std::unique_ptr<Follow> const follow_;
   Kel::ReactorMap<KelCause, Kel::Name, LinkControl> cause_;
   std::unique_ptr<KelCauses> kelCauses_;
};

}  // namespace Sim

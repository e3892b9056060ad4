// Tells of links that go down, come up, vanish, come back or are made anew: of those that the configuration names.
//
// Owned by the maintenance service. Follows every link by its record, as the configuration may name another tomorrow.
// What is there at the beginning is not told of.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "kel/ReactorMap.h"
#include "records/Interface.h"

namespace Service {

class LinkEvents {
 public:
   // Both are called from inside the write of the link's record.
   using IsNamed = std::function<bool( Lumo::IntfId intf )>;  // by the configuration
   using Tell = std::function<void( Lumo::IntfId intf, std::string const & text )>;

   LinkEvents( Kel::Ptr<Interface::AllIntfStatusDir const> const & links, IsNamed isNamed, Tell tell );
   ~LinkEvents();

 private:
   class KelLink;
   class KelLinks;

   void handleLink( Interface::IntfStatus const & link );
   void handleState( Interface::IntfStatus const & link ) const;
   void handleVanished( Lumo::IntfId intf );

   IsNamed const isNamed_;
   Tell const tell_;
   bool starting_ = true;
   std::set<Lumo::IntfId> vanished_;  // only what is named: others come and go for ever
   Kel::ReactorMap<KelLink, Lumo::IntfId, LinkEvents> link_;
   std::unique_ptr<KelLinks> kelLinks_;
};

}  // namespace Service

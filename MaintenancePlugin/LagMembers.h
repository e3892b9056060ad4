// The members of every port-channel, kept beside the configuration, which says only of each interface where it belongs.
//
// Owned by the root, used by the samplers: a sample of a port-channel costs its members, however many ports the box has. Follows
// the configuration entry by entry as it changes; it writes nothing.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "records/Lag.h"

namespace MaintenanceMode {

class LagMembers {
 public:
   // The configuration may be null: no port-channel has members then.
   explicit LagMembers( Kel::Ptr<Lag::Config const> const & config );
   LagMembers( LagMembers const & ) = delete;
   LagMembers & operator=( LagMembers const & ) = delete;
   ~LagMembers();

   // In the order of interfaces; empty for a port-channel that has none. Valid until the configuration changes.
   [[nodiscard]] std::vector<Lumo::IntfId> const & of( Lumo::IntfId lag ) const;

 private:
   class KelConfig;
   class KelPhyIntf;

   void follow( Kel::Ptr<Lag::PhyIntf const> const & phyIntf );
   void memberIs( Lumo::IntfId lag, Lumo::IntfId member );
   void memberDel( Lumo::IntfId lag, Lumo::IntfId member );

   std::unordered_map<Lumo::IntfId, std::vector<Lumo::IntfId>> members_;
   std::unordered_map<Lumo::IntfId, std::unique_ptr<KelPhyIntf>> phyIntf_;
   std::unique_ptr<KelConfig> config_;
};

}  // namespace MaintenanceMode

// The members of every port-channel, kept beside the configuration, which says only of each interface where it belongs.
//
// Owned by the root, used by the samplers: a sample of a port-channel costs its members, however many ports the box
// has. Follows the configuration entry by entry as it changes; it writes nothing.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "kel/ReactorMap.h"
#include "records/Lag.h"

namespace MaintenanceMode {

class LagMembers {
 public:
   explicit LagMembers( Kel::Ptr<Lag::Config const> const & config );
   LagMembers( LagMembers const & ) = delete;
   LagMembers & operator=( LagMembers const & ) = delete;
   ~LagMembers();

   // A port-channel's members, by position in the order of interfaces. Asked for one by one, because what is done with
   // a member may change the configuration.
   [[nodiscard]] std::size_t count( Lumo::IntfId lag ) const;
   [[nodiscard]] Lumo::IntfId member( Lumo::IntfId lag, std::size_t i ) const;  // i < count( lag )

 private:
   class KelConfig;
   class KelPhyIntf;

   void memberIs( Lumo::IntfId lag, Lumo::IntfId member );
   void memberDel( Lumo::IntfId lag, Lumo::IntfId member );

   std::unordered_map<Lumo::IntfId, std::vector<Lumo::IntfId>> members_;
   Kel::ReactorMap<KelPhyIntf, Lumo::IntfId, LagMembers> phyIntf_;
   std::unique_ptr<KelConfig> config_;
};

}  // namespace MaintenanceMode

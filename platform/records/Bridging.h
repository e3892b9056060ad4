// VLANs and the interfaces that carry them. Written by the host; a VLAN without a record does not exist.
#pragma once

#include "kel/Attributes.h"
#include "records/IntfId.h"

namespace Bridging {

class VlanStatus final : public Kel::Entity {
   KEL_ENTITY( VlanStatus, "Bridging::VlanStatus", uint32_t, vlanId )  // 1 to 4094
   KEL_SET( Lumo::IntfId, intf, onIntf )
   KEL_ENTITY_END
};

class VlanStatusDir final : public Kel::Entity {
   KEL_ENTITY( VlanStatusDir, "Bridging::VlanStatusDir", Kel::Name, dirName )
   KEL_CHILDREN( VlanStatus, uint32_t, vlanStatus, onVlanStatus )
   KEL_ENTITY_END
};

}  // namespace Bridging

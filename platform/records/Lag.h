// Link aggregation: which port-channel each physical interface is configured into. Written by the host.
#pragma once

#include "kel/Attributes.h"
#include "records/IntfId.h"

namespace Lag {

class PhyIntf final : public Kel::Entity {
   KEL_ENTITY( PhyIntf, "Lag::PhyIntf", Lumo::IntfId, intfId )
   KEL_ATTR_NOTIFY( Lumo::IntfId, lag, onLag )  // the empty id: in none
   KEL_ENTITY_END
};

class Config final : public Kel::Entity {
   KEL_ENTITY( Config, "Lag::Config", Kel::Name, dirName )
   KEL_CHILDREN( PhyIntf, Lumo::IntfId, phyIntf, onPhyIntf )
   KEL_ENTITY_END
};

}  // namespace Lag

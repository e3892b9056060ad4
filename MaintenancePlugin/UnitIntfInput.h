// Sets of interfaces per maintenance unit. The root owns two directories of them: the interfaces to monitor and the
// interfaces found drained. A unit has an entry in each exactly while its maintenance entry is being served.
#pragma once

#include "kel/Attributes.h"
#include "records/IntfId.h"

namespace MaintenanceMode {

class UnitIntfInput final : public Kel::Entity {
   KEL_ENTITY( UnitIntfInput, "MaintenanceMode::UnitIntfInput", Kel::String8, unitName )
   KEL_SET( Lumo::IntfId, intf, onIntf )
   KEL_ENTITY_END
};

class UnitIntfInputDir final : public Kel::Entity {
   KEL_ENTITY( UnitIntfInputDir, "MaintenanceMode::UnitIntfInputDir", Kel::Name, dirName )
   KEL_CHILDREN( UnitIntfInput, Kel::String8, unitIntfInput, onUnitIntfInput )
   KEL_ENTITY_END
};

}  // namespace MaintenanceMode

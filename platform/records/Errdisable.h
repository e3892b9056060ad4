// Interfaces held down on purpose, per cause.
#pragma once

#include "kel/Attributes.h"
#include "records/IntfId.h"

namespace Errdisable {

// One cause. An interface has an entry exactly while it is held down for this cause; the host takes the link down and
// brings it up again when the last cause lets it go.
class CauseStatus final : public Kel::Entity {
   KEL_ENTITY( CauseStatus, "Errdisable::CauseStatus", Kel::Name, causeName )
   KEL_MAP( double, Lumo::IntfId, intfStatus, onIntfStatus )  // s, since when
   KEL_ENTITY_END
};

}  // namespace Errdisable

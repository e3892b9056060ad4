// Error-disable causes: reasons for which interfaces are held down on purpose.
//
// Whoever wants to hold interfaces down for a cause of its own introduces it here once, and then adds and removes
// interfaces in the cause's record, Errdisable::CauseStatus. Introducing takes no interface down; acting on the
// entries is the host's part.
#pragma once

#include <cstdint>

#include "dovra/EntityManager.h"
#include "kel/Attributes.h"

namespace Errdisable {

// What a cause is about, for people. Written once, when the cause is introduced.
class CauseGroup final : public Kel::Entity {
   KEL_ENTITY( CauseGroup, "Errdisable::CauseGroup", Kel::Name, causeName )
   KEL_ATTR( Kel::String8, description )
   KEL_ATTR( Kel::String8, reason )  // a short word for tables
   KEL_ATTR( uint32_t, groupType )   // which causes are shown together
   KEL_ATTR( uint32_t, priority )    // among the causes of one type, 0 first
   KEL_ATTR( uint8_t, flags )        // b1 is bit 0, ... b5 bit 4
   KEL_ENTITY_END
};

}  // namespace Errdisable

namespace ErrdisableLib {

// Makes the cause's record in "interface/errdisable/cause" and its description in "interface/errdisable/causegroup",
// both mounted directories. What is already there stays as it is: after a restart the interfaces that are held down
// keep their entries. The flags b1 to b5 are put on record; nothing on this platform acts on them, a cause is never
// cleared by itself.
void ErrdisableCauseGroupInit( Kel::Ptr<Dovra::EntityManager> const & entityManager, Kel::Name const & cause, bool b1,
                               Kel::String8 const & description, bool b2, bool b3, bool b4, bool b5,
                               uint32_t causeGroupType, uint32_t causeGroupPriority, Kel::String8 const & reason );

}  // namespace ErrdisableLib

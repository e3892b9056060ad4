// Links that the service holds down, or was about to: one record per interface, from the moment before it is touched to
// the moment after it was given back.
//
// Written by LinkControl and kept by the store, so that whoever comes after a crash, maintd or an operator with
// "maintctl release", knows exactly which links are to be set up again: those that we took down, and no others.
#pragma once

#include "dovra/EntityManager.h"
#include "kel/Attributes.h"
#include "records/IntfId.h"

namespace Service {

// In the order of a life. Each is on disk before the step that its name announces is made.
enum class HoldState : uint8_t {
   taking = 0,     // about to be taken down, or just taken: found up, so it is ours to set up again
   held = 1,       // taken down by us, and seen to be down
   foundDown = 2,  // down already when it was to be held: whoever did that sets it up again, we never do
   raised = 3,     // taken down by us, and set up by somebody else since: not ours any more
   releasing = 4,  // about to be set up, or just set up
   released = 5,   // given back by an operator while its error-disable entry stays: left alone until that goes
};

constexpr char const * enumName( HoldState s ) {
   switch( s ) {
      case HoldState::taking: return "taking";
      case HoldState::held: return "held";
      case HoldState::foundDown: return "found down";
      case HoldState::raised: return "raised";
      case HoldState::releasing: return "releasing";
      case HoldState::released: return "released";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( HoldState )

class HeldLink final : public Kel::Entity {
   KEL_ENTITY( HeldLink, "Service::HeldLink", Lumo::IntfId, intfId )
   KEL_ATTR_NOTIFY( HoldState, state, onState )
   KEL_ATTR( int32_t, index )         // of the link, in the boot below; it keeps it when it is renamed
   KEL_ATTR( Kel::String8, boot )     // identity of the boot of the machine in which `index` holds
   KEL_ATTR( double, since )          // s, when it was to be held first
   KEL_ATTR( bool, sinceBeforeBoot )  // the machine was started anew since
   KEL_ATTR( int32_t, keepAddrWas )   // keep_addr_on_down before we set it; notOurs when we did not
   KEL_ATTR( Kel::String8, trouble )  // why it is not as it should be, for people; empty when it is
   KEL_ENTITY_END

   static constexpr int32_t notOurs = -1000;
};

class HeldLinkDir final : public Kel::Entity {
   KEL_ENTITY( HeldLinkDir, "Service::HeldLinkDir", Kel::Name, dirName )
   KEL_CHILDREN( HeldLink, Lumo::IntfId, held, onHeld )
   KEL_ENTITY_END
};

// Where they stand in the database: "maintenance/link/held".
inline constexpr char const * heldLinksPath = "maintenance/link/held";
// Made by whoever asks first.
[[nodiscard]] Kel::Ptr<HeldLinkDir> heldLinkDir( Dovra::EntityManager & database );

}  // namespace Service

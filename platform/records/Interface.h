// Interfaces as everyone sees them: operational status and traffic rates.
#pragma once

#include "kel/Attributes.h"
#include "records/IntfId.h"

namespace Interface {

enum class IntfOperStatus : uint8_t { unknown = 0, up = 1, down = 2 };

constexpr char const * enumName( IntfOperStatus s ) {
   switch( s ) {
      case IntfOperStatus::unknown: return "unknown";
      case IntfOperStatus::up: return "up";
      case IntfOperStatus::down: return "down";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( IntfOperStatus )

// One interface. Written by the host; an interface without a record does not exist.
class IntfStatus final : public Kel::Entity {
   KEL_ENTITY( IntfStatus, "Interface::IntfStatus", Lumo::IntfId, intfId )
   KEL_ATTR_NOTIFY( IntfOperStatus, operStatus, onOperStatus )
   KEL_ENTITY_END
};

class AllIntfStatusDir final : public Kel::Entity {
   KEL_ENTITY( AllIntfStatusDir, "Interface::AllIntfStatusDir", Kel::Name, dirName )
   KEL_CHILDREN( IntfStatus, Lumo::IntfId, intfStatus, onIntfStatus )
   KEL_ENTITY_END
};

struct IntfRates {
   KEL_VALUE( IntfRates, "Interface::IntfRates" )
   KEL_FIELD( double, inBitsRate )   // bit/s
   KEL_FIELD( double, outBitsRate )  // bit/s
   KEL_FIELD( double, updateTime )   // s, when they were computed; 0 for never
   KEL_VALUE_END( IntfRates )
};

// The Ethernet interfaces' side of link aggregation. It exists because it is mounted; nobody reads anything in it.
class EthLagIntfConfigDir final : public Kel::Entity {
   KEL_ENTITY( EthLagIntfConfigDir, "Interface::EthLagIntfConfigDir", Kel::Name, dirName )
   KEL_ENTITY_END
};

}  // namespace Interface

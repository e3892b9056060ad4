// Maintenance units: their state, their generation, and what the rate monitor says of them.
#pragma once

#include <string>

#include "kel/Attributes.h"
#include "records/Group.h"
#include "records/IntfId.h"

namespace Maintenance::Unit {

enum class State : uint8_t { unknown = 0, active = 1, entering = 2, inMaintenance = 3, failed = 4, leaving = 5 };

constexpr char const * enumName( State s ) {
   switch( s ) {
      case State::unknown: return "unknown";
      case State::active: return "active";
      case State::entering: return "entering";
      case State::inMaintenance: return "inMaintenance";
      case State::failed: return "failed";
      case State::leaving: return "leaving";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( State )

enum class MaintenanceOp : uint8_t { enter = 1, exit = 2 };

constexpr char const * enumName( MaintenanceOp op ) {
   switch( op ) {
      case MaintenanceOp::enter: return "enter";
      case MaintenanceOp::exit: return "exit";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( MaintenanceOp )

struct TrafficRates {
   KEL_VALUE( TrafficRates, "Maintenance::Unit::TrafficRates" )
   KEL_FIELD( uint64_t, outBitsRate )  // bit/s
   KEL_FIELD( uint64_t, inBitsRate )   // bit/s
   KEL_FIELD( double, updateTime )     // s, when they were computed; 0 for never
   KEL_VALUE_END( TrafficRates )
};

// One unit. State, generation, instances and groups are the stage manager's, the rest is the rate monitor's.
class Status final : public Kel::Entity {
   KEL_ENTITY( Status, "Maintenance::Unit::Status", Kel::String8, unitName )
   KEL_ATTR_NOTIFY( State, state, onState )
   KEL_ATTR( uint32_t, genId )  // of the stage instance that was started last
   KEL_ATTR( Kel::Name, maintEnterInstanceName )
   KEL_ATTR( Kel::Name, maintExitInstanceName )
   KEL_MAP( bool, Group::GroupKey, group, onGroup )
   KEL_PASSING_NOTIFY( TrafficRates, aggTrafficRate, onAggTrafficRate )  // sum over the unit's monitored interfaces
   KEL_SET( Lumo::IntfId, intfsViolatingTrafficThreshold, onIntfsViolatingTrafficThreshold )
   KEL_COUNTER( uint32_t, totalIntfTrafficViolations )  // samples at or above the threshold in maintenance
   KEL_ENTITY_END
};

class StatusDir final : public Kel::Entity {
   KEL_ENTITY( StatusDir, "Maintenance::Unit::StatusDir", Kel::Name, dirName )
   KEL_CHILDREN( Status, Kel::String8, status, onStatus )
   KEL_ENTITY_END
};

// One maintenance generation of one unit. As the name of a stage instance: the unit, "#", the generation in decimal.
class StageMgrInstKey {
 public:
   // Throws Kel::InternalException for what is no such name.
   explicit StageMgrInstKey( Kel::Name const & instanceName ) { parse( instanceName ); }
   StageMgrInstKey( Kel::String8 const & unitName, uint32_t genId ) : unitName_( unitName ), genId_( genId ) {}

   [[nodiscard]] Kel::String8 const & unitName() const { return unitName_; }
   [[nodiscard]] uint32_t genId() const { return genId_; }
   [[nodiscard]] Kel::Name instanceName() const;
   // The first "#" ends the unit's name; what follows the digits of the generation is not looked at. Anything else
   // throws Kel::InternalException and changes nothing.
   void instanceNameIs( Kel::Name const & instanceName );

 private:
   void parse( Kel::Name const & instanceName );

   Kel::String8 unitName_;
   uint32_t genId_ = 0;
};

}  // namespace Maintenance::Unit

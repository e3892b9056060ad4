// Windows: what is kept of each stay of a unit in maintenance, from the request to the end of the exit.
//
// Opened by the stage manager when a unit is asked to enter, closed when it is active again, has failed, or was given
// up; written by the stage manager (who asked, stages, outcome) and by the Ledger (the interfaces). They outlive the
// service: a restart finds what it kept here, above all which stage is under way, what was left out of the proof and
// which links have been seen. The last 100 stay.
//
// Times are seconds on the loop's clock; 0 stands for never.
#pragma once

#include "dovra/EntityManager.h"
#include "evidence/WindowIntf.h"
#include "kel/Attributes.h"
#include "kel/Optional.h"
#include "records/IntfId.h"
#include "records/Unit.h"

namespace Evidence {

enum class Outcome : uint8_t {
   underway = 0,    // the unit is still in it
   completed = 1,   // entered, with every stage done, and left
   deadline = 2,    // entered although a stage had run out of time or failed ("continue"), and left
   rolledBack = 3,  // a stage ran out of time or failed, and the unit was brought back
   failed = 4,      // a hook of the exit failed or ran out of time
   abandoned = 5,   // asked to leave before it had entered, or taken away with the configuration
};

constexpr char const * enumName( Outcome o ) {
   switch( o ) {
      case Outcome::underway: return "underway";
      case Outcome::completed: return "completed";
      case Outcome::deadline: return "deadline";
      case Outcome::rolledBack: return "rolled back";
      case Outcome::failed: return "failed";
      case Outcome::abandoned: return "abandoned";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( Outcome )

enum class StageResult : uint8_t { running = 0, done = 1, timedOut = 2, failed = 3, givenUp = 4 };

constexpr char const * enumName( StageResult r ) {
   switch( r ) {
      case StageResult::running: return "running";
      case StageResult::done: return "done";
      case StageResult::timedOut: return "timed out";
      case StageResult::failed: return "failed";
      case StageResult::givenUp: return "given up";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( StageResult )

// One stage as it went. A stage on "hold" that passes its deadline goes on running, and notes when that was. A hook on
// "hold" that fails is run again, so a stage that runs or is done may have a reason, too: that of the last failure.
struct StageRun {
   KEL_VALUE( StageRun, "Evidence::StageRun" )
   KEL_FIELD( Kel::String8, stage )
   KEL_FIELD( Maintenance::Unit::MaintenanceOp, op )
   KEL_FIELD( double, began )
   KEL_FIELD( double, ended )           // 0 while it runs
   KEL_FIELD( double, deadlinePassed )  // 0: it has not
   KEL_FIELD( StageResult, result )
   KEL_FIELD( Kel::String8, why )  // its hook has failed; empty: it has not
   KEL_VALUE_END( StageRun )
};

// One window. Its key is the instance's name: the unit, "#", the generation of its enter.
class Window final : public Kel::Entity {
   KEL_ENTITY( Window, "Evidence::Window", Kel::Name, windowName )
   KEL_ATTR( Kel::Name, unit )
   KEL_ATTR( uint32_t, generation )       // of the enter
   KEL_ATTR( uint32_t, exitGeneration )   // 0: nobody has asked it to leave
   KEL_ATTR( Kel::String8, requestedBy )  // who asked it to enter
   KEL_ATTR( Kel::String8, exitRequestedBy )
   KEL_ATTR( double, wallClockOffset )  // s to add to a time for Unix time, at the request; 0: the clock is invented
   KEL_ATTR( double, requested )        // when it was asked to enter
   KEL_ATTR( double, entered )          // when it was in maintenance
   KEL_ATTR( double, exitRequested )
   KEL_ATTR( double, ended )
   KEL_ATTR_NOTIFY( Outcome, outcome, onOutcome )
   // In the order in which they were begun; the last may be running.
   KEL_MAP( StageRun, uint32_t, stageRun, onStageRun )
   KEL_CHILDREN( WindowIntf, Lumo::IntfId, intf, onIntf )
   KEL_ENTITY_END
};

class WindowDir final : public Kel::Entity {
   KEL_ENTITY( WindowDir, "Evidence::WindowDir", Kel::Name, dirName )
   KEL_CHILDREN( Window, Kel::Name, window, onWindow )
   KEL_ENTITY_END
};

// Windows stand here in the database; made by whoever asks first.
[[nodiscard]] Kel::Ptr<WindowDir> windowDir( Dovra::EntityManager & database );

}  // namespace Evidence

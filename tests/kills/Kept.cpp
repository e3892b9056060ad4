#include "Kept.h"

#include <array>
#include <string_view>

#include "evidence/Windows.h"
#include "records/Errdisable.h"

namespace Kills {

namespace {

void keepStages( Kept & lines, Maintenance::StageState const & state ) {
   for( auto [instance, progress] : state.progress->progressIteratorConst() ) {
      for( auto [stage, active] : progress->stageIteratorConst() ) {
         lines["stage " + instance.str() + " " + stage.str()] = active ? "active" : "not active";
      }
   }
   for( auto [instance, status] : state.completion->statusIteratorConst() )
      lines["instance " + instance.str()] = "there";
   for( auto [mark, done] : state.agentStatus->completeIteratorConst() ) {
      lines["mark " + mark.text()] = done ? "done" : "not done";
   }
}

void keepWindows( Kept & lines, Dovra::EntityManager & database ) {
   for( auto [name, window] : Evidence::windowDir( database )->windowIteratorConst() ) {
      lines["window " + name.str()] = enumName( window->outcome() );
      std::string runs;
      for( auto [number, run] : window->stageRunIteratorConst() ) {
         runs += run.stage.str() + " " + enumName( run.op ) + " " + enumName( run.result ) + ", ";
      }
      lines["stages of " + name.str()] = runs;
   }
}

// What a step looks like: a line that begins so, and becomes so; with an empty text when it is there in whatever way,
// with none when it goes.
struct Sign {
   std::string_view line;
   char const * becomes;
   Point step;
};
constexpr std::array signs{
   Sign{ "unit ", "entering", Point::unitEntering },
   Sign{ "unit ", "inMaintenance", Point::unitInMaintenance },
   Sign{ "unit ", "leaving", Point::unitLeaving },
   Sign{ "unit ", "active", Point::unitActive },
   Sign{ "stage ", "", Point::stageBegun },
   Sign{ "stage ", nullptr, Point::stageOver },
   Sign{ "mark ", "", Point::stageMarked },
   Sign{ "mark ", nullptr, Point::markTakenBack },
   Sign{ "window ", "underway", Point::windowOpened },
   Sign{ "window ", "completed", Point::windowClosed },
   Sign{ "window ", "deadline", Point::windowClosed },
   Sign{ "window ", "rolled back", Point::windowClosed },
   Sign{ "window ", "abandoned", Point::windowClosed },
   Sign{ "monitored ", "thresholdMonitoring", Point::monitoringBegun },
   Sign{ "monitored ", "passiveMonitoring", Point::linkDrained },
   Sign{ "monitored ", nullptr, Point::monitoringOver },
   Sign{ "entry ", "", Point::entryWritten },
   Sign{ "entry ", nullptr, Point::entryRemoved },
   Sign{ "hold ", "taking", Point::holdTaking },
   Sign{ "hold ", "held", Point::holdHeld },
   Sign{ "hold ", "found down", Point::holdFoundDown },
   Sign{ "hold ", "raised", Point::holdRaised },
   Sign{ "hold ", "releasing", Point::holdReleasing },
   Sign{ "hold ", nullptr, Point::holdOver },
};

// One line that is not as it was; null: it is not there.
PointSet stepsOf( std::string const & line, std::string const * becomes ) {
   PointSet steps = 0;
   for( Sign const & sign : signs ) {
      bool const same = becomes && sign.becomes ? becomes->starts_with( sign.becomes ) : !becomes && !sign.becomes;
      if( line.starts_with( sign.line ) && same ) steps |= setOf( sign.step );
   }
   return steps;
}

}  // namespace

Kept kept( Dovra::EntityManager & database, Maintenance::MaintenanceState const & state ) {
   Kept lines;
   for( auto [name, unit] : state.unitStatus->statusIteratorConst() ) {
      lines["unit " + name.str()] = std::string( enumName( unit->state() ) ) + " " + std::to_string( unit->genId() );
   }
   keepStages( lines, state.enter );
   keepStages( lines, state.exit );
   keepWindows( lines, database );
   for( auto [intf, status] : state.monIntfStatus->monIntfStatusIteratorConst() ) {
      lines["monitored " + std::string( intf.name() )] = enumName( status->state() );
   }
   for( auto [name, entity] : state.errdisableCauses->entityIteratorConst() ) {
      auto const cause = Kel::dynamicPtrCast<Errdisable::CauseStatus const>( entity );
      for( auto [intf, since] : cause->intfStatusIteratorConst() )
         lines["entry " + std::string( intf.name() )] = name.str();
   }
   for( auto [intf, record] : Service::heldLinkDir( database )->heldIteratorConst() ) {
      lines["hold " + std::string( intf.name() )] = enumName( record->state() );
   }
   return lines;
}

PointSet stepsBetween( Kept const & before, Kept const & after ) {
   PointSet steps = 0;
   for( auto const & [line, value] : after ) {
      auto const was = before.find( line );
      if( was == before.end() || was->second != value ) steps |= stepsOf( line, &value );
   }
   for( auto const & [line, value] : before ) {
      if( !after.contains( line ) ) steps |= stepsOf( line, nullptr );
   }
   return steps != 0 ? steps : setOf( Point::samplesAlone );
}

}  // namespace Kills

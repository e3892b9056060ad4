#include "Kept.h"

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
      bool const open = window->outcome() == Evidence::Outcome::underway;
      lines["window " + name.str()] = ( open ? "" : "ended: " ) + std::string( enumName( window->outcome() ) );
      std::string runs;
      for( auto [number, run] : window->stageRunIteratorConst() ) {
         runs += run.stage.str() + " " + enumName( run.op ) + " " + enumName( run.result ) + ", ";
      }
      lines["stages of " + name.str()] = runs;
   }
}

// One line that is not as it was; null: it is not there.
PointSet stepsOf( std::string const & line, std::string const * becomes ) {
   PointSet found = 0;
   for( unsigned step = 0; step < stepCount; ++step ) {
      Sign const & sign = signs[step];
      bool const same = becomes && sign.becomes ? becomes->starts_with( sign.becomes ) : !becomes && !sign.becomes;
      if( line.starts_with( sign.line ) && same ) found |= PointSet{ 1 } << step;
   }
   return found;
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
   PointSet found = 0;
   for( auto const & [line, value] : after ) {
      auto const was = before.find( line );
      if( was == before.end() || was->second != value ) found |= stepsOf( line, &value );
   }
   for( auto const & [line, value] : before ) {
      if( !after.contains( line ) ) found |= stepsOf( line, nullptr );
   }
   return found != 0 ? found : PointSet{ 1 } << ( stepCount - 1 );
}

}  // namespace Kills

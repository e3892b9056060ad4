#include "scenario/Remarks.h"

#include "records/Names.h"
#include "state/MaintenanceState.h"

namespace Sim {

namespace {

using Maintenance::Unit::State;
using Remarks = std::vector<std::string>;

void checkProgress( Maintenance::MaintenanceState const & state, Maintenance::Unit::Status const & unit,
                    Remarks & remarks ) {
   bool const entering = unit.state() == State::entering;
   if( !entering && unit.state() != State::leaving ) return;
   Kel::Name const instance = entering ? unit.maintEnterInstanceName() : unit.maintExitInstanceName();
   auto const & progress = entering ? state.enter.progress : state.exit.progress;
   std::string const stageClass( entering ? Maintenance::enterStageClass : Maintenance::exitStageClass );
   std::string const what = "unit " + unit.unitName().str() + " is " + enumName( unit.state() );
   if( instance.str().empty() ) {
      remarks.push_back( what + " but says under no name of a stage instance: nothing happens for it" );
   } else if( !progress->progress( instance ) ) {
      remarks.push_back( what + " as " + instance.str() + ", of which there is no record in stage/" + stageClass +
                         "/progress: the rate monitor does nothing for it" );
   }
}

void checkInterfaces( Maintenance::MaintenanceState const & state, Maintenance::Unit::Status const & unit,
                      Remarks & remarks ) {
   if( unit.state() != State::entering && unit.state() != State::inMaintenance ) return;
   for( auto const [key, isOf] : unit.groupIteratorConst() ) {
      auto const group = state.groupStatus->status( key.name );
      if( !isOf || !group ) continue;
      for( auto const [intf, present] : group->intfIteratorConst() ) {
         using enum Lumo::IntfKind;
         bool const watched = intf.kind() == ethernet || intf.kind() == portChannel || intf.kind() == vlan;
         if( watched || !present ) continue;
         remarks.push_back( "unit " + unit.unitName().str() + ": " + std::string( intf.name() ) +
                            " has the name of no interface that the rate monitor watches (Ethernet1, Port-Channel1, "
                            "Vlan1), so nobody waits for it" );
      }
   }
}

}  // namespace

Remarks remarks( World & world ) {
   Remarks found;
   if( world.agent().configured() ) return found;
   for( auto const [name, unit] : world.state().unitStatus->statusIteratorConst() ) {
      checkProgress( world.state(), *unit, found );
      checkInterfaces( world.state(), *unit, found );
   }
   return found;
}

}  // namespace Sim

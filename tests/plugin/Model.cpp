#include "Model.h"

#include <gtest/gtest.h>

#include <cmath>

namespace Test {

namespace {

using Interface::IntfOperStatus;
using Maintenance::Profile::ProfileType;
using Maintenance::Unit::State;

std::set<std::string> keys( Kel::Entity const & e, char const * attribute ) {
   auto const texts = e.kelTypeInfo().attribute( attribute )->keys( e );
   return { texts.begin(), texts.end() };
}

// The sets of interfaces of one of the root's directories, by unit.
UnitInterfaces intfSets( Sim::World const & world, char const * directory ) {
   auto const dir = machine( world, { directory } );
   auto const * const units = dir->kelTypeInfo().attribute( "unitIntfInput" );
   UnitInterfaces sets;
   for( auto const & unit : units->keys( *dir ) ) sets[unit] = keys( *units->child( *dir, unit ), "intf" );
   return sets;
}

bool canBeSampled( Lumo::IntfId intf ) {
   return !Lumo::SubIntfId::isSubIntfId( intf ) &&
          ( Lumo::EthIntfId::isEthIntfId( intf ) || Lumo::PortChannelIntfId::isPortChannelIntfId( intf ) ||
            Lumo::VlanIntfId::isVlanIntfId( intf ) );
}

std::set<std::string> shutDown( Sim::World const & world ) {
   auto const cause = world.state().errdisableCauses->entityRef( "maintenance-shutdown" );
   return cause ? keys( *cause, "intfStatus" ) : std::set<std::string>{};
}

bool isUp( Sim::World const & world, Lumo::IntfId intf ) {
   auto const status = world.state().intfStatus->intfStatus( intf );
   if( !status ) return false;
   return status->operStatus() == IntfOperStatus::up || shutDown( world ).contains( std::string( intf.name() ) );
}

// Whom the published records say to be held down: all who are done with draining and whose profile asks for it, however
// many units hold them.
std::set<std::string> shutDownByRecords( Sim::World const & world ) {
   std::set<std::string> held;
   for( auto [intf, record] : world.state().monIntfStatus->monIntfStatusIterator() ) {
      auto const profile = world.state().profiles->config( record->profileName() );
      bool const draining = record->state() == Maintenance::MonIntfState::thresholdMonitoring;
      if( !draining && profile && profile->shutdown() ) held.insert( std::string( intf.name() ) );
   }
   return held;
}

// What the units' own groups say, corrected by what the membership of every single interface says.
UnitInterfaces monitoredFor( Sim::World const & world, std::set<std::string> const & served ) {
   auto const & state = world.state();
   UnitInterfaces sets;
   for( auto const & unitName : served ) {
      sets[unitName];
      auto const unit = state.unitStatus->status( Kel::String8( unitName ) );
      if( !unit ) continue;
      for( auto [group, present] : unit->groupIterator() ) {
         auto const members = state.groupStatus->status( group.name );
         if( group.type != Group::GroupType::intf || !members ) continue;
         for( auto [intf, member] : members->intfIterator() ) {
            if( canBeSampled( intf ) && isUp( world, intf ) ) sets[unitName].insert( std::string( intf.name() ) );
         }
      }
   }
   auto known = keys( *state.intfStatus, "intfStatus" );
   known.merge( keys( *state.intfToGroup, "intfToGroup" ) );
   for( auto const & name : known ) {
      Lumo::IntfId const intf( name );
      auto const member = state.intfToGroup->intfToGroup( intf );
      auto const * const profile = member ? member->selectedProfile( ProfileType::interface ) : nullptr;
      if( !profile || profile->empty() || !isUp( world, intf ) ) {
         for( auto & [unit, intfs] : sets ) intfs.erase( name );
         continue;
      }
      for( auto [group, present] : member->groupIterator() ) {
         auto const units = state.groupToUnit->groupToUnit( group );
         if( !units || !canBeSampled( intf ) ) continue;
         for( auto [unit, inUnit] : units->unitNameIterator() ) {
            if( inUnit && served.contains( unit.str() ) ) sets[unit.str()].insert( name );
         }
      }
   }
   return sets;
}

bool isTakenUp( Sim::World const & world, Maintenance::Unit::Status const & unit ) {
   auto const & instance = unit.maintEnterInstanceName();
   if( unit.state() != State::inMaintenance && unit.state() != State::entering ) return false;
   if( unit.state() == State::entering ) {
      auto const progress = world.state().enter.progress->progress( instance );
      bool const * const active = progress ? progress->stage( Kel::String8( "ratemon" ) ) : nullptr;
      if( !active || !*active ) return false;
   }
   return Maintenance::Unit::StageMgrInstKey( instance ).genId() == unit.genId();
}

struct UnitSum {
   uint64_t in = 0, out = 0;
};

std::map<std::string, UnitSum> sums( Sim::World const & world ) {
   std::map<std::string, UnitSum> result;
   auto const dir = machine( world, { "monIntfDir" } );
   auto const * const samplers = dir->kelTypeInfo().attribute( "monitoredIntf" );
   for( auto const & intf : samplers->keys( *dir ) ) {
      auto const record = world.state().monIntfStatus->monIntfStatus( Lumo::IntfId( intf ) );
      EXPECT_TRUE( record ) << intf << " is sampled and has no record";
      if( !record ) continue;
      for( auto const & unit : keys( *samplers->child( *dir, intf ), "dependentUnit" ) ) {
         result[unit].in += static_cast<uint64_t>( std::llround( record->curRates().inBitsRate ) );
         result[unit].out += static_cast<uint64_t>( std::llround( record->curRates().outBitsRate ) );
      }
   }
   return result;
}

}  // namespace

Kel::Ptr<Kel::Entity const> machine( Sim::World const & world, std::vector<char const *> const & path ) {
   Kel::Ptr<Kel::Entity const> entity = world.pluginDir()->entityRef( "rateMonPlugin" );
   entity = entity->kelTypeInfo().attribute( "rateMonSm" )->referenced( *entity );
   for( char const * const next : path ) entity = entity->kelTypeInfo().attribute( next )->referenced( *entity );
   return entity;
}

UnitInterfaces monitoredNow( Sim::World const & world ) { return intfSets( world, "unitMonIntfInput" ); }
UnitInterfaces drainedNow( Sim::World const & world ) { return intfSets( world, "unitDrainedIntf" ); }

UnitInterfaces monitoredByRecords( Sim::World const & world ) {
   std::set<std::string> served;
   for( auto const & [unit, intfs] : monitoredNow( world ) ) served.insert( unit );
   return monitoredFor( world, served );
}

UnitInterfaces monitoredAfterRestart( Sim::World const & world ) {
   std::set<std::string> served;
   for( auto [name, unit] : world.state().unitStatus->statusIterator() ) {
      if( isTakenUp( world, *unit ) ) served.insert( name.str() );
   }
   return monitoredFor( world, served );
}

void expectInvariants( Sim::World const & world ) {
   auto const & state = world.state();
   auto const rates = sums( world );
   for( auto [name, unit] : state.unitStatus->statusIterator() ) {
      auto const sum = rates.contains( name.str() ) ? rates.at( name.str() ) : UnitSum{};
      EXPECT_EQ( unit->aggTrafficRate().inBitsRate, sum.in ) << name;
      EXPECT_EQ( unit->aggTrafficRate().outBitsRate, sum.out ) << name;
   }
   std::set<std::string> all;
   auto const sets = monitoredNow( world );
   for( auto const & [unit, intfs] : sets ) all.insert( intfs.begin(), intfs.end() );
   for( auto const & [unit, intfs] : drainedNow( world ) ) {
      for( auto const & intf : intfs ) EXPECT_TRUE( sets.at( unit ).contains( intf ) ) << unit << " " << intf;
   }
   EXPECT_EQ( keys( *state.monIntfStatus, "monIntfStatus" ), all );
   EXPECT_EQ( keys( *machine( world, {} ), "intfMon" ), all );
   EXPECT_EQ( shutDown( world ), shutDownByRecords( world ) );
   for( char const * const set : { "monIntfEnterMaint", "monIntfUnderMaint", "monIntfSpikeUnderMaint" } ) {
      for( auto const & intf : keys( *state.monIntfStatus, set ) ) EXPECT_TRUE( all.contains( intf ) ) << set << intf;
   }
   auto const counters = machine( world, { "counters" } );
   EXPECT_EQ( counters->kelTypeInfo().attribute( "numNoNotifyAlreadyNotified" )->print( *counters ), "0" );
}

namespace {

void expectNoReactors( Kel::Entity const & e, std::string const & path ) {
   EXPECT_FALSE( e.hasReactors() ) << path;
   for( auto const & attribute : e.kelTypeInfo().attributes() ) {
      if( attribute->kind() != Kel::AttributeInfo::Kind::children ) continue;
      for( auto const & key : attribute->keys( e ) )
         expectNoReactors( *attribute->child( e, key ), path + "/" + attribute->name() + "/" + key );
   }
}

}  // namespace

void expectNothingLeftBehind( Sim::World const & world ) {
   for( auto const & path : world.database()->paths() ) expectNoReactors( *world.database()->getEntity( path ), path );
}

}  // namespace Test

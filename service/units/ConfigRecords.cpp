#include "units/ConfigRecords.h"

#include <algorithm>

namespace Service {

using Group::GroupKey;
using Group::GroupType;
using Maintenance::Profile::defaultProfileName;
using Maintenance::Profile::ProfileType;
using Maintenance::Unit::State;

namespace {

GroupKey intfGroup( std::string const & name ) { return { GroupType::intf, Kel::String8( name ) }; }

void writeProfile( IntfMaintenanceProfile::ConfigDir & dir, Kel::String8 const & name,
                   Config::Profile const & profile ) {
   Kel::Ptr<IntfMaintenanceProfile::Config> record = dir.config( name );
   bool const added = !record;
   if( added ) record = new IntfMaintenanceProfile::Config( name );
   record->rateMonThresholdInKbpsIs( profile.thresholdKbps );
   record->sampleIntervalIs( profile.sampleIntervalSeconds );
   record->rateMonLoadIntervalIs( profile.loadIntervalSeconds );
   record->shutdownMaxDelayIs( profile.maxDelaySeconds );
   // Last, because it is the only one of these that notifies: whoever hears of it reads the others.
   record->shutdownIs( profile.shutdown );
   if( added ) dir.configIs( record );
}

bool contains( std::vector<std::string> const & names, std::string const & name ) {
   return std::find( names.begin(), names.end(), name ) != names.end();
}

}  // namespace

ConfigRecords::ConfigRecords( Maintenance::MaintenanceState & state, Config::Config const & config )
   : state_( state ), config_( config ) {
   // First the interfaces, which gives each name its kind before a record bears it; then what is referred to before
   // what refers to it.
   collectInterfaces();
   writeProfiles();
   writeGroups();
   writeUnits();
   selectProfiles();
}

void ConfigRecords::collectInterfaces() {
   for( Config::Group const & g : config_.groups ) {
      for( std::string const & name : g.interfaces ) {
         auto const intf = Lumo::IntfId::declare( name, Lumo::IntfKind::ethernet );
         if( std::find( interfaces_.begin(), interfaces_.end(), intf ) == interfaces_.end() )
            interfaces_.push_back( intf );
      }
   }
}

// The default profile stands under its own name and under the reserved one, to which an interface falls back when the
// profile selected for it is not there.
void ConfigRecords::writeProfiles() {
   for( Config::Profile const & profile : config_.profiles ) {
      writeProfile( *state_.profiles, profile.name, profile );
      if( profile.name == config_.defaultProfile ) writeProfile( *state_.profiles, defaultProfileName(), profile );
   }
   state_.defaultProfile->profileNameIs( config_.defaultProfile );
}

void ConfigRecords::writeGroups() {
   for( Config::Group const & g : config_.groups ) {
      state_.groupConfig->configIs( Kel::String8( g.name ) );
      auto const status = state_.groupStatus->statusIs( Kel::String8( g.name ) );
      for( std::string const & name : g.interfaces ) {
         Lumo::IntfId const intf( name );
         status->intfIs( intf, true );
         // An interface in several groups has one record, made for the first of them.
         state_.intfToGroup->intfToGroupIs( intf )->groupIs( intfGroup( g.name ), true );
      }
   }
}

void ConfigRecords::writeUnits() {
   for( Config::Unit const & unit : config_.units ) {
      auto const record =
         Kel::Ptr<Maintenance::Unit::Status>( new Maintenance::Unit::Status( Kel::String8( unit.name ) ) );
      // The state before the record is inserted and the groups after: a handler of the insertion sees a unit that has a
      // state, and then hears of its groups one by one.
      record->stateIs( State::active );
      state_.unitStatus->statusIs( record );
      for( std::string const & groupName : unit.groups ) {
         record->groupIs( intfGroup( groupName ), true );
         state_.groupToUnit->groupToUnitIs( intfGroup( groupName ) )->unitNameIs( Kel::Name( unit.name ), true );
      }
   }
}

std::vector<Lumo::IntfId> ConfigRecords::interfacesOf( std::string const & unitName ) const {
   std::vector<Lumo::IntfId> found;
   for( Config::Unit const & unit : config_.units ) {
      if( unit.name != unitName ) continue;
      for( std::string const & groupName : unit.groups ) {
         for( std::string const & name : group( groupName )->interfaces ) {
            Lumo::IntfId const intf( name );
            if( std::find( found.begin(), found.end(), intf ) == found.end() ) found.push_back( intf );
         }
      }
   }
   return found;
}

std::vector<std::string> ConfigRecords::unitsOf( Lumo::IntfId intf ) const {
   std::vector<std::string> found;
   for( Config::Unit const & unit : config_.units ) {
      auto const has = [&]( std::string const & groupName ) {
         return contains( group( groupName )->interfaces, std::string( intf.name() ) );
      };
      if( std::any_of( unit.groups.begin(), unit.groups.end(), has ) ) found.push_back( unit.name );
   }
   return found;
}

Config::Group const * ConfigRecords::group( std::string const & name ) const {
   auto const found = std::find_if( config_.groups.begin(), config_.groups.end(),
                                    [&]( Config::Group const & g ) { return g.name == name; } );
   return &*found;  // a configuration that holds names no group that it does not have
}

void ConfigRecords::selectProfiles() {
   for( Lumo::IntfId const intf : interfaces_ ) {
      auto const member = state_.intfToGroup->intfToGroupIs( intf );
      Maintenance::Profile::ProfileKey const selected{ selectedProfile( intf ) };
      auto const * const present = member->selectedProfile( ProfileType::interface );
      // Left alone, or the cause would be that of a selection which did not take place.
      if( present && *present == selected ) continue;
      // The cause before the selection, which notifies while the cause does not. The plug-in acts on a change by
      // precedence only, and what is selected first changes nothing.
      member->profileChangeCauseIs( present ? Maintenance::ProfileChangeCause::precedence
                                            : Maintenance::ProfileChangeCause::configuration );
      member->selectedProfileIs( ProfileType::interface, selected );
   }
}

Kel::String8 ConfigRecords::selectedProfile( Lumo::IntfId intf ) const {
   for( Config::Unit const * unit : unitsByPrecedence() ) {
      for( std::string const & groupName : unit->groups ) {
         Config::Group const & g = *group( groupName );
         if( g.profile && contains( g.interfaces, std::string( intf.name() ) ) ) return Kel::String8( *g.profile );
      }
   }
   return defaultProfileName();
}

std::vector<Config::Unit const *> ConfigRecords::unitsByPrecedence() const {
   std::vector<Config::Unit const *> units;
   for( Config::Unit const & unit : config_.units ) units.push_back( &unit );
   // Stable: among those of either kind the order of the configuration decides.
   std::stable_partition( units.begin(), units.end(), [&]( Config::Unit const * unit ) {
      auto const record = state_.unitStatus->status( Kel::String8( unit->name ) );
      return record && ( record->state() == State::entering || record->state() == State::inMaintenance );
   } );
   return units;
}

}  // namespace Service

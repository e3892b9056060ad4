#include "units/ConfigRecords.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace Service {

using Group::GroupKey;
using Group::GroupType;
using Maintenance::Profile::defaultProfileName;
using Maintenance::Profile::ProfileType;
using Maintenance::Unit::State;

namespace {

GroupKey intfGroup( Kel::String8 const & name ) { return { GroupType::intf, name }; }

void writeProfile( IntfMaintenanceProfile::ConfigDir & dir, Kel::String8 const & name,
                   Config::Profile const & profile ) {
   Kel::Ptr<IntfMaintenanceProfile::Config> record = dir.config( name );
   bool const added = !record;
   if( added ) record = new IntfMaintenanceProfile::Config( name );
   record->rateMonThresholdInKbpsIs( profile.thresholdKbps );
   record->sampleIntervalIs( profile.sampleIntervalSeconds );
   record->rateMonLoadIntervalIs( profile.loadIntervalSeconds );
   // Without shutdown it means nothing, and a number in it would look as if it did.
   record->shutdownMaxDelayIs( profile.shutdown ? profile.maxDelaySeconds.value_or( noMaxDelay ) : 0 );
   // Last, because it is the only one of these that notifies: whoever hears of it reads the others.
   record->shutdownIs( profile.shutdown );
   if( added ) dir.configIs( record );
}

}  // namespace

// Groups and units as their records should be, private copies included. The vectors have the order of the
// configuration, in which records are written.
struct ConfigRecords::Wanted {
   struct Group {
      Kel::String8 name;
      std::vector<Lumo::IntfId> intfs;
      std::vector<Kel::Name> units;
   };
   struct Unit {
      Kel::Name name;
      std::vector<Kel::String8> groups;
   };
   std::vector<Group> groups;
   std::vector<Unit> units;

   // The same, for asking.
   std::unordered_map<GroupKey, std::unordered_set<Lumo::IntfId>> groupHas;
   std::unordered_map<GroupKey, std::unordered_set<Kel::Name>> groupIsOf;  // only groups that are in units
   std::unordered_set<Kel::Name> unitNames;

   void add( Group group ) {
      GroupKey const key = intfGroup( group.name );
      groupHas[key].insert( group.intfs.begin(), group.intfs.end() );
      if( !group.units.empty() ) groupIsOf[key].insert( group.units.begin(), group.units.end() );
      groups.push_back( std::move( group ) );
   }
   void add( Unit unit ) {
      unitNames.insert( unit.name );
      units.push_back( std::move( unit ) );
   }
   [[nodiscard]] bool has( GroupKey const & group, Lumo::IntfId intf ) const {
      auto const found = groupHas.find( group );
      return found != groupHas.end() && found->second.contains( intf );
   }
   [[nodiscard]] bool isOf( GroupKey const & group, Kel::Name const & unit ) const {
      auto const found = groupIsOf.find( group );
      return found != groupIsOf.end() && found->second.contains( unit );
   }
};

ConfigRecords::ConfigRecords( Maintenance::MaintenanceState & state, Config::Config config )
   : state_( state ), config_( std::move( config ) ) {
   configHasChanged();
}

void ConfigRecords::configIs( Config::Config config ) {
   config_ = std::move( config );
   configHasChanged();
}

void ConfigRecords::configHasChanged() {
   // First the interfaces, which gives each name its kind before a record bears it.
   collectInterfaces();
   collectUnits();
   auto const before = std::exchange( leftOut_, {} );
   for( auto const & [unit, intfs] : before ) keepLeftOut( unit, intfs );
   bringIntoStep();
}

void ConfigRecords::collectInterfaces() {
   interfaces_.clear();
   inGroups_.clear();
   together_.assign( 1, {} );
   groupIntfs_.assign( config_.groups.size(), {} );
   for( std::size_t g = 0; g < config_.groups.size(); ++g ) {
      std::unordered_map<uint32_t, uint32_t> withThis;  // places in together_, without this group and with it
      for( std::string const & name : config_.groups[g].interfaces ) {
         Lumo::IntfId const intf = named( name );
         groupIntfs_[g].push_back( intf );
         auto const [member, isNew] = inGroups_.try_emplace( intf );
         if( isNew ) interfaces_.push_back( intf );
         auto const [with, isFirst] = withThis.try_emplace( member->second, static_cast<uint32_t>( together_.size() ) );
         if( isFirst ) {
            Places groups = together_[member->second];
            groups.push_back( g );
            together_.push_back( std::move( groups ) );
         }
         member->second = with->second;
      }
   }
}

// A name that says no kind is taken for that of an Ethernet interface, which most are, as long as there is no link that
// says what it is.
Lumo::IntfId ConfigRecords::named( std::string const & name ) const {
   Lumo::IntfId const intf( name );
   bool const unknown = intf.kind() == Lumo::IntfKind::other && !state_.intfStatus->intfStatus( intf );
   return unknown ? Lumo::IntfId::declare( name, Lumo::IntfKind::ethernet ) : intf;
}

void ConfigRecords::collectUnits() {
   std::unordered_map<std::string, std::size_t> placeOf;
   for( std::size_t g = 0; g < config_.groups.size(); ++g ) placeOf.emplace( config_.groups[g].name, g );
   unitIntfs_.clear();
   groupUnits_.assign( config_.groups.size(), {} );
   unitGroups_.assign( config_.units.size(), {} );
   for( std::size_t u = 0; u < config_.units.size(); ++u ) {
      Config::Unit const & unit = config_.units[u];
      auto & intfs = unitIntfs_[unit.name];
      std::unordered_set<Lumo::IntfId> collected;
      for( std::string const & groupName : unit.groups ) {
         std::size_t const g = placeOf.at( groupName );  // a configuration that holds names no other
         unitGroups_[u].push_back( g );
         groupUnits_[g].push_back( u );
         for( Lumo::IntfId const intf : groupIntfs_[g] ) {
            if( collected.insert( intf ).second ) intfs.push_back( intf );
         }
      }
   }
}

std::vector<Lumo::IntfId> ConfigRecords::interfacesOf( std::string const & unit ) const {
   auto const found = unitIntfs_.find( unit );
   return found == unitIntfs_.end() ? std::vector<Lumo::IntfId>() : found->second;
}

std::vector<std::string> ConfigRecords::unitsOf( Lumo::IntfId intf ) const {
   std::set<std::size_t> places;
   for( std::size_t const group : groupsOf( intf ) )
      places.insert( groupUnits_[group].begin(), groupUnits_[group].end() );
   std::vector<std::string> units;
   for( std::size_t const unit : places ) units.push_back( config_.units[unit].name );
   return units;
}

ConfigRecords::Places const & ConfigRecords::groupsOf( Lumo::IntfId intf ) const {
   auto const found = inGroups_.find( intf );
   return together_[found == inGroups_.end() ? 0 : found->second];
}

void ConfigRecords::leftOutIs( std::string const & unit, std::set<Lumo::IntfId> const & intfs ) {
   leftOut_.erase( unit );
   keepLeftOut( unit, intfs );
   bringIntoStep();
}

void ConfigRecords::keepLeftOut( std::string const & unit, std::set<Lumo::IntfId> const & intfs ) {
   for( Lumo::IntfId const intf : interfacesOf( unit ) ) {
      if( intfs.contains( intf ) ) leftOut_[unit].insert( intf );
   }
}

bool ConfigRecords::isLeftOut( std::string const & unit, Lumo::IntfId intf ) const {
   auto const found = leftOut_.find( unit );
   return found != leftOut_.end() && found->second.contains( intf );
}

// Bringing the records into step

// What is new is written from what is referred to up to what refers to it, and what is gone removed the other way
// round. Units lose groups before groups lose interfaces: with each step somebody may look who is still a member, and a
// group whose unit is gone from the mapping has its interfaces until then.
void ConfigRecords::bringIntoStep() {
   Wanted const now = wanted();
   writeProfiles();
   // Before the groups, so that nobody finds a new member without a profile, and after the profiles of which it speaks.
   selectProfiles();
   writeGroups( now );
   writeUnits( now );
   removeInstances( now );
   removeMappings( now );
   removeMembers( now );
   removeGroups( now );
   removeProfiles();
}

bool ConfigRecords::withoutSome( Config::Unit const & unit, std::size_t group ) const {
   return std::ranges::any_of( groupIntfs_[group], [&]( Lumo::IntfId intf ) { return isLeftOut( unit.name, intf ); } );
}

ConfigRecords::Wanted ConfigRecords::wanted() const {
   Wanted all;
   for( std::size_t g = 0; g < config_.groups.size(); ++g ) {
      Wanted::Group group = { config_.groups[g].name, groupIntfs_[g], {} };
      for( std::size_t const u : groupUnits_[g] ) {
         Config::Unit const & unit = config_.units[u];
         if( !withoutSome( unit, g ) ) group.units.emplace_back( unit.name );
      }
      all.add( std::move( group ) );
   }
   for( std::size_t u = 0; u < config_.units.size(); ++u ) {
      Config::Unit const & unit = config_.units[u];
      Wanted::Unit record = { unit.name, {} };
      for( std::size_t const g : unitGroups_[u] ) {
         std::string const & name = config_.groups[g].name;
         if( !withoutSome( unit, g ) ) {
            record.groups.emplace_back( name );
            continue;
         }
         Wanted::Group copy = { name + "/" + unit.name, groupIntfs_[g], { unit.name } };
         std::erase_if( copy.intfs, [&]( Lumo::IntfId intf ) { return isLeftOut( unit.name, intf ); } );
         record.groups.push_back( copy.name );
         all.add( std::move( copy ) );
      }
      all.add( std::move( record ) );
   }
   return all;
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

void ConfigRecords::writeGroups( Wanted const & wanted ) {
   for( Wanted::Group const & group : wanted.groups ) {
      state_.groupConfig->configIs( group.name );
      auto const status = state_.groupStatus->statusIs( group.name );
      for( Lumo::IntfId const intf : group.intfs ) {
         status->intfIs( intf, true );
         state_.intfToGroup->intfToGroupIs( intf )->groupIs( intfGroup( group.name ), true );
      }
   }
}

void ConfigRecords::writeUnits( Wanted const & wanted ) {
   for( Wanted::Unit const & unit : wanted.units ) {
      Kel::Ptr<Maintenance::Unit::Status> record = state_.unitStatus->status( unit.name );
      if( !record ) {
         // The state before the record is inserted and the groups after: a handler of the insertion sees a unit that
         // has a state, and then hears of its groups one by one.
         record = new Maintenance::Unit::Status( unit.name );
         record->stateIs( State::active );
         state_.unitStatus->statusIs( record );
      }
      for( Kel::String8 const & group : unit.groups ) {
         record->groupIs( intfGroup( group ), true );
         state_.groupToUnit->groupToUnitIs( intfGroup( group ) )->unitNameIs( unit.name, true );
      }
   }
}

// With the instances of its stages, which without the unit would be under way for ever.
void ConfigRecords::removeInstances( Wanted const & wanted ) {
   for( auto [name, unit] : state_.unitStatus->statusIterator() ) {
      if( wanted.unitNames.contains( name ) ) continue;
      state_.enter.progress->progressDel( unit->maintEnterInstanceName() );
      state_.enter.completion->statusDel( unit->maintEnterInstanceName() );
      state_.exit.progress->progressDel( unit->maintExitInstanceName() );
      state_.exit.completion->statusDel( unit->maintExitInstanceName() );
   }
}

void ConfigRecords::removeMappings( Wanted const & wanted ) {
   for( auto [group, mapping] : state_.groupToUnit->groupToUnitIterator() ) {
      for( auto [unit, present] : mapping->unitNameIterator() ) {
         if( !wanted.isOf( group, unit ) ) mapping->unitNameDel( unit );
      }
      // Last: that a mapping is gone tells nobody which units it had.
      if( !wanted.groupIsOf.contains( group ) ) state_.groupToUnit->groupToUnitDel( group );
   }
   for( auto [name, unit] : state_.unitStatus->statusIterator() ) {
      for( auto [group, present] : unit->groupIterator() ) {
         if( !wanted.isOf( group, name ) ) unit->groupDel( group );
      }
      if( !wanted.unitNames.contains( name ) ) state_.unitStatus->statusDel( name );
   }
}

void ConfigRecords::removeMembers( Wanted const & wanted ) {
   for( auto [intf, member] : state_.intfToGroup->intfToGroupIterator() ) {
      for( auto [group, present] : member->groupIterator() ) {
         if( !wanted.has( group, intf ) ) member->groupDel( group );
      }
      if( !inGroups_.contains( intf ) ) state_.intfToGroup->intfToGroupDel( intf );
   }
}

void ConfigRecords::removeGroups( Wanted const & wanted ) {
   for( auto [name, status] : state_.groupStatus->statusIterator() ) {
      GroupKey const group = intfGroup( name );
      for( auto [intf, present] : status->intfIterator() ) {
         if( !wanted.has( group, intf ) ) status->intfDel( intf );
      }
      if( !wanted.groupHas.contains( group ) ) state_.groupStatus->statusDel( name );
   }
   for( auto [name, config] : state_.groupConfig->configIterator() ) {
      if( !wanted.groupHas.contains( intfGroup( name ) ) ) state_.groupConfig->configDel( name );
   }
}

void ConfigRecords::removeProfiles() {
   std::unordered_set<Kel::String8> names{ defaultProfileName() };
   for( Config::Profile const & profile : config_.profiles ) names.insert( profile.name );
   for( auto [name, profile] : state_.profiles->configIterator() ) {
      if( !names.contains( name ) ) state_.profiles->configDel( name );
   }
}

// Selecting profiles

void ConfigRecords::selectProfiles() {
   auto const underWay = unitsUnderWay();
   for( Lumo::IntfId const intf : interfaces_ ) {
      auto const member = state_.intfToGroup->intfToGroupIs( intf );
      Maintenance::Profile::ProfileKey const selected{ selectedProfile( intf, underWay ) };
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

Kel::String8 ConfigRecords::selectedProfile( Lumo::IntfId intf, std::vector<bool> const & underWay,
                                             std::optional<std::size_t> entering ) const {
   auto const precedes = [&]( std::size_t group ) {
      return std::ranges::any_of( groupUnits_[group], [&]( std::size_t unit ) {
         return unit == entering || ( underWay[unit] && !isLeftOut( config_.units[unit].name, intf ) );
      } );
   };
   std::string const * first = nullptr;
   for( std::size_t const group : groupsOf( intf ) ) {
      auto const & profile = config_.groups[group].profile;
      if( !profile ) continue;
      if( precedes( group ) ) return *profile;
      if( !first ) first = &*profile;
   }
   return first ? Kel::String8( *first ) : defaultProfileName();
}

std::vector<Lumo::IntfId> ConfigRecords::shutBy( std::string const & unit,
                                                 std::set<Lumo::IntfId> const & without ) const {
   auto const configured = std::ranges::find( config_.units, unit, &Config::Unit::name );
   if( configured == config_.units.end() ) return {};
   auto const place = static_cast<std::size_t>( configured - config_.units.begin() );
   auto const underWay = unitsUnderWay();
   std::vector<Lumo::IntfId> shut;
   for( Lumo::IntfId const intf : interfacesOf( unit ) ) {
      if( without.contains( intf ) ) continue;
      std::string name = selectedProfile( intf, underWay, place ).str();
      if( name == defaultProfileName().view() ) name = config_.defaultProfile;
      auto const profile = std::ranges::find( config_.profiles, name, &Config::Profile::name );
      if( profile != config_.profiles.end() && profile->shutdown ) shut.push_back( intf );
   }
   return shut;
}

std::vector<bool> ConfigRecords::unitsUnderWay() const {
   std::vector<bool> underWay;
   for( Config::Unit const & unit : config_.units ) {
      auto const record = state_.unitStatus->status( unit.name );
      underWay.push_back( record && ( record->state() == State::entering || record->state() == State::inMaintenance ) );
   }
   return underWay;
}

}  // namespace Service

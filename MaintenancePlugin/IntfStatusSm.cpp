// The tracker's watching: what each change of status, group or unit means for an interface. Its work is in IntfStatusSmBacklog.cpp.
#include "IntfStatusSm.h"

#include "RateMonSm.h"
#include "RateMonTrace.h"

KEL_TYPE( MaintenanceMode::IntfStatusSm )

namespace MaintenanceMode {

using Maintenance::ProfileChangeCause;
using Maintenance::Profile::ProfileType;

// Reactors on one record

class IntfStatusSm::KelIntfStatus final : public Interface::IntfStatus::NotifieeConst {
 public:
   KelIntfStatus( IntfStatusSm & owner, Kel::Ptr<Interface::IntfStatus const> const & record )
      : Reactor( owner ), owner_( owner ), intfId_( record->intfId() ) {
      notifierIs( record );
      handleInitialized();
   }
   void onOperStatus() override { handleIntfOperStatus(); }
   void handleIntfStatusDel() {
      TRACE( 9, "intf " << intfId_ );
      owner_.addToBacklog( intfId_ );
   }

 private:
   void handleInitialized() {
      KEL_ASSERT_TEXT( !initialized_, "!initialized()" );
      TRACE( 9, "intf " << intfId_ );
      owner_.addToBacklog( intfId_ );
      initialized_ = true;
   }
   void handleIntfOperStatus() {
      TRACE( 9, "intf " << intfId_ );
      owner_.addToBacklog( intfId_ );
   }

   IntfStatusSm & owner_;
   Lumo::IntfId const intfId_;
   bool initialized_ = false;
};

class IntfStatusSm::KelIntfToGroup final : public IntfMaintenance::IntfToGroup::NotifieeConst {
 public:
   KelIntfToGroup( IntfStatusSm & owner, Kel::Ptr<IntfMaintenance::IntfToGroup const> const & record )
      : Reactor( owner ), owner_( owner ), intfId_( record->intfId() ) {
      notifierIs( record );
      handleInitialized();
   }
   void onGroup( Group::GroupKey groupKey ) override { handleIntfToGroupMembershipChange( groupKey ); }
   void onSelectedProfile( ProfileType profileType ) override { handleSelectedProfile( profileType ); }
   void handleIntfToGroupDel() {
      TRACE( 9, "intf " << intfId_ );
      owner_.addToBacklog( intfId_ );
   }

 private:
   void handleInitialized() {
      KEL_ASSERT_TEXT( !initialized_, "!initialized()" );
      TRACE( 9, "intf " << intfId_ );
      owner_.addToBacklog( intfId_ );
      initialized_ = true;
   }
   void handleIntfToGroupMembershipChange( Group::GroupKey const & groupKey );
   void handleSelectedProfile( ProfileType profileType );

   IntfStatusSm & owner_;
   Lumo::IntfId const intfId_;
   bool initialized_ = false;
};

class IntfStatusSm::KelGroupToUnit final : public Maintenance::GroupToUnit::NotifieeConst {
 public:
   KelGroupToUnit( IntfStatusSm & owner, Kel::Ptr<Maintenance::GroupToUnit const> const & record )
      : Reactor( owner ), owner_( owner ) {
      notifierIs( record );
   }
   void onUnitName( Kel::Name unitName ) override { handleGroupToUnitMembershipChange( unitName ); }
   void onUnitNamekelImmediate() override {
      for( auto [unitName, present] : notifier()->unitNameIteratorConst() ) {
         if( present ) handleGroupToUnitMembershipChange( unitName );
      }
   }

 private:
   void handleGroupToUnitMembershipChange( Kel::Name const & unitName );
   void handleGroupLeft( Kel::Name const & unitName, Kel::Ptr<IntfGroup::Status const> const & members );

   IntfStatusSm & owner_;
};

// Reactors on the directories: a reactor on each record, for as long as it is there

namespace {

// The keys of those reactors whose record the directory does not have.
template<class Reactors, class Present>
auto keysWithoutRecord( Reactors const & reactors, Present const & present ) {
   std::vector<typename Reactors::key_type> keys;
   for( auto const & [key, reactor] : reactors ) {
      if( !present( key ) ) keys.push_back( key );
   }
   return keys;
}

}  // namespace

class IntfStatusSm::KelAllIntfStatusDir final : public Interface::AllIntfStatusDir::NotifieeConst {
 public:
   explicit KelAllIntfStatusDir( IntfStatusSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.allIntfStatusDir() );
   }
   void onIntfStatus( Lumo::IntfId intfId ) override {
      if( auto const record = notifier()->intfStatus( intfId ) ) {
         owner_.intfStatusIs( record );
      } else {
         owner_.intfStatusDel( intfId );
      }
   }
   void onIntfStatuskelImmediate() override {
      for( auto [intfId, record] : notifier()->intfStatusIteratorConst() ) owner_.intfStatusIs( record );
      auto const present = [this]( auto const & key ) { return notifier()->intfStatus( key ) != nullptr; };
      for( auto const & key : keysWithoutRecord( owner_.intfStatus_, present ) ) owner_.intfStatusDel( key );
   }

 private:
   IntfStatusSm & owner_;
};

class IntfStatusSm::KelIntfToGroupDir final : public IntfMaintenance::IntfToGroupDir::NotifieeConst {
 public:
   explicit KelIntfToGroupDir( IntfStatusSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.intfToGroupDir() );
   }
   void onIntfToGroup( Lumo::IntfId intfId ) override {
      if( auto const record = notifier()->intfToGroup( intfId ) ) {
         owner_.intfToGroupIs( record );
      } else {
         owner_.intfToGroupDel( intfId );
      }
   }
   void onIntfToGroupkelImmediate() override {
      for( auto [intfId, record] : notifier()->intfToGroupIteratorConst() ) owner_.intfToGroupIs( record );
      auto const present = [this]( auto const & key ) { return notifier()->intfToGroup( key ) != nullptr; };
      for( auto const & key : keysWithoutRecord( owner_.intfToGroup_, present ) ) owner_.intfToGroupDel( key );
   }

 private:
   IntfStatusSm & owner_;
};

class IntfStatusSm::KelGroupToUnitDir final : public Maintenance::GroupToUnitDir::NotifieeConst {
 public:
   explicit KelGroupToUnitDir( IntfStatusSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.groupToUnitDir() );
   }
   void onGroupToUnit( Group::GroupKey groupKey ) override {
      if( auto const record = notifier()->groupToUnit( groupKey ) ) {
         owner_.groupToUnitIs( record );
      } else {
         owner_.groupToUnitDel( groupKey );
      }
   }
   void onGroupToUnitkelImmediate() override {
      for( auto [groupKey, record] : notifier()->groupToUnitIteratorConst() ) owner_.groupToUnitIs( record );
      auto const present = [this]( auto const & key ) { return notifier()->groupToUnit( key ) != nullptr; };
      for( auto const & key : keysWithoutRecord( owner_.groupToUnit_, present ) ) owner_.groupToUnitDel( key );
   }

 private:
   IntfStatusSm & owner_;
};

// Construction and teardown

Kel::Ptr<IntfStatusSm> IntfStatusSm::IntfStatusSmIs(
   Kel::Ptr<Kel::Clock> const & clock, Kel::Ptr<Interface::AllIntfStatusDir const> const & allIntfStatusDir,
   Kel::Ptr<IntfMaintenance::IntfToGroupDir const> const & intfToGroupDir,
   Kel::Ptr<Maintenance::GroupToUnitDir const> const & groupToUnitDir,
   Kel::Ptr<UnitIntfInputDir> const & unitMonIntfInput, Kel::Ptr<IntfGroup::StatusDir const> const & intfGroupStatusDir,
   RateMonSm * rootSm ) {
   auto const made = Kel::validPtr( new IntfStatusSm( clock, allIntfStatusDir, intfToGroupDir, groupToUnitDir,
                                                      unitMonIntfInput, intfGroupStatusDir, rootSm ) );
   made->hasNotificationActiveIs( true );
   return made;
}

IntfStatusSm::IntfStatusSm( Kel::Ptr<Kel::Clock> const & clock,
                            Kel::Ptr<Interface::AllIntfStatusDir const> const & statuses,
                            Kel::Ptr<IntfMaintenance::IntfToGroupDir const> const & groups,
                            Kel::Ptr<Maintenance::GroupToUnitDir const> const & units,
                            Kel::Ptr<UnitIntfInputDir> const & monitored,
                            Kel::Ptr<IntfGroup::StatusDir const> const & members, RateMonSm * root )
   : CodefBase( clock ),
     smName_( "intfStatusSm" ),
     allIntfStatusDir_( statuses ),
     intfToGroupDir_( groups ),
     groupToUnitDir_( units ),
     unitMonIntfInput_( monitored ),
     intfGroupStatusDir_( members ),
     rootSm_( root ) {
   hasNotificationActiveIs( false );
   allIntfStatusDirReactor_ = std::make_unique<KelAllIntfStatusDir>( *this );
   intfToGroupDirReactor_ = std::make_unique<KelIntfToGroupDir>( *this );
   groupToUnitDirReactor_ = std::make_unique<KelGroupToUnitDir>( *this );
   if( statuses ) allIntfStatusDirReactor_->onIntfStatuskelImmediate();
   if( groups ) intfToGroupDirReactor_->onIntfToGroupkelImmediate();
   if( units ) groupToUnitDirReactor_->onGroupToUnitkelImmediate();
   handleInitialized();
}

IntfStatusSm::~IntfStatusSm() = default;

void IntfStatusSm::handleInitialized() {
   KEL_ASSERT( !initialized() );
   TRACE( 5, "called" );
   initializedIs( true );
}

void IntfStatusSm::prepareToDie() {
   kelDoZombieReactors( true );
   allIntfStatusDirReactor_->notifierIs( nullptr );
   intfToGroupDirReactor_->notifierIs( nullptr );
   groupToUnitDirReactor_->notifierIs( nullptr );
   groupToUnit_.clear();
   intfToGroup_.clear();
   intfStatus_.clear();
   CodefBase::prepareToDie();
}

namespace {

[[noreturn]] void refuseNull( std::string const & attribute ) {
   throw Kel::RangeError( "null _" + attribute +
                          " parameter to mutator for MaintenanceMode::IntfStatusSm::" + attribute + " not allowed\"" );
}

// A reactor on this very record; one on a former record of the same key goes.
template<class Reactors, class Record>
void watch( Reactors & reactors, auto const & key, Record const & record, IntfStatusSm & owner ) {
   auto & reactor = reactors[key];
   if( reactor && reactor->notifier() == record ) return;
   reactor = nullptr;
   reactor = std::make_unique<typename Reactors::mapped_type::element_type>( owner, record );
}

}  // namespace

void IntfStatusSm::intfStatusIs( Kel::Ptr<Interface::IntfStatus const> const & record ) {
   if( !record ) refuseNull( "intfStatus" );
   watch( intfStatus_, record->intfId(), record, *this );
}

void IntfStatusSm::intfStatusDel( Lumo::IntfId intfId ) {
   if( auto const reactor = intfStatus_.extract( intfId ) ) reactor.mapped()->handleIntfStatusDel();
}

void IntfStatusSm::intfToGroupIs( Kel::Ptr<IntfMaintenance::IntfToGroup const> const & record ) {
   if( !record ) refuseNull( "intfToGroup" );
   watch( intfToGroup_, record->intfId(), record, *this );
}

void IntfStatusSm::intfToGroupDel( Lumo::IntfId intfId ) {
   if( auto const reactor = intfToGroup_.extract( intfId ) ) reactor.mapped()->handleIntfToGroupDel();
}

void IntfStatusSm::groupToUnitIs( Kel::Ptr<Maintenance::GroupToUnit const> const & record ) {
   if( !record ) refuseNull( "groupToUnit" );
   watch( groupToUnit_, record->groupKey(), record, *this );
}

void IntfStatusSm::groupToUnitDel( Group::GroupKey const & groupKey ) { groupToUnit_.erase( groupKey ); }

// Memberships

bool isIntfMemberOfUnit( Lumo::IntfId intfId, Kel::String8 const & unitName,
                         Kel::Ptr<IntfMaintenance::IntfToGroupDir const> const & intfToGroupDir,
                         Kel::Ptr<Maintenance::GroupToUnitDir const> const & groupToUnitDir ) {
   TRACE( 5, "intfId:" << intfId << " unitName:" << unitName );
   KEL_ASSERT( intfToGroupDir );
   KEL_ASSERT( groupToUnitDir );
   if( auto const intfToGroup = intfToGroupDir->intfToGroup( intfId ) ) {
      for( auto [groupKey, present] : intfToGroup->groupIteratorConst() ) {
         auto const groupToUnit = groupToUnitDir->groupToUnit( groupKey );
         bool const * const inUnit = groupToUnit ? groupToUnit->unitName( unitName ) : nullptr;
         if( !inUnit || !*inUnit ) continue;
         TRACE( 4, "intf:" << intfId << " part of unit:" << unitName << " through the group:" << groupKey.name );
         return true;
      }
   }
   TRACE( 4, "intf:" << intfId << " not part of unit:" << unitName );
   return false;
}

void IntfStatusSm::removeUnlessMember( char const * handler, char const * ofUnit, Lumo::IntfId intfId,
                                       Kel::String8 const & unitName, UnitIntfInput & monitored ) const {
   if( isIntfMemberOfUnit( intfId, unitName, intfToGroupDir(), groupToUnitDir() ) ) {
      TRACE_AS( 4, handler,
                "intf:" << intfId << " is still a member " << ofUnit << unitName
                        << ".Not removing the interface from UnitMonIntfInput of the Unit" );
      return;
   }
   bool const * const present = monitored.intf( intfId );
   if( !present || !*present ) {
      TRACE_AS( 4, handler,
                "intf:" << intfId << " is no longer a member of unit:" << unitName
                        << ".It has already been removed from UnitMonIntfInput of the Unit" );
      return;
   }
   monitored.intfDel( intfId );
   TRACE_AS( 4, handler,
             "intf:" << intfId << " is no longer a member of unit:" << unitName
                     << ".Removing the interface from UnitMonIntfInput of the Unit" );
}

void IntfStatusSm::KelIntfToGroup::handleIntfToGroupMembershipChange( Group::GroupKey const & groupKey ) {
   bool const * const inGroup = notifier()->group( groupKey );
   if( inGroup && *inGroup ) {
      TRACE( 4, "Interface:" << intfId_ << " added to group:" << groupKey );
      owner_.addToBacklog( intfId_ );
      return;
   }
   TRACE( 4, "Interface:" << intfId_ << " removed from group:" << groupKey );
   KEL_ASSERT_TEXT( owner_.groupToUnitDir(), "intfStatusSm()->groupToUnitDir()" );
   auto const groupToUnit = owner_.groupToUnitDir()->groupToUnit( groupKey );
   if( !groupToUnit ) return;
   for( auto [unitName, inUnit] : groupToUnit->unitNameIteratorConst() ) {
      KEL_ASSERT_TEXT( owner_.unitMonIntfInput(), "intfStatusSm()->unitMonIntfInput()" );
      auto const monitored = owner_.unitMonIntfInput()->unitIntfInput( unitName );
      if( !monitored ) {
         TRACE( 4, "IntfId:" << intfId_ << ". Group:" << groupKey << " part of unit:" << unitName
                             << " which is not undergoing maintenance. Nothing to do as part of this unit." );
         continue;
      }
      TRACE( 4, "IntfId:" << intfId_ << ". Group:" << groupKey << " part of unit:" << unitName
                          << " which is undergoing maintenance. Check if intf is still member of the unit." );
      owner_.removeUnlessMember( "handleIntfToGroupMembershipChange", "of unit:", intfId_, unitName, *monitored );
   }
}

void IntfStatusSm::KelGroupToUnit::handleGroupToUnitMembershipChange( Kel::Name const & unitName ) {
   KEL_ASSERT_TEXT( owner_.intfGroupStatusDir(), "intfStatusSm()->intfGroupStatusDir()" );
   auto const & groupKey = notifier()->groupKey();
   auto const members = owner_.intfGroupStatusDir()->status( groupKey.name );
   bool const * const inUnit = notifier()->unitName( unitName );
   if( !inUnit || !*inUnit ) return handleGroupLeft( unitName, members );
   TRACE( 4, "Group:" << groupKey << " added to Unit:" << unitName );
   if( !members ) {
      TRACE( 5, "Group " << groupKey << "has no interfaces.Nothing to add to backlog" );
      return;
   }
   for( auto [intfId, present] : members->intfIteratorConst() ) owner_.addToBacklog( intfId );
}

void IntfStatusSm::KelGroupToUnit::handleGroupLeft( Kel::Name const & unitName,
                                                    Kel::Ptr<IntfGroup::Status const> const & members ) {
   char const * const handler = "handleGroupToUnitMembershipChange";
   auto const & groupKey = notifier()->groupKey();
   TRACE_AS( 4, handler, "Group:" << groupKey << " removed from Unit:" << unitName );
   KEL_ASSERT_TEXT( owner_.unitMonIntfInput(), "intfStatusSm()->unitMonIntfInput()" );
   auto const monitored = owner_.unitMonIntfInput()->unitIntfInput( unitName );
   if( !monitored ) {
      TRACE_AS( 4, handler,
                "Group:" << groupKey << ".Unit " << unitName
                         << " was not 'entering or under maintenance'. Nothing to do so returning early" );
      return;
   }
   if( !members ) {
      TRACE_AS( 5, handler, "Group has no interfaces. Nothing to remove" );
      return;
   }
   for( auto [intfId, present] : members->intfIteratorConst() ) {
      owner_.removeUnlessMember( handler, "ofunit:", intfId, unitName, *monitored );
   }
}

void IntfStatusSm::KelIntfToGroup::handleSelectedProfile( ProfileType profileType ) {
   auto const cause = notifier()->profileChangeCause();
   auto const * const key = notifier()->selectedProfile( profileType );
   TRACE( 9, "intf " << intfId_ << ", profileChangeCause " << cause << ", profileType " << profileType << ", profile "
                     << ( key && !key->empty() ? key->name : Kel::String8( "-" ) ) );
   if( profileType != ProfileType::interface ) {
      TRACE( 9, "  ignoring as profile type is not " << ProfileType::interface );
      return;
   }
   if( cause != ProfileChangeCause::precedence ) {
      TRACE( 9, "  ignoring as change cause is not " << ProfileChangeCause::precedence );
      return;
   }
   owner_.addToBacklog( intfId_ );
}

}  // namespace MaintenanceMode

// The tracker's watching: what each change of status, group or unit means for an interface. Its work is in
// IntfStatusSmBacklog.cpp.
#include "IntfStatusSm.h"

#include "RateMonSm.h"
#include "RateMonTrace.h"
#include "kel/InBlocks.h"

KEL_TYPE( MaintenanceMode::IntfStatusSm )

namespace MaintenanceMode {

using Maintenance::ProfileChangeCause;
using Maintenance::Profile::ProfileType;

// Reactors on one record

class IntfStatusSm::KelIntfStatus final : public Kel::OwnedBy<IntfStatusSm, Interface::IntfStatus::NotifieeConst>,
                                          public Kel::InBlocks<KelIntfStatus> {
 public:
   using OwnedBy::OwnedBy;
   void handleInitialized() {
      KEL_ASSERT_TEXT( !initialized_, "!initialized()" );
      queue( "handleInitialized" );
      initialized_ = true;
   }
   void onOperStatus() override { queue( "handleIntfOperStatus" ); }
   void handleDel() { queue( "handleIntfStatusDel" ); }

 private:
   void queue( char const * handler ) {
      TRACE_AS( 9, handler, "intf " << notifier()->intfId() );
      owner().addToBacklog( notifier()->intfId() );
   }

   bool initialized_ = false;
};

class IntfStatusSm::KelIntfToGroup final
   : public Kel::OwnedBy<IntfStatusSm, IntfMaintenance::IntfToGroup::NotifieeConst>,
     public Kel::InBlocks<KelIntfToGroup> {
 public:
   using OwnedBy::OwnedBy;
   void handleInitialized() {
      KEL_ASSERT_TEXT( !initialized_, "!initialized()" );
      queue( "handleInitialized" );
      initialized_ = true;
   }
   void onGroup( Group::GroupKey groupKey ) override { handleIntfToGroupMembershipChange( groupKey ); }
   void onSelectedProfile( ProfileType profileType ) override { handleSelectedProfile( profileType ); }
   void handleDel() { queue( "handleIntfToGroupDel" ); }

 private:
   void queue( char const * handler ) {
      TRACE_AS( 9, handler, "intf " << intfId() );
      owner().addToBacklog( intfId() );
   }
   [[nodiscard]] Lumo::IntfId intfId() const { return notifier()->intfId(); }
   void handleIntfToGroupMembershipChange( Group::GroupKey const & groupKey );
   void handleSelectedProfile( ProfileType profileType );

   bool initialized_ = false;
};

// Without a handleDel(): a group's mapping that disappears removes nothing by itself. Whoever takes a group out of a
// unit takes the unit out of the mapping first.
class IntfStatusSm::KelGroupToUnit final : public Maintenance::GroupToUnit::NotifieeConst {
 public:
   explicit KelGroupToUnit( IntfStatusSm & owner ) : Reactor( owner ), owner_( owner ) {}
   void onUnitName( Kel::Name unitName ) override { handleGroupToUnitMembershipChange( unitName ); }
   // A record that arrives whole: each unit that it holds is a join.
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

class IntfStatusSm::KelAllIntfStatusDir final : public Interface::AllIntfStatusDir::NotifieeConst {
 public:
   explicit KelAllIntfStatusDir( IntfStatusSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.allIntfStatusDir() );
   }
   void onIntfStatus( Lumo::IntfId intfId ) override {
      owner_.intfStatus_.sync( intfId, notifier()->intfStatus( intfId ) );
   }
   void onIntfStatuskelImmediate() override { owner_.intfStatus_.syncAll( notifier()->intfStatusIteratorConst() ); }

 private:
   IntfStatusSm & owner_;
};

class IntfStatusSm::KelIntfToGroupDir final : public IntfMaintenance::IntfToGroupDir::NotifieeConst {
 public:
   explicit KelIntfToGroupDir( IntfStatusSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.intfToGroupDir() );
   }
   void onIntfToGroup( Lumo::IntfId intfId ) override {
      owner_.intfToGroup_.sync( intfId, notifier()->intfToGroup( intfId ) );
   }
   void onIntfToGroupkelImmediate() override { owner_.intfToGroup_.syncAll( notifier()->intfToGroupIteratorConst() ); }

 private:
   IntfStatusSm & owner_;
};

class IntfStatusSm::KelGroupToUnitDir final : public Maintenance::GroupToUnitDir::NotifieeConst {
 public:
   explicit KelGroupToUnitDir( IntfStatusSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.groupToUnitDir() );
   }
   void onGroupToUnit( Group::GroupKey groupKey ) override {
      owner_.groupToUnit_.sync( groupKey, notifier()->groupToUnit( groupKey ) );
   }
   void onGroupToUnitkelImmediate() override { owner_.groupToUnit_.syncAll( notifier()->groupToUnitIteratorConst() ); }

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
     rootSm_( root ),
     intfStatus_( *this ),
     intfToGroup_( *this ),
     groupToUnit_( *this ) {
   hasNotificationActiveIs( false );
   allIntfStatusDirReactor_ = std::make_unique<KelAllIntfStatusDir>( *this );
   intfToGroupDirReactor_ = std::make_unique<KelIntfToGroupDir>( *this );
   groupToUnitDirReactor_ = std::make_unique<KelGroupToUnitDir>( *this );
   // By hand, because nothing is delivered to a machine under construction. Every interface is queued by it.
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
   // Detached and not destroyed: one of them may be further down on the stack, and finish its handler.
   allIntfStatusDirReactor_->notifierIs( nullptr );
   intfToGroupDirReactor_->notifierIs( nullptr );
   groupToUnitDirReactor_->notifierIs( nullptr );
   groupToUnit_.clear();
   intfToGroup_.clear();
   intfStatus_.clear();
   CodefBase::prepareToDie();
}

void IntfStatusSm::intfStatusIs( Kel::Ptr<Interface::IntfStatus const> const & record ) {
   if( !record ) Kel::refuseNull( kelTypeName(), "intfStatus" );
   intfStatus_.is( record->intfId(), record );
}

void IntfStatusSm::intfStatusDel( Lumo::IntfId intfId ) { intfStatus_.del( intfId ); }

void IntfStatusSm::intfToGroupIs( Kel::Ptr<IntfMaintenance::IntfToGroup const> const & record ) {
   if( !record ) Kel::refuseNull( kelTypeName(), "intfToGroup" );
   intfToGroup_.is( record->intfId(), record );
}

void IntfStatusSm::intfToGroupDel( Lumo::IntfId intfId ) { intfToGroup_.del( intfId ); }

void IntfStatusSm::groupToUnitIs( Kel::Ptr<Maintenance::GroupToUnit const> const & record ) {
   if( !record ) Kel::refuseNull( kelTypeName(), "groupToUnit" );
   groupToUnit_.is( record->groupKey(), record );
}

void IntfStatusSm::groupToUnitDel( Group::GroupKey const & groupKey ) { groupToUnit_.del( groupKey ); }

// Memberships

bool isIntfMemberOfUnit( Lumo::IntfId intfId, Kel::String8 const & unitName,
                         Kel::Ptr<IntfMaintenance::IntfToGroupDir const> const & intfToGroupDir,
                         Kel::Ptr<Maintenance::GroupToUnitDir const> const & groupToUnitDir ) {
   TRACE( 5, "intfId:" << intfId << " unitName:" << unitName );
   KEL_ASSERT( intfToGroupDir );
   KEL_ASSERT( groupToUnitDir );
   if( auto const intfToGroup = intfToGroupDir->intfToGroup( intfId ) ) {
      // The value of the interface's own entry is not looked at here: what makes it a member is the group's place in
      // the unit.
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
      // Later, in the backlog: a join is seldom alone, and whether the interface can be monitored is asked there once
      // for all.
      TRACE( 4, "Interface:" << intfId() << " added to group:" << groupKey );
      owner().addToBacklog( intfId() );
      return;
   }
   TRACE( 4, "Interface:" << intfId() << " removed from group:" << groupKey );
   KEL_ASSERT_TEXT( owner().groupToUnitDir(), "intfStatusSm()->groupToUnitDir()" );
   auto const groupToUnit = owner().groupToUnitDir()->groupToUnit( groupKey );
   if( !groupToUnit ) return;
   // At once: an interface that is no longer the unit's must not keep it waiting, nor stay shut down for it.
   for( auto [unitName, inUnit] : groupToUnit->unitNameIteratorConst() ) {
      if( !owner().inService() ) return;  // a removal ended the plug-in
      KEL_ASSERT_TEXT( owner().unitMonIntfInput(), "intfStatusSm()->unitMonIntfInput()" );
      auto const monitored = owner().unitMonIntfInput()->unitIntfInput( unitName );
      if( !monitored ) {
         TRACE( 4, "IntfId:" << intfId() << ". Group:" << groupKey << " part of unit:" << unitName
                             << " which is not undergoing maintenance. Nothing to do as part of this unit." );
         continue;
      }
      TRACE( 4, "IntfId:" << intfId() << ". Group:" << groupKey << " part of unit:" << unitName
                          << " which is undergoing maintenance. Check if intf is still member of the unit." );
      owner().removeUnlessMember( "handleIntfToGroupMembershipChange", "of unit:", intfId(), unitName, *monitored );
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
      if( !owner_.inService() ) return;
      owner_.removeUnlessMember( handler, "ofunit:", intfId, unitName, *monitored );
   }
}

void IntfStatusSm::KelIntfToGroup::handleSelectedProfile( ProfileType profileType ) {
   auto const cause = notifier()->profileChangeCause();
   auto const * const key = notifier()->selectedProfile( profileType );
   TRACE( 9, "intf " << intfId() << ", profileChangeCause " << cause << ", profileType " << profileType << ", profile "
                     << ( key && !key->empty() ? key->name : Kel::String8( "-" ) ) );
   if( profileType != ProfileType::interface ) {
      TRACE( 9, "  ignoring as profile type is not " << ProfileType::interface );
      return;
   }
   // A selection that the configuration changed is followed through the profile records themselves.
   if( cause != ProfileChangeCause::precedence ) {
      TRACE( 9, "  ignoring as change cause is not " << ProfileChangeCause::precedence );
      return;
   }
   owner().addToBacklog( intfId() );
}

}  // namespace MaintenanceMode

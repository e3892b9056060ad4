// Interfaces and groups that come and go while their units are in maintenance: who is monitored afterwards, and from
// when on.
#include <functional>

#include "DrainStory.h"

namespace Test {

using Interface::IntfOperStatus;
using Maintenance::ProfileChangeCause;

class Membership : public DrainStory {
 protected:
   static Group::GroupKey key( std::string const & group ) { return { Group::GroupType::intf, Kel::String8( group ) }; }

   // Both sides of a membership, as the host writes them.
   void join( std::string const & intf, std::string const & group ) {
      Lumo::IntfId const id( intf );
      state_.groupStatus->statusIs( Kel::String8( group ) )->intfIs( id, true );
      state_.intfToGroup->intfToGroupIs( id )->groupIs( key( group ), true );
   }
   void leave( std::string const & intf, std::string const & group ) {
      Lumo::IntfId const id( intf );
      state_.groupStatus->status( Kel::String8( group ) )->intfDel( id );
      state_.intfToGroup->intfToGroup( id )->groupDel( key( group ) );
   }
   void groupInUnit( std::string const & group, std::string const & unitName, bool in = true ) {
      state_.groupToUnit->groupToUnitIs( key( group ) )->unitNameIs( Kel::Name( unitName ), in );
   }
   void groupOutOfUnit( std::string const & group, std::string const & unitName ) {
      state_.groupToUnit->groupToUnit( key( group ) )->unitNameDel( Kel::Name( unitName ) );
   }
   void mappingDel( std::string const & intf ) { state_.intfToGroup->intfToGroupDel( Lumo::IntfId( intf ) ); }

   // "fabric", being entered, with a busy Ethernet1 and an idle Ethernet2.
   void enterFabric() {
      unit( "fabric", { "Ethernet1", "Ethernet2" } );
      traffic( "Ethernet1", 10_Mbps );
      start();
      traceOn();
      enter( "fabric" );
   }
};

// --- Leaving is at once
// -------------------------------------------------------------------------------------------------

// The group's entry under the unit goes, or turns false, which is the same.
TEST_F( Membership, aGroupThatLeavesTheUnitTakesItsInterfacesAlongUnlessAnotherGroupKeepsThem ) {
   for( bool const deleted : { true, false } ) {
      std::string const name = deleted ? "deleted" : "false";
      std::string const number = deleted ? "1" : "2";
      std::string const kept = "Ethernet1/" + number, lost = "Ethernet2/" + number;
      unit( name, { kept, lost } );
      join( kept, "spare" );
      groupInUnit( "spare", name );
      start();
      traceOn();
      enter( name );
      if( deleted ) {
         groupOutOfUnit( name, name );
      } else {
         groupInUnit( name, name, false );
      }
      EXPECT_TRUE( monitored( kept ) );
      EXPECT_FALSE( monitored( lost ) );
      EXPECT_TRUE( traced( "4 handleGroupToUnitMembershipChange: intf:" + kept + " is still a member ofunit:" + name +
                           ".Not removing the interface from UnitMonIntfInput of the Unit" ) );
      EXPECT_TRUE( traced( "4 handleGroupToUnitMembershipChange: intf:" + lost + " is no longer a member of unit:" +
                           name + ".Removing the interface from UnitMonIntfInput of the Unit" ) );
      stop();
   }
}

TEST_F( Membership, aGroupEntryThatTurnsFalseIsALeaveThatTheEntryItselfStillOutweighs ) {
   enterFabric();
   state_.intfToGroup->intfToGroup( Lumo::IntfId( "Ethernet1" ) )->groupIs( key( "fabric" ), false );
   EXPECT_TRUE( traced( "4 handleIntfToGroupMembershipChange: Interface:Ethernet1 removed from group:" +
                        key( "fabric" ).text() ) );
   EXPECT_TRUE( monitored( "Ethernet1" ) );  // which groups lead to a unit is asked without looking at the value
   leave( "Ethernet1", "fabric" );
   EXPECT_FALSE( monitored( "Ethernet1" ) );
}

TEST_F( Membership, aGroupsRecordThatVanishesRemovesNothing ) {
   enterFabric();
   state_.groupToUnit->groupToUnitDel( key( "fabric" ) );
   advance( 10_s );
   EXPECT_TRUE( monitored( "Ethernet1" ) );
   EXPECT_EQ( monitored( "Ethernet1" )->totalSamples(), 1u );
}

// --- What else ends the monitoring, in the next turn
// ----------------------------------------------------------------------

TEST_F( Membership, whatMakesAnInterfaceUnfitEndsItsMonitoringInTheNextTurn ) {
   struct Case {
      char const * what;
      std::function<void( std::string const & )> change, undo;
   };
   Case const cases[] = {
      { "its link goes down", [&]( auto const & intf ) { link( intf, IntfOperStatus::down ); },
        [&]( auto const & intf ) { link( intf, IntfOperStatus::up ); } },
      { "its status is unknown", [&]( auto const & intf ) { link( intf, IntfOperStatus::unknown ); },
        [&]( auto const & intf ) { link( intf, IntfOperStatus::up ); } },
      { "its status is gone", [&]( auto const & intf ) { linkDel( intf ); },
        [&]( auto const & intf ) { link( intf, IntfOperStatus::up ); } },
      { "no profile is selected", [&]( auto const & intf ) { select( intf, "" ); },
        [&]( auto const & intf ) { select( intf, "#DEFAULTPROFILE" ); } },
      { "its mapping is gone", [&]( auto const & intf ) { mappingDel( intf ); },
        [&]( auto const & intf ) {
           join( intf, "fabric" );
           select( intf, "#DEFAULTPROFILE" );
        } },
   };
   enterFabric();
   for( Case const & c : cases ) {
      SCOPED_TRACE( c.what );
      ASSERT_TRUE( monitored( "Ethernet1" ) );
      c.change( "Ethernet1" );
      EXPECT_TRUE( monitored( "Ethernet1" ) );  // nothing within the notification
      advance( 0 );
      EXPECT_FALSE( monitored( "Ethernet1" ) );
      EXPECT_TRUE( monitored( "Ethernet2" ) );
      c.undo( "Ethernet1" );
      advance( 0 );
   }
   EXPECT_EQ( counter( "numStopIntfMonInUnits" ), std::size( cases ) );
   EXPECT_TRUE( monitored( "Ethernet1" ) );
}

// --- Joining, in the next turn
// --------------------------------------------------------------------------------------------

class Joining : public Membership, public ::testing::WithParamInterface<Maintenance::Unit::State> {};

TEST_P( Joining, isMonitoredFromTheNextTurnOn ) {
   struct Case {
      char const * what;
      std::string intf;
      std::function<void( std::string const & )> arrive;
   };
   Case const cases[] = {
      { "comes up", "Ethernet3", [&]( auto const & intf ) { link( intf, IntfOperStatus::up ); } },
      { "appears", "Ethernet4", [&]( auto const & intf ) { link( intf, IntfOperStatus::up ); } },
      { "joins a group of the unit", "Ethernet5", [&]( auto const & intf ) { join( intf, "fabric" ); } },
      { "its group joins the unit", "Ethernet6", [&]( auto const & ) { groupInUnit( "spare", "fabric" ); } },
      { "its group's false entry turns true", "Ethernet7", [&]( auto const & ) { groupInUnit( "odd", "fabric" ); } },
      { "its group's units arrive whole", "Ethernet8",
        [&]( auto const & ) {
           Kel::Ptr<Maintenance::GroupToUnit> const whole( new Maintenance::GroupToUnit( key( "late" ) ) );
           whole->unitNameIs( Kel::Name( "fabric" ), true );
           state_.groupToUnit->groupToUnitIs( whole );
        } },
   };
   unit( "fabric", { "Ethernet1", "Ethernet3", "Ethernet4" } );
   link( "Ethernet3", IntfOperStatus::down );
   linkDel( "Ethernet4" );
   for( auto const * intf : { "Ethernet5", "Ethernet6", "Ethernet7", "Ethernet8" } ) {
      link( intf, IntfOperStatus::up );
      select( intf, "#DEFAULTPROFILE" );
   }
   join( "Ethernet6", "spare" );
   join( "Ethernet7", "odd" );
   join( "Ethernet8", "late" );
   groupInUnit( "odd", "fabric", false );
   start();
   enter( "fabric" );
   unitState( "fabric", GetParam() );
   bool const passive = GetParam() == State::inMaintenance;
   for( Case const & c : cases ) {
      SCOPED_TRACE( c.what );
      c.arrive( c.intf );
      EXPECT_FALSE( monitored( c.intf ) );
      advance( 0 );
      ASSERT_TRUE( monitored( c.intf ) );
      EXPECT_EQ( monitored( c.intf )->state(),
                 passive ? MonIntfState::passiveMonitoring : MonIntfState::thresholdMonitoring );
   }
   EXPECT_EQ( counter( "numIntfMonInitialStatePassive" ), passive ? std::size( cases ) : 0 );
}

INSTANTIATE_TEST_SUITE_P( AUnit, Joining,
                          ::testing::Values( Maintenance::Unit::State::entering,
                                             Maintenance::Unit::State::inMaintenance ),
                          []( auto const & tested ) { return std::string( enumName( tested.param ) ); } );

// A record with the key of an earlier one: the tracker follows the one that stands in the database.
TEST_F( Membership, aRecordInThePlaceOfAnotherIsWatchedFromThenOn ) {
   enterFabric();
   Kel::Ptr<Interface::IntfStatus> const record( new Interface::IntfStatus( Lumo::IntfId( "Ethernet1" ) ) );
   record->operStatusIs( IntfOperStatus::up );
   state_.intfStatus->intfStatusIs( record );
   record->operStatusIs( IntfOperStatus::down );
   advance( 0 );
   EXPECT_FALSE( monitored( "Ethernet1" ) );
   linkDel( "Ethernet1" );
   link( "Ethernet1", IntfOperStatus::up );
   record->operStatusIs( IntfOperStatus::up );  // nobody's any more
   advance( 0 );
   EXPECT_TRUE( monitored( "Ethernet1" ) );
   link( "Ethernet1", IntfOperStatus::down );
   advance( 0 );
   EXPECT_FALSE( monitored( "Ethernet1" ) );
}

}  // namespace Test

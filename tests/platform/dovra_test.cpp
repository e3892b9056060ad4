// The state database: mounts, state by text, and the error-disable causes that live in it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "dovra/EntityManager.h"
#include "dovra/StatePath.h"
#include "errdisable/ErrdisableLib.h"
#include "kel/Json.h"
#include "records/Cell.h"
#include "records/Errdisable.h"
#include "state/MaintenanceState.h"

namespace {

using Kel::Value;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class State : public ::testing::Test {
 protected:
   void advance( double seconds ) { loop_.runUntil( *clock_, clock_->now() + seconds ); }

   Kel::Ptr<Kel::VirtualClock> clock_{ new Kel::VirtualClock( 1000 ) };
   Kel::ActivityLoop loop_{ clock_ };
   Kel::Ptr<Dovra::EntityManager> database_{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state_{ *database_ };
};

// --- Mounts

class Requester final : public Dovra::Mounter {
 public:
   void doMountsComplete( Dovra::MountStatus status, Kel::Ptr<Dovra::EntityManager> entityManager ) override {
      calls.push_back( status );
      database = entityManager;
      if( auto const call = onComplete ) call();  // a copy: the call may destroy this
   }

   std::vector<Dovra::MountStatus> calls;
   Kel::Ptr<Dovra::EntityManager> database;
   std::function<void()> onComplete;
};

class Mounts : public State {
 protected:
   // Asks for mounts and closes the group.
   Kel::Ptr<Dovra::MountGroup> request( Requester & requester, std::vector<Dovra::Mount> const & mounts,
                                        double delay = 0 ) {
      auto const group = database_->getMountGroup( &requester );
      for( auto const & mount : mounts ) group->doMount( mount );
      group->doClose( false, "", delay );
      return group;
   }

   Dovra::Mount const lag_{ "lag/config", "Lag::Config", "r" };
   Dovra::Mount const causes_{ "interface/errdisable/cause", "Kel::Dir", "wi" };
};

TEST_F( Mounts, completeOnceInALaterTurn ) {
   Requester requester;
   Kel::Ptr<Dovra::MountGroup> group;
   loop_.turn( [&] { group = request( requester, { lag_, causes_, lag_ } ); } );
   EXPECT_THAT( requester.calls, IsEmpty() );
   EXPECT_EQ( group->status(), Dovra::mountPending_ );
   EXPECT_EQ( loop_.nextDue(), 1000 );
   advance( 10 );
   EXPECT_THAT( requester.calls, ElementsAre( 4 ) );
   EXPECT_EQ( requester.database, database_ );
   EXPECT_EQ( group->status(), Dovra::mountSuccess_ );
   EXPECT_THAT( group->failures(), IsEmpty() );
   EXPECT_THAT( group->mounts(), ElementsAre( lag_, causes_, lag_ ) );
}

TEST_F( Mounts, completeWhenTheDelayIsOver ) {
   Requester requester;
   auto const group = request( requester, { lag_ }, 5 );
   advance( 4.9 );
   EXPECT_THAT( requester.calls, IsEmpty() );
   advance( 0.1 );
   EXPECT_THAT( requester.calls, ElementsAre( Dovra::mountSuccess_ ) );
}

TEST_F( Mounts, failuresSayWhichPathAndWhy ) {
   struct Case {
      Dovra::Mount mount;
      Dovra::MountStatus status;
      char const * failure;
   } const cases[] = {
      { { "lag/konfig", "Lag::Config", "r" }, Dovra::mountAbsent_, "lag/konfig: nothing is mounted there" },
      { { "lag", "Kel::Dir", "r" }, Dovra::mountAbsent_, "lag: nothing is mounted there" },
      { { "lag/config", "Kel::Dir", "ri" }, Dovra::mountWrongType_, "lag/config: it is a Lag::Config, not a Kel::Dir" },
      { { "lag/config", "Lag::Config", "rw" }, Dovra::mountWrongMode_, "lag/config: there is no mode \"rw\"" },
      { { "lag/config", "Lag::Config", "" }, Dovra::mountWrongMode_, "lag/config: there is no mode \"\"" },
   };
   for( Case const & c : cases ) {
      SCOPED_TRACE( c.failure );
      Requester requester;
      Dovra::Mount const alsoAbsent{ "gone", "Kel::Dir", "w" };
      auto const group = request( requester, { lag_, c.mount, alsoAbsent } );
      ::testing::internal::CaptureStderr();
      advance( 1 );
      EXPECT_THAT( ::testing::internal::GetCapturedStderr(), HasSubstr( c.failure ) );
      EXPECT_THAT( requester.calls, ElementsAre( c.status ) );
      EXPECT_THAT( group->failures(), ElementsAre( c.failure, "gone: nothing is mounted there" ) );
   }
}

// State may be mounted between the request and the check.
TEST_F( Mounts, areCheckedWhenTheyComplete ) {
   Requester requester;
   auto const group = request( requester, { { "late", "Kel::Dir", "r" } } );
   database_->create<Kel::Dir>( "late" );
   advance( 1 );
   EXPECT_THAT( requester.calls, ElementsAre( Dovra::mountSuccess_ ) );
}

TEST_F( Mounts, aMounterThatHasGoneOrWithdrawnIsNotCalled ) {
   auto gone = std::make_unique<Requester>();
   Requester withdrawn;
   Requester other;
   auto const kept = request( *gone, { lag_ } );
   auto const open = database_->getMountGroup( gone.get() );
   request( withdrawn, { lag_ } );
   request( other, { lag_ } );
   gone.reset();
   open->doClose( false, "", 0.0 );
   withdrawn.mountGroupsDel();
   advance( 1 );
   EXPECT_EQ( kept->status(), Dovra::mountPending_ );
   EXPECT_EQ( open->status(), Dovra::mountPending_ );
   EXPECT_THAT( withdrawn.calls, IsEmpty() );
   EXPECT_THAT( other.calls, ElementsAre( Dovra::mountSuccess_ ) ) << "one mounter's end took another's mounts";
}

TEST_F( Mounts, aMounterMayGoWhileItIsCalled ) {
   auto requester = std::make_unique<Requester>();
   bool called = false;
   requester->onComplete = [&] {
      called = true;
      requester.reset();
   };
   request( *requester, { lag_ } );
   advance( 1 );
   EXPECT_TRUE( called );
}

TEST_F( Mounts, aCompleteGroupDoesNotKeepTheDatabase ) {
   Requester requester;
   uint32_t const before = database_->getRefCount();
   request( requester, { lag_ } );
   EXPECT_EQ( database_->getRefCount(), before + 1 );
   advance( 1 );
   requester.database = nullptr;
   EXPECT_EQ( database_->getRefCount(), before );
   ASSERT_EQ( requester.mountGroups().size(), 1u );
   EXPECT_THAT( requester.mountGroups()[0]->mounts(), ElementsAre( lag_ ) );
}

TEST_F( Mounts, aGroupIsClosedOnce ) {
   Requester requester;
   auto const group = request( requester, {} );
   EXPECT_DEATH( group->doMount( lag_ ), "!closed_" );
   EXPECT_DEATH( group->doClose( false, "", 0.0 ), "!closed_" );
   advance( 1 );
   EXPECT_THAT( requester.calls, ElementsAre( Dovra::mountSuccess_ ) );
}

// --- Paths and lookups

TEST_F( State, lookupsGiveTheTypeOrNull ) {
   EXPECT_EQ( database_->getEntity<Lag::Config>( "lag/config" ), state_.lagConfig );
   EXPECT_EQ( state_.lagConfig->name(), "config" );
   EXPECT_FALSE( database_->getEntity<Kel::Dir>( "lag/config" ) );
   for( char const * absent : { "", "lag", "lag/config/", "/lag/config", "lag/config/phyIntf" } ) {
      EXPECT_FALSE( database_->getEntity( absent ) ) << absent;
   }
}

TEST_F( State, knowsWhatIsMountedAndTheLongestMountAboveAPath ) {
   Dovra::EntityManager database;
   for( char const * path : { "b", "a/b", "a/b/c/d", "a-b" } ) database.create<Kel::Dir>( path );
   EXPECT_THAT( database.paths(), ElementsAre( "a-b", "a/b", "a/b/c/d", "b" ) );
   std::pair<char const *, char const *> const cases[] = {
      { "a/b/c/d/e", "a/b/c/d" }, { "a/b/c", "a/b" }, { "a/bc", "" }, { "b/", "b" }, { "a", "" }, { "", "" } };
   for( auto const & [path, prefix] : cases ) EXPECT_EQ( database.mountedPrefix( path ), prefix ) << path;
   for( char const * malformed : { "", "/a", "a/", "a//b" } ) {
      EXPECT_DEATH( database.entityIs( malformed, new Kel::Dir( "x" ) ), "wellFormed" ) << malformed;
   }
   EXPECT_DEATH( database.create<Kel::Dir>( "a/b" ), "added" );
}

// --- State by text

class ByText : public State {
 protected:
   using Path = Dovra::StateComponents;

   ByText() {
      auto const fabric = state_.unitStatus->statusIs( "fabric" );
      fabric->genIdIs( 7 );
      fabric->intfsViolatingTrafficThresholdIs( Lumo::IntfId( "Ethernet1/1" ), true );
      for( char const * intf : { "Ethernet1", "Ethernet1/1", "Ethernet2" } ) {
         state_.lagConfig->phyIntfIs( Lumo::IntfId( intf ) )->lagIs( Lumo::IntfId( "Port-Channel1" ) );
      }
      state_.vlanStatus->vlanStatusIs( 100 )->intfIs( Lumo::IntfId( "Ethernet2" ), true );
      state_.enter.agentStatus->completeIs( Stage::AgentStatusKey{ "ratemon", "fabric#7" }, true );
      Kel::Ptr<Errdisable::CauseStatus> const cause( new Errdisable::CauseStatus( "storm" ) );
      cause->intfStatusIs( Lumo::IntfId( "Ethernet2" ), 12.5 );
      state_.errdisableCauses->entityIs( cause );
   }

   template<class P>
   std::string get( P const & path ) {
      try {
         return Kel::toJson( Dovra::stateValue( *database_, path ) );
      } catch( Kel::AttributeError const & error ) {
         return std::string( "! " ) + error.what();
      }
   }
   // Empty when the write went through.
   template<class P>
   std::string set( P const & path, Value const & value ) {
      try {
         Dovra::stateValueIs( *database_, path, value );
         return "";
      } catch( Kel::AttributeError const & error ) {
         return error.what();
      }
   }
   static Value object( Value::Object o = {} ) { return Kel::value( std::move( o ) ); }
};

TEST_F( ByText, reads ) {
   std::pair<char const *, char const *> const cases[] = {
      { "maintenance/unit/status/status/fabric/genId", "7" },
      { "/maintenance/unit/status//status/fabric/genId/", "7" },
      { "maintenance/unit/status/status/fabric/intfsViolatingTrafficThreshold", "{\"Ethernet1/1\": true}" },
      { "maintenance/unit/status/status/fabric/intfsViolatingTrafficThreshold/Ethernet1/1", "true" },
      { "maintenance/unit/status/status/absent", "null" },
      { "maintenance/unit/status/status/absent/genId", "null" },
      { "lag/config/phyIntf/Ethernet1/1", "{\"lag\": \"Port-Channel1\"}" },
      { "lag/config/phyIntf/Ethernet1/1/lag", "\"Port-Channel1\"" },
      { "lag/config/phyIntf/Ethernet1/lag", "\"Port-Channel1\"" },
      { "lag/config/phyIntf/Ethernet3/1", "null" },
      { "bridging/vlan/status", "{\"vlanStatus\": {\"100\": {\"intf\": {\"Ethernet2\": true}}}}" },
      { "interface/errdisable/cause", "{\"storm\": {\"intfStatus\": {\"Ethernet2\": 12.5}}}" },
      { "interface/errdisable/cause/storm/intfStatus/Ethernet2", "12.5" },
      { "interface/errdisable/cause/absent/intfStatus", "null" },
      { "cell/0/stageAgentStatus/maintEnter/MaintenanceMode/complete/ratemon:fabric#7", "true" },
      { "stageAgentStatus/maintEnter/MaintenanceMode/complete", "{\"ratemon:fabric#7\": true}" },

      { "", "! nothing is mounted at or above \"\"" },
      { "lag/other/phyIntf", "! nothing is mounted at or above \"lag/other/phyIntf\"" },
      { "lag/config/foo", "! lag/config has no attribute \"foo\"" },
      { "lag/config/phyIntf/Ethernet2/foo", "! lag/config/phyIntf/Ethernet2 has no attribute \"foo\"" },
      { "maintenance/unit/status/status/fabric/genId/x",
        "! maintenance/unit/status/status/fabric/genId has no entries, it is one value" },
      { "bridging/vlan/status/vlanStatus/x",
        "! bridging/vlan/status/vlanStatus/x: the key \"x\" is not a number from 0 to 4294967295" },
   };
   for( auto const & [path, expected] : cases ) EXPECT_EQ( get( std::string_view( path ) ), expected ) << path;
}

TEST_F( ByText, ofAPathThatLeadsNowhereSaysWhatThereIsInstead ) {
   EXPECT_THAT( Dovra::stateBelow( *database_, {} ), ::testing::IsSupersetOf( { "lag", "maintenance", "stage" } ) );
   EXPECT_THAT( Dovra::stateBelow( *database_, {} ), ::testing::Not( ::testing::Contains( "cell" ) ) );
   EXPECT_THAT( Dovra::stateBelow( *database_, { "stage", "maintEnter" } ), ::testing::Contains( "progress" ) );
   EXPECT_THAT( Dovra::stateBelow( *database_, { "lag", "config" } ), ::testing::IsEmpty() );
   struct {
      Path path;
      char const * said;
   } const cases[] = {
      { { "laq", "config" }, "there is no \"laq\" at the top; did you mean \"lag\"? There are: " },
      { { "lag/config", "phyIntff" }, "there is no \"phyIntff\" in lag/config; did you mean \"phyIntf\"?" },
      { { "lag", "config", "phyIntf", "none" }, "there is no \"none\" in lag/config/phyIntf; there are: Ethernet1, " },
      { { "stage", "maintEnter" }, "there is no record at stage/maintEnter; below it there are: " },
      { { "maintenance/unit/status", "status", "fabric", "genId", "x", "y" },
        "maintenance/unit/status/status/fabric/genId is one value, and nothing is below it" },
   };
   for( auto const & [path, said] : cases )
      EXPECT_THAT( Dovra::stateAbsence( *database_, path ), ::testing::StartsWith( said ) );
}

TEST_F( ByText, writesThatDoNotFitChangeNothingAndSayWhere ) {
   Value const one = Kel::value( uint32_t{ 1 } );
   struct Case {
      Path path;
      Value value;
      char const * error;
   } const cases[] = {
      { { "maintenance/unit/status", "status", "absent", "genId" }, one, "status/absent: there is no such entry" },
      { { "maintenance/unit/status", "status", "absent", "odd" }, object(), "status/absent: there is no such entry" },
      { { "maintenance/unit/status", "status", "fabric", "group", "intf:a", "b" },
        Kel::value( true ),
        "group/intf:a: there is no such entry" },
      { { "interface/errdisable/cause", "other" },
        object(),
        "interface/errdisable/cause/other: the type \"Kel::Entity\" cannot be made by name" },
      { { "maintenance/unit/status", "status", "fabric", "odd" }, one, "status/fabric has no attribute \"odd\"" },
      { { "maintenance/unit/status", "status", "fabric" }, one, "status/fabric: wants an object, not a number" },
      { { "lag/config" }, one, "lag/config: wants an object, not a number" },
      { { "maintenance/unit/status", "status", "fabric", "genId" },
        Kel::value( "many" ),
        "fabric/genId: the attribute \"genId\" wants a whole number" },
      { { "maintenance/unit/status", "status", "fabric", "group", "spines" },
        Kel::value( true ),
        "group/spines: the key" },
   };
   std::string const before = get( "maintenance/unit/status" );
   for( Case const & c : cases ) EXPECT_THAT( set( c.path, c.value ), HasSubstr( c.error ) );
   EXPECT_EQ( get( "maintenance/unit/status" ), before );
}

TEST_F( ByText, deletesEntriesAndTakesWhatIsAbsentInItsStride ) {
   for( char const * absent :
        { "lag/config/phyIntf/Ethernet9", "maintenance/unit/status/status/absent/group",
          "stage/maintExit/progress/progress", "interface/errdisable/cause/absent/intfStatus/Ethernet1" } ) {
      EXPECT_NO_THROW( Dovra::stateValueDel( *database_, absent ) ) << absent;
   }
   Dovra::stateValueDel( *database_, Path{ "interface/errdisable/cause", "storm", "intfStatus", "Ethernet2", "x" } );
   EXPECT_EQ( get( "interface/errdisable/cause/storm/intfStatus/Ethernet2" ), "12.5" );
   Dovra::stateValueDel( *database_, "lag/config/phyIntf/Ethernet1/1" );
   EXPECT_EQ( state_.lagConfig->phyIntfs(), 2u );
   Dovra::stateValueDel( *database_, Path{ "lag/config", "phyIntf" } );
   EXPECT_EQ( state_.lagConfig->phyIntfs(), 0u );
   Dovra::stateValueDel( *database_, "interface/errdisable/cause/storm" );
   EXPECT_EQ( get( "interface/errdisable/cause" ), "{}" );
   for( char const * never :
        { "lag/config", "maintenance/unit/status/status/fabric/genId", "lag/config/odd", "odd" } ) {
      EXPECT_THROW( Dovra::stateValueDel( *database_, never ), Kel::AttributeError ) << never;
   }
}

// Names of interfaces are kept for ever once they are interned, so nothing that is only asked for may be.
TEST_F( ByText, askingForWhatIsAbsentLeavesNothingBehind ) {
   std::size_t const before = Lumo::IntfId::names();
   for( std::string const path : { "lag/config/phyIntf/EthernetX/1", "lag/config/phyIntf/EthernetY/1/2/3/lag",
                                   "lag/config/phyIntf/EthernetZ/odd" } ) {
      EXPECT_EQ( get( path ), "null" );
      Dovra::stateValueDel( *database_, path );
   }
   EXPECT_EQ( get( Path{ "lag", "config", "phyIntf", "EthernetX", "Y" } ), "null" );
   EXPECT_NE( set( Path{ "lag/config", "phyIntf", "EthernetX", "lag" }, Kel::value( "Port-Channel1" ) ), "" );
   // Every keyed attribute of every entity there is, whatever its keys.
   std::function<void( Kel::Entity & )> const askAll = [&]( Kel::Entity & e ) {
      for( auto const & attribute : e.kelTypeInfo().attributes() ) {
         if( !attribute->keyed() ) continue;
         SCOPED_TRACE( e.kelTypeInfo().name() + "::" + attribute->name() );
         for( std::string const & key : attribute->keys( e ) ) {
            if( auto const child = attribute->child( e, key ) ) askAll( *child );
         }
         for( char const * const absent : { "EthernetX", "4711", "intf:x", "bgp:y" } ) {
            try {
               EXPECT_TRUE( attribute->entry( e, absent ).isNull() );
               EXPECT_FALSE( attribute->child( e, absent ) );
               attribute->entryDel( e, absent );
            } catch( Kel::AttributeError const & ) {
               continue;  // not the form of this attribute's keys
            }
         }
      }
   };
   for( std::string const & path : database_->paths() ) askAll( *database_->getEntity( path ) );
   EXPECT_EQ( Lumo::IntfId::names(), before );
}

// --- Error-disable causes

TEST_F( State, aCauseIsIntroducedOnceAndKeepsItsInterfacesOverARestart ) {
   auto const introduce = [&]( char const * reason ) {
      ErrdisableLib::ErrdisableCauseGroupInit( database_, "maintenance-shutdown", false, "Down for a test.", false,
                                               true, true, true, 1, 0, reason );
   };
   introduce( "maint-down" );
   auto const cause =
      Kel::dynamicPtrCast<Errdisable::CauseStatus>( state_.errdisableCauses->entityRef( "maintenance-shutdown" ) );
   ASSERT_TRUE( cause );
   cause->intfStatusIs( Lumo::IntfId( "Ethernet1" ), 990 );
   introduce( "another" );
   EXPECT_EQ( state_.errdisableCauses->entityRef( "maintenance-shutdown" ), cause );
   EXPECT_EQ( cause->intfStatuss(), 1u );
   EXPECT_EQ( Kel::toJson( Dovra::stateValue( *database_, "interface/errdisable/causegroup" ) ),
              "{\"maintenance-shutdown\": {\"description\": \"Down for a test.\", \"reason\": \"maint-down\", "
              "\"groupType\": 1, "
              "\"priority\": 0, \"flags\": 28}}" );
}

}  // namespace

// Profiles that change under running monitors: by configuration, by selection, by the default's name, by their own
// values.
#include <gmock/gmock.h>

#include <functional>

#include "DrainStory.h"

namespace Test {

using Maintenance::ProfileChangeCause;
using Maintenance::Profile::ProfileType;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Profiles : public DrainStory {
 protected:
   void profileDel( std::string const & name ) { state_.profiles->configDel( Kel::String8( name ) ); }
   [[nodiscard]] std::string profileOf( std::string const & intf ) const {
      return monitored( intf )->profileName().str();
   }
   [[nodiscard]] static std::string changed( std::string const & intf, std::string const & to,
                                             std::string const & was ) {
      return "For interface " + intf + ", interface profile changed to " + to + " (was " + was + ")";
   }
   // "fabric", being entered, each interface with its selection.
   void enterWith( std::vector<std::pair<std::string, std::string>> const & selections ) {
      std::vector<std::string> intfs;
      for( auto const & [intf, selected] : selections ) intfs.push_back( intf );
      unit( "fabric", intfs );
      for( auto const & [intf, selected] : selections ) select( intf, selected );
      start();
      enter( "fabric" );
   }
};

TEST_F( Profiles, everyWayToChangeIsCountedAndLoggedWithWhatWasInForce ) {
   struct Step {
      char const * what;
      std::function<void()> change;
      std::string inForce;
      char const * counted;  // null: by nothing but numIntfMonProfileChange
   };
   Step const steps[] = {
      { "another is selected", [&] { select( "Ethernet1", "b" ); }, "b", nullptr },
      { "it is deleted", [&] { profileDel( "b" ); }, "#DEFAULTPROFILE", "numIntfMonProfileDelete" },
      { "it comes back", [&] { profile( "b", {} ); }, "b", "numIntfMonPendingProfileResolved" },
      { "the default is selected", [&] { select( "Ethernet1", "#DEFAULTPROFILE" ); }, "#DEFAULTPROFILE", nullptr },
      { "the default gets a name", [&] { defaultProfile( "a" ); }, "a", "numIntfMonDefProfileUpdate" },
      { "the default gets another", [&] { defaultProfile( "b" ); }, "b", "numIntfMonDefProfileUpdate" },
      { "the default's is deleted", [&] { profileDel( "b" ); }, "#DEFAULTPROFILE", "numIntfMonProfileDelete" },
   };
   profile( "a", {} );
   profile( "b", {} );
   enterWith( { { "Ethernet1", "a" } } );
   EXPECT_THAT( logged_, IsEmpty() );  // the first profile is no change
   std::string was = "a";
   uint64_t changes = 0;
   for( Step const & step : steps ) {
      SCOPED_TRACE( step.what );
      logged_.clear();
      auto const counted = step.counted ? counter( step.counted ) : 0;
      step.change();
      advance( 0 );
      EXPECT_THAT( logged_, ElementsAre( changed( "Ethernet1", step.inForce, was ) ) );
      EXPECT_EQ( profileOf( "Ethernet1" ), step.inForce );
      EXPECT_EQ( counter( "numIntfMonProfileChange" ), ++changes );
      EXPECT_EQ( step.counted ? counter( step.counted ) : 1, counted + 1 );
      was = step.inForce;
   }
   EXPECT_EQ( counter( "numIntfMonProfileDelete" ), 2u );
   EXPECT_EQ( counter( "numIntfMonPendingProfileResolved" ), 1u );
   EXPECT_EQ( counter( "numIntfMonDefProfileUpdate" ), 2u );
}

TEST_F( Profiles, onlyAPrecedenceChangeOfTheInterfaceProfileIsTakenUp ) {
   profile( "a", {} );
   profile( "b", {} );
   enterWith( { { "Ethernet1", "a" } } );
   auto const member = state_.intfToGroup->intfToGroup( Lumo::IntfId( "Ethernet1" ) );
   member->profileChangeCauseIs( ProfileChangeCause::configuration );
   member->selectedProfileIs( ProfileType::interface, { Kel::String8( "b" ) } );
   advance( 0 );
   EXPECT_EQ( profileOf( "Ethernet1" ), "a" );
   member->profileChangeCauseIs( ProfileChangeCause::precedence );
   member->selectedProfileIs( ProfileType::unknown, { Kel::String8( "b" ) } );
   advance( 0 );
   EXPECT_EQ( profileOf( "Ethernet1" ), "a" );
   select( "Ethernet1", "a" );
   EXPECT_EQ( profileOf( "Ethernet1" ), "a" );
   select( "Ethernet1", "b" );
   EXPECT_EQ( profileOf( "Ethernet1" ), "a" );  // not within the notification
   advance( 0 );
   EXPECT_EQ( profileOf( "Ethernet1" ), "b" );
}

TEST_F( Profiles, anotherObjectOfTheSameNameIsAChangeAndTheSameOneIsNone ) {
   profile( "a", {} );
   enterWith( { { "Ethernet1", "a" } } );
   profile( "a", { .thresholdKbps = 0 } );  // the same, with other values
   EXPECT_THAT( logged_, IsEmpty() );
   Kel::Ptr<IntfMaintenanceProfile::Config> const another( new IntfMaintenanceProfile::Config( Kel::String8( "a" ) ) );
   another->sampleIntervalIs( 1 );
   another->rateMonThresholdInKbpsIs( 100 );
   state_.profiles->configIs( another );
   EXPECT_THAT( logged_, ElementsAre( changed( "Ethernet1", "a", "a" ) ) );
   EXPECT_EQ( counter( "numIntfMonPendingProfileResolved" ), 0u );
   advance( 1_s );
   EXPECT_TRUE( enterComplete( "fabric" ) );
}

// A unit that joins or leaves a monitored interface brings the selection of that moment.
TEST_F( Profiles, aUnitThatComesOrGoesAppliesTheSelectionOfTheMoment ) {
   profile( "strict", { .thresholdKbps = 1 } );
   enterWith( { { "Ethernet1", "#DEFAULTPROFILE" } } );
   unit( "north", { "Ethernet1" } );
   advance( 0 );  // the tracker has nothing left to do
   auto const member = state_.intfToGroup->intfToGroup( Lumo::IntfId( "Ethernet1" ) );
   member->profileChangeCauseIs( ProfileChangeCause::unknown );
   member->selectedProfileIs( ProfileType::interface, { Kel::String8( "strict" ) } );
   enter( "north" );
   EXPECT_EQ( profileOf( "Ethernet1" ), "strict" );
   member->profileChangeCauseIs( ProfileChangeCause::unknown );
   member->selectedProfileIs( ProfileType::interface, { Kel::String8( "#DEFAULTPROFILE" ) } );
   exit( "north" );
   EXPECT_EQ( profileOf( "Ethernet1" ), "#DEFAULTPROFILE" );
   EXPECT_THAT( logged_, ElementsAre( changed( "Ethernet1", "strict", "#DEFAULTPROFILE" ),
                                      changed( "Ethernet1", "#DEFAULTPROFILE", "strict" ) ) );
}

// --- What a change does
// -------------------------------------------------------------------------------------------------

// Under maintenance the flag counts at once, whether it changes in the profile or comes with another one.
TEST_F( Profiles, shutdownUnderMaintenanceIsDoneAndUndoneAtOnce ) {
   profile( "watch", {} );
   profile( "down", { .shutdown = true, .maxDelay = 600 } );
   enterWith( { { "Ethernet1", "watch" } } );
   advance( 30_s );
   ASSERT_TRUE( enterComplete( "fabric" ) );
   finishEnter( "fabric" );
   auto const samplesIn = [this]( double seconds ) {
      auto const before = monitored( "Ethernet1" )->totalSamples();
      advance( seconds );
      return monitored( "Ethernet1" )->totalSamples() - before;
   };
   auto const switchTo = [this]( bool byFlag, bool down ) {
      if( byFlag ) {
         profile( "watch", { .shutdown = down } );
      } else {
         select( "Ethernet1", down ? "down" : "watch" );
         advance( 0 );
      }
   };
   for( bool const byFlag : { true, false } ) {
      SCOPED_TRACE( byFlag ? "the flag changes" : "another profile is selected" );
      switchTo( byFlag, true );
      EXPECT_TRUE( shutDown( "Ethernet1" ) );
      EXPECT_EQ( samplesIn( 60_s ), 0u );
      switchTo( byFlag, false );
      EXPECT_FALSE( shutDown( "Ethernet1" ) );
      EXPECT_EQ( samplesIn( 19_s ), 0u );  // sampled again from now on
      EXPECT_EQ( samplesIn( 1_s ), 1u );
   }
}

}  // namespace Test

// The stage protocol: what starts and ends a unit's monitoring, and when a completion is reported.
#include "DrainStory.h"

namespace Test {

class Stages : public DrainStory {
 protected:
   // Publishes a progress record by hand.
   void progress( Maintenance::StageState const & stage, std::string const & instanceName, std::string const & name,
                  bool active ) {
      stage.completion->statusIs( Kel::Name( instanceName ) );
      stage.progress->progressIs( Kel::Name( instanceName ) )->stageIs( name, active );
      advance( 0 );
   }
};

TEST_F( Stages, aRecordThatArrivesWholeIsNotLost ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   Kel::Ptr<Stage::Progress> const whole( new Stage::Progress( "fabric#1" ) );
   whole->stageIs( "ratemon", true );
   state_.enter.progress->progressIs( whole );
   EXPECT_EQ( counter( "numMaintEnter" ), 1u );
   EXPECT_TRUE( monitored( "Ethernet1" ) );
}

TEST_F( Stages, aSecondEnterRunsTheExitFirstAndStartsAfresh ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   progress( state_.enter, "fabric#3", "ratemon", true );
   advance( 20_s );
   progress( state_.enter, "fabric#4", "ratemon", true );
   EXPECT_EQ( counter( "numMaintEnterUnitMonPresent" ), 1u );
   EXPECT_EQ( counter( "numNoNotifyNoStageInput" ), 1u );  // no exit instance of generation 4
   EXPECT_EQ( monitored( "Ethernet1" )->totalSamples(), 0u );
   advance( 30_s );
   EXPECT_FALSE( state_.enter.agentStatus->complete( { "ratemon", "fabric#3" } ) );
   EXPECT_TRUE( state_.enter.agentStatus->complete( { "ratemon", "fabric#4" } ) );
}

TEST_F( Stages, marksGoWithTheirInstance ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   enter( "fabric" );
   advance( 30_s );
   ASSERT_TRUE( enterComplete( "fabric" ) );
   state_.enter.completion->statusDel( instance( "fabric", 1 ) );
   EXPECT_FALSE( enterComplete( "fabric" ) );
}

TEST_F( Stages, aMalformedInstanceNameIsRefusedToWhoeverWroteIt ) {
   start();
   EXPECT_THROW( progress( state_.enter, "a#b#3", "ratemon", true ), Kel::InternalException );
}

}  // namespace Test

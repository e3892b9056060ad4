// From stage to stage: what ends one, what a deadline does, and how a stay ends.
#include "Box.h"

namespace Service {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Stages : public Box {
 protected:
   // Both ways with a program around the built-in stages, which has these limits.
   static std::string withPrograms( std::string const & limits = "" ) {
      return "  maintEnter: [ { name: bgp, run: [/bgp, enter]" + limits +
             " }, { name: ratemon }, { name: verify } ]\n"
             "  maintExit: [ { name: ratemon }, { name: bgp, run: [/bgp, exit]" +
             limits + " } ]\n";
   }
   void expectCleanedUp( std::string const & unit ) {
      EXPECT_EQ( state( unit ), State::active );
      EXPECT_EQ( stageRecords(), 0u );
      EXPECT_EQ( service_->ledger().accounts()->units(), 0u );
      EXPECT_EQ( state_.monIntfStatus->monIntfStatuss(), 0u );
   }
   // up1 is found drained, then carries 3 Mbps again until 1055, while up2 drains: at 1060 "ratemon" is over, and by
   // 1110 up1 has been quiet for 40 s.
   void trafficMovesToTheDrainedLink() {
      traffic( "up2", 1 * Mbps );
      enter( "fabric" );
      advance( 30 );
      traffic( "up2", 0 );
      advance( 1 );
      traffic( "up1", 3 * Mbps );
      advance( 24 );
      traffic( "up1", 0 );
      advance( 5 );
   }
};

TEST_F( Stages, aUnitGoesInAndOutAndLeavesNothingBehindButItsWindow ) {
   begin( fileWith( "" ) );
   EXPECT_EQ( enter( "fabric" ).generation, 1u );
   advance( 29 );
   EXPECT_EQ( state( "fabric" ), State::entering );
   EXPECT_EQ( stage( "fabric" ), "ratemon" );
   EXPECT_EQ( enter( "fabric" ).outcome, Requested::already );
   advance( 1 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_EQ( stage( "fabric" ), "" );
   EXPECT_EQ( stageRecords(), 0u );
   EXPECT_EQ( enter( "fabric" ).outcome, Requested::already );
   advance( 60 );
   EXPECT_EQ( exit( "fabric" ).generation, 2u );
   expectCleanedUp( "fabric" );
   EXPECT_EQ( exit( "fabric" ).outcome, Requested::already );

   auto const w = window( "fabric" );
   EXPECT_EQ( w->windowName(), "fabric#1" );
   EXPECT_EQ( w->requestedBy(), "ann" );
   EXPECT_EQ( w->exitRequestedBy(), "bob" );
   EXPECT_EQ( w->exitGeneration(), 2u );
   EXPECT_EQ( w->requested(), 1000 );
   EXPECT_EQ( w->entered(), 1030 );
   EXPECT_EQ( w->exitRequested(), 1090 );
   EXPECT_EQ( w->ended(), 1090 );
   EXPECT_EQ( w->outcome(), Ended::completed );
   EXPECT_EQ( stages( "fabric" ), "ratemon done, verify done, ratemon done" );
   EXPECT_EQ( *w->intf( Lumo::IntfId( "up1" ) )->verdictAt( 1 ), Verdict::quiet );
   EXPECT_THAT( events( "state" ),
                ElementsAre( "fabric: entering", "fabric: inMaintenance", "fabric: leaving", "fabric: active" ) );
   EXPECT_THAT( events( "ready" ), ElementsAre( "fabric: every interface is proven quiet" ) );
}

// What becomes of the unit when "verify" may take this long and no longer, with readiness 50 s after it began.
struct LateCase {
   char const * timeout;
   char const * onTimeout;
   State at1109;
   State at1110;
   char const * stages;
   Ended outcome;
};
class LateVerify : public Stages, public ::testing::WithParamInterface<LateCase> {};

TEST_P( LateVerify, isDoneAtItsVeryDeadlineAndLateBeforeIt ) {
   LateCase const & c = GetParam();
   begin( fileWith( std::string( "  maintEnter: [ { name: ratemon }, { name: verify, timeout: " ) + c.timeout +
                    ", on-timeout: " + c.onTimeout + " } ]\n" ) );
   trafficMovesToTheDrainedLink();
   advance( 49 );
   EXPECT_EQ( state( "fabric" ), c.at1109 );
   advance( 1 );
   EXPECT_EQ( state( "fabric" ), c.at1110 );
   exit( "fabric" );
   EXPECT_EQ( stages( "fabric" ), c.stages );
   EXPECT_EQ( window( "fabric" )->outcome(), c.outcome );
   expectCleanedUp( "fabric" );
}

INSTANTIATE_TEST_SUITE_P(
   All, LateVerify,
   ::testing::Values( LateCase{ "50s", "rollback", State::entering, State::inMaintenance,
                                "ratemon done, verify done, ratemon done", Ended::completed },
                      LateCase{ "50s", "continue", State::entering, State::inMaintenance,
                                "ratemon done, verify done, ratemon done", Ended::completed },
                      LateCase{ "49s", "rollback", State::active, State::active,
                                "ratemon done, verify timed out, ratemon done", Ended::rolledBack },
                      LateCase{ "49s", "continue", State::inMaintenance, State::inMaintenance,
                                "ratemon done, verify timed out, ratemon done", Ended::deadline },
                      LateCase{ "49s", "hold", State::entering, State::inMaintenance,
                                "ratemon done, verify done, ratemon done", Ended::completed } ) );

TEST_F( Stages, aHeldStageTellsOfItsDeadlineOnceAndWaits ) {
   begin( fileWith( "  maintEnter: [ { name: ratemon, timeout: 20s, on-timeout: hold }, { name: verify } ]\n" ) );
   traffic( "up1", 1 * Mbps );
   enter( "fabric" );
   advance( 19 );
   EXPECT_THAT( events( "deadline" ), IsEmpty() );
   advance( 1 );
   EXPECT_THAT( events( "deadline" ), ElementsAre( "fabric: ratemon is not over after 20 s: it goes on waiting" ) );
   advance( 600 );
   enter( "rack" );  // whatever else goes on
   EXPECT_EQ( events( "deadline" ).size(), 1u );
   EXPECT_EQ( window( "fabric" )->stageRun( 0 )->deadlinePassed, 1020 );
   EXPECT_EQ( state( "fabric" ), State::entering );
   traffic( "up1", 0 );
   advance( 60 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
}

TEST_F( Stages, programsRunInTheirPlaceOneAfterTheOther ) {
   begin( fileWith( withPrograms() ) );
   enter( "fabric" );
   enter( "rack" );
   EXPECT_THAT( programs_.started, ElementsAre( "bgp enter fabric 1", "bgp enter rack 1" ) );
   advance( 100 );
   EXPECT_EQ( stage( "fabric" ), "bgp" );
   EXPECT_FALSE( monitored( "up1" ) );
   programEnds( "fabric" );
   EXPECT_EQ( stage( "fabric" ), "ratemon" );
   EXPECT_EQ( stage( "rack" ), "bgp" );
   advance( 30 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   exit( "fabric" );
   EXPECT_EQ( stage( "fabric" ), "bgp" );
   EXPECT_EQ( programs_.started.back(), "bgp exit fabric 2" );
   EXPECT_EQ( enter( "fabric" ).outcome, Requested::refused );
   programEnds( "fabric" );
   EXPECT_EQ( window( "fabric" )->outcome(), Ended::completed );
   EXPECT_EQ( state( "fabric" ), State::active );
}

TEST_F( Stages, aProgramThatFailsOnTheWayInBringsTheUnitBack ) {
   begin( fileWith( withPrograms() ) );
   enter( "fabric" );
   programEnds( "fabric", "exit status 1" );
   EXPECT_EQ( stage( "fabric" ), "bgp" );
   EXPECT_EQ( state( "fabric" ), State::leaving );
   programEnds( "fabric" );
   EXPECT_EQ( stages( "fabric" ), "bgp failed, ratemon done, bgp done" );
   EXPECT_EQ( window( "fabric" )->outcome(), Ended::rolledBack );
   EXPECT_THAT( events( "stage" ), ::testing::Contains( "fabric: bgp: failed after 0 s: exit status 1" ) );
   expectCleanedUp( "fabric" );
}

TEST_F( Stages, aProgramThatFailsOnTheWayOutFailsTheUnitUntilALaterExit ) {
   begin( fileWith( withPrograms() ) );
   enter( "fabric" );
   programEnds( "fabric" );
   advance( 30 );
   exit( "fabric" );
   advance( 5 );
   programEnds( "fabric", "exit status 1" );
   EXPECT_EQ( state( "fabric" ), State::failed );
   EXPECT_EQ( window( "fabric" )->outcome(), Ended::failed );
   EXPECT_EQ( window( "fabric" )->ended(), 1035 );
   EXPECT_EQ( stageRecords(), 0u );
   EXPECT_EQ( service_->ledger().accounts()->units(), 0u );
   advance( 10 );
   EXPECT_EQ( exit( "fabric" ).generation, 3u );
   EXPECT_EQ( stages( "fabric" ),
              "bgp done, ratemon done, verify done, ratemon done, bgp failed, ratemon done, "
              "bgp running" );
   EXPECT_TRUE( service_->ledger().accounts()->unit( "fabric" ) );
   programEnds( "fabric" );
   expectCleanedUp( "fabric" );
   EXPECT_EQ( service_->ledger().windows()->windows(), 1u );
   EXPECT_EQ( window( "fabric" )->outcome(), Ended::failed );
   EXPECT_EQ( window( "fabric" )->ended(), 1035 );
}

// What a program that fails, or is not over after 20 s, does to the unit on either way.
struct BadProgram {
   char const * limits;
   bool late;
   char const * enterStages;
   char const * enterWhy;
   State left;
   char const * exitStage;
   Ended outcome;
};
class BadPrograms : public Stages, public ::testing::WithParamInterface<BadProgram> {
 protected:
   void itGoesBadly() {
      if( GetParam().late ) return advance( 20 );
      programEnds( "fabric", "exit status 1" );
   }
};

TEST_P( BadPrograms, failTheirStageByItsWord ) {
   BadProgram const & c = GetParam();
   begin( fileWith( withPrograms( c.limits ) ) );
   enter( "fabric" );
   itGoesBadly();
   EXPECT_EQ( programs_.givenUp.size(), c.late ? 1u : 0u );
   EXPECT_EQ( window( "fabric" )->stageRun( 0 )->why, c.enterWhy );
   advance( 15 );
   if( stage( "fabric" ) == "bgp" ) programEnds( "fabric" );  // it was run again
   advance( 30 );
   EXPECT_EQ( state( "fabric" ), State::inMaintenance );
   EXPECT_EQ( stages( "fabric" ), c.enterStages );
   exit( "fabric" );
   itGoesBadly();
   EXPECT_EQ( state( "fabric" ), c.left );
   EXPECT_EQ( stages( "fabric" ), c.enterStages + std::string( ", ratemon done, bgp " ) + c.exitStage );
   EXPECT_EQ( window( "fabric" )->stageRun( 4 )->why, c.enterWhy );
   EXPECT_EQ( window( "fabric" )->outcome(), c.outcome );
}

INSTANTIATE_TEST_SUITE_P(
   All, BadPrograms,
   ::testing::Values( BadProgram{ ", on-timeout: continue", false, "bgp failed, ratemon done, verify done",
                                  "exit status 1", State::active, "failed", Ended::deadline },
                      BadProgram{ ", timeout: 20s, on-timeout: continue", true,
                                  "bgp timed out, ratemon done, verify done", "not over after 20 s", State::active,
                                  "timed out", Ended::deadline },
                      BadProgram{ ", timeout: 20s, on-timeout: hold", false, "bgp done, ratemon done, verify done",
                                  "exit status 1", State::failed, "failed", Ended::failed },
                      BadProgram{ ", timeout: 20s, on-timeout: hold", true, "bgp done, ratemon done, verify done",
                                  "not over after 20 s", State::failed, "timed out", Ended::failed } ) );

TEST_F( Stages, aProgramThatIsLateBringsTheUnitBack ) {
   begin(
      fileWith( "  maintEnter: [ { name: bgp, run: [/bgp], timeout: 20s }, { name: ratemon }, { name: verify } ]\n" ) );
   enter( "fabric" );
   advance( 20 );
   EXPECT_EQ( stages( "fabric" ), "bgp timed out, ratemon done" );
   EXPECT_EQ( window( "fabric" )->stageRun( 0 )->why, "not over after 20 s" );
   EXPECT_THAT( events( "deadline" ), ElementsAre( "fabric: bgp is not over after 20 s: the unit is brought back" ) );
   EXPECT_EQ( window( "fabric" )->outcome(), Ended::rolledBack );
   expectCleanedUp( "fabric" );
}

TEST_F( Stages, aHeldProgramIsRunAgainMoreAndMoreSeldomUntilItGoesWellOrTheUnitLeaves ) {
   begin( fileWith( withPrograms( ", timeout: 20s, on-timeout: hold" ) ) );
   enter( "fabric" );
   auto const runs = [this] { return std::ranges::count( programs_.started, "bgp enter fabric 1" ); };
   for( double const pause : { 10, 20, 40, 80, 160, 300, 300 } ) {
      programEnds( "fabric", "no" );
      auto const before = runs();
      enter( "rack" );  // whatever else goes on
      exit( "rack" );
      advance( pause - 1 );
      EXPECT_EQ( runs(), before ) << pause;
      advance( 1 );
      EXPECT_EQ( runs(), before + 1 ) << pause;
   }
   programs_.givenUp.clear();
   EXPECT_THAT( events( "stage" ), ::testing::Contains( "fabric: bgp: no: it is run again in 5 min" ).Times( 2 ) );
   EXPECT_EQ( stages( "fabric" ), "bgp running" );
   // It has all its time each time.
   advance( 19 );
   EXPECT_THAT( programs_.givenUp, IsEmpty() );
   advance( 1 );
   EXPECT_THAT( programs_.givenUp, ElementsAre( "fabric" ) );
   EXPECT_THAT( events( "deadline" ),
                ::testing::Contains( "fabric: bgp: not over after 20 s: it is run again in 5 min" ) );
   EXPECT_EQ( window( "fabric" )->stageRun( 0 )->deadlinePassed, world_.now() );
   // A restart does not wait, and gives it all its time, too.
   crash();
   begin( fileWith( withPrograms( ", timeout: 20s, on-timeout: hold" ) ) );
   EXPECT_THAT( programs_.started, ElementsAre( "bgp enter fabric 1" ) );
   advance( 19 );
   EXPECT_THAT( programs_.givenUp, IsEmpty() );
   advance( 1 );
   EXPECT_THAT( programs_.givenUp, ElementsAre( "fabric" ) );
   exit( "fabric" );
   EXPECT_EQ( programs_.started.back(), "bgp exit fabric 2" );
   programEnds( "fabric" );
   advance( 400 );
   EXPECT_EQ( stages( "fabric" ), "bgp given up, ratemon done, bgp done" );
   expectCleanedUp( "fabric" );
}

TEST_F( Stages, theWindowOfAnExitThatIsTriedAgainStays ) {
   begin( fileWith( "  maintExit: [ { name: ratemon }, { name: bgp, run: [/bgp] } ]\n" ) );
   for( char const * failure : { "no", "" } ) {
      if( *failure ) enter( "fabric" );
      exit( "fabric" );
      if( *failure ) programEnds( "fabric", failure );
   }
   for( int i = 0; i < 100; ++i ) {
      advance( 1 );
      enter( "rack" );
      exit( "rack" );
      programEnds( "rack" );
   }
   EXPECT_EQ( window( "fabric" )->windowName(), "fabric#1" );
   programEnds( "fabric" );
   EXPECT_EQ( state( "fabric" ), State::active );
}

TEST_F( Stages, aServiceThatEndsGivesItsProgramsUp ) {
   begin( fileWith( withPrograms() ) );
   enter( "rack" );
   enter( "fabric" );
   programEnds( "rack" );
   end();
   EXPECT_THAT( programs_.givenUp, ElementsAre( "fabric" ) );
}

TEST_F( Stages, anExitGivesUpAnEntryThatIsStillWaiting ) {
   begin( fileWith( withPrograms() ) );
   enter( "fabric" );
   EXPECT_EQ( exit( "fabric" ).outcome, Requested::started );
   EXPECT_THAT( programs_.givenUp, ElementsAre( "fabric" ) );
   programEnds( "fabric" );
   EXPECT_EQ( stages( "fabric" ), "bgp given up, ratemon done, bgp done" );
   EXPECT_EQ( window( "fabric" )->outcome(), Ended::abandoned );
   expectCleanedUp( "fabric" );

   enter( "fabric" );
   programEnds( "fabric" );
   advance( 15 );
   EXPECT_EQ( stage( "fabric" ), "ratemon" );
   exit( "fabric" );
   EXPECT_EQ( *window( "fabric" )->intf( Lumo::IntfId( "up1" ) )->verdictAt( 1 ), Verdict::quiet );
   programEnds( "fabric" );
   expectCleanedUp( "fabric" );
}

// Asks for something from inside the write of the unit's state.
class OnState final : public Maintenance::Unit::Status::NotifieeConst {
 public:
   OnState( Kel::Ptr<Maintenance::Unit::Status const> const & unit, State state, std::function<void()> ask )
      : state_( state ), ask_( std::move( ask ) ) {
      notifierIs( unit );
   }
   void onState() override {
      if( notifier()->state() == state_ ) std::exchange( ask_, [] {} )();
   }

 private:
   State const state_;
   std::function<void()> ask_;
};

TEST_F( Stages, whoHearsOfAStateMayAskForTheNextAtOnce ) {
   struct Case {
      State on;
      bool ask;  // to enter; else to leave
      Requested answered;
      State then;
      Ended first;
   };
   begin( fileWith( "" ) );
   for( Case const & c : { Case{ State::entering, false, Requested::started, State::active, Ended::abandoned },
                           Case{ State::entering, true, Requested::already, State::inMaintenance, Ended::underway },
                           Case{ State::inMaintenance, false, Requested::started, State::active, Ended::completed },
                           Case{ State::leaving, true, Requested::refused, State::active, Ended::completed },
                           Case{ State::leaving, false, Requested::already, State::active, Ended::completed },
                           Case{ State::active, true, Requested::started, State::inMaintenance, Ended::completed } } ) {
      SCOPED_TRACE( std::string( enumName( c.on ) ) + ( c.ask ? " enter" : " exit" ) );
      auto & units = service_->units();
      Requested answered = Requested::unknownUnit;
      OnState const asks( state_.unitStatus->status( "fabric" ), c.on, [&] {
         answered = c.ask ? units.enter( "fabric", {}, "handler" ).outcome : units.exit( "fabric", "handler" ).outcome;
      } );
      enter( "fabric" );
      auto const first = window( "fabric" );
      advance( 40 );
      if( c.on == State::leaving || c.on == State::active ) exit( "fabric" );
      advance( 60 );
      EXPECT_EQ( answered, c.answered );
      EXPECT_EQ( state( "fabric" ), c.then );
      EXPECT_EQ( first->outcome(), c.first );
      EXPECT_EQ( stageRecords(), 0u );
      EXPECT_EQ( service_->ledger().accounts()->units(), c.then == State::active ? 0u : 1u );
      if( c.then != State::active ) exit( "fabric" );
      expectCleanedUp( "fabric" );
   }
}

TEST_F( Stages, theLast100WindowsStayAndNeverOneUnderWayGoes ) {
   begin( fileWith( "" ) );
   enter( "rack" );
   for( int i = 0; i < 100; ++i ) {
      advance( 1 );
      enter( "fabric" );
      exit( "fabric" );
   }
   auto const & windows = service_->ledger().windows();
   EXPECT_EQ( windows->windows(), 100u );
   EXPECT_TRUE( windows->window( "rack#1" ) );
   EXPECT_FALSE( windows->window( "fabric#1" ) );
   EXPECT_TRUE( windows->window( "fabric#3" ) );
   exit( "rack" );
   enter( "fabric" );
   EXPECT_EQ( windows->windows(), 100u );
   // Rack's ended last, however long ago it began.
   EXPECT_TRUE( windows->window( "rack#1" ) );
   EXPECT_FALSE( windows->window( "fabric#3" ) );
}

}  // namespace
}  // namespace Service

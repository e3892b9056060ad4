// Stories with the clock in hand: the moment at which a unit is ready, and the last one at which it is not.
//
// Each story is told to a box of its own that starts at 1000 s, so that sample times are whole seconds unless the story
// says otherwise. Intervals of samples are of 5 s, and the threshold is 100 kbps, where nothing else is said.
#include <gmock/gmock.h>

#include <boost/json.hpp>
#include <sstream>

#include "scenario/Scenario.h"

namespace Lives {

namespace json = boost::json;

namespace {

constexpr double microsecond = 1e-6;     // s
constexpr unsigned threshold = 100'000;  // bit/s

struct Box {
   std::string load = "10s";
   std::string sample = "5s";
   std::string more = {};    // of the profile
   std::string verify = {};  // of that stage, after its name
};

}  // namespace

class Boundaries : public ::testing::Test {
 protected:
   json::object say( std::string const & line ) {
      printed_.str( {} );
      scenario_.line( line );
      json::object last;
      std::istringstream answers( printed_.str() );
      for( std::string answer; std::getline( answers, answer ); ) last = json::parse( answer ).as_object();
      return last;
   }
   void config( Box const & box ) {
      say(
         R"({"config": {"profiles": {"p": {"threshold": "100kbps", "sample-interval": ")" + box.sample +
         R"(", "load-interval": ")" + box.load + "\"" + box.more +
         R"(}}, "default-profile": "p", "groups": {"g": {"interfaces": ["eth0"]}}, "units": {"u": {"groups": ["g"]}}, )"
         R"("stages": {"maintEnter": [{"name": "ratemon"}, {"name": "verify")" +
         box.verify + R"(}], "maintExit": [{"name": "ratemon"}]}}})" );
   }
   void link( std::string const & state ) { say( R"({"link": {"eth0": )" + state + "}}" ); }
   void up() { link( "\"up\"" ); }
   void down() { link( "\"down\"" ); }
   void traffic( double bitsPerSecond, char const * way = "in" ) {
      say( R"({"traffic": {"eth0": {")" + std::string( way ) + "\": " + std::to_string( bitsPerSecond ) + "}}}" );
   }
   void start() { say( R"({"start": {}})" ); }
   void crash() { say( R"({"crash": {}})" ); }
   void enter() { EXPECT_EQ( say( R"({"enter": "u"})" ).at( "result" ), "started" ); }
   void advance( double seconds ) { world_.advance( seconds ); }
   void advanceTo( double time ) { world_.advance( time - world_.now() ); }

   // A box on which all is well and quiet.
   void quietBox( Box const & box = {} ) {
      config( box );
      up();
      start();
   }

   bool ready() { return say( R"({"ready": "u"})" ).at( "ready" ).as_bool(); }
   json::object status() { return say( R"({"status": "u"})" ).at( "status" ).as_object(); }
   std::string state() { return std::string( status().at( "state" ).as_string() ); }
   json::value account( char const * what ) { return status().at( "interfaces" ).at( 0 ).at( what ); }
   std::string verdict() { return std::string( account( "verdict" ).as_string() ); }

   // Not a microsecond before the time, and at the time.
   void expectReadyAt( double time ) {
      advanceTo( time - microsecond );
      EXPECT_FALSE( ready() ) << "before " << time;
      advanceTo( time );
      EXPECT_TRUE( ready() ) << "at " << time << ", " << verdict();
   }

 protected:
   std::ostringstream printed_;
   Sim::World world_{ RATEMON_PLUGIN_PATH, 1000 };
   Sim::Scenario scenario_{ world_, printed_ };
};

// Thresholds

class AtTheThreshold : public Boundaries, public ::testing::WithParamInterface<char const *> {};

TEST_P( AtTheThreshold, isLoudAndOneOctetLessIsQuiet ) {
   quietBox();
   traffic( threshold, GetParam() );
   enter();
   advance( 5 );
   EXPECT_EQ( verdict(), "loud" );
   traffic( threshold - 8, GetParam() );
   expectReadyAt( 1015 );
   EXPECT_EQ( account( "quietSince" ).to_number<double>(), 1005 );
   EXPECT_EQ( state(), "inMaintenance" );
}
INSTANTIATE_TEST_SUITE_P( Ways, AtTheThreshold, ::testing::Values( "in", "out" ) );

// Load intervals

TEST_F( Boundaries, aLoadIntervalThatIsMissedByAMicrosecond ) {
   quietBox( { .load = "5s" } );
   advance( microsecond );
   enter();
   // The timer may be a microsecond early, and the plug-in counts samples: for it, the link has drained.
   advanceTo( 1005 );
   EXPECT_EQ( status().at( "stage" ), "verify" );
   EXPECT_FALSE( ready() );
   expectReadyAt( 1015 );  // passive by now
   EXPECT_EQ( state(), "inMaintenance" );
}

struct Odd {
   double offset;
   char const * load;
   double ready;
};
class OddTimes : public Boundaries, public ::testing::WithParamInterface<Odd> {};

TEST_P( OddTimes, areMeasuredFromTheFirstSample ) {
   quietBox( { .load = GetParam().load, .sample = "3s" } );
   advance( GetParam().offset );
   enter();
   expectReadyAt( GetParam().ready );
   EXPECT_NEAR( account( "quietSince" ).to_number<double>(), 1000 + GetParam().offset, microsecond / 2 );
}
INSTANTIATE_TEST_SUITE_P( Table, OddTimes,
                          ::testing::Values( Odd{ 0, "6s", 1006 }, Odd{ 0, "7s", 1009 }, Odd{ 0.3, "6s", 1007 },
                                             Odd{ 0.3, "7s", 1010 }, Odd{ 0.9, "7s", 1010 }, Odd{ 0.9, "6s", 1007 },
                                             Odd{ 0.3, "0s", 1004 }, Odd{ 0, "0s", 1003 } ) );

// Samples that are no readings

TEST_F( Boundaries, aBreakInTheVeryLastReadingBeginsTheRunAnew ) {
   quietBox( { .load = "30s" } );
   enter();
   advanceTo( 1025 );
   traffic( 2 * threshold );
   advanceTo( 1030 );
   EXPECT_EQ( verdict(), "loud" );
   traffic( 0 );
   expectReadyAt( 1060 );
   EXPECT_EQ( account( "breaks" ), 1 );
}

// What was carried while nobody could read it shows in the sample after, which is none that proves anything.
TEST_F( Boundaries, countersThatCannotBeReadInTheVeryLastSample ) {
   quietBox();
   enter();
   advanceTo( 1007 );
   say( R"({"unread": ["eth0"]})" );
   advanceTo( 1010 );
   EXPECT_EQ( verdict(), "waiting" );
   say( R"({"unread": []})" );
   // Drained for the plug-in, so the samples are 10 s apart. At 1020 the counters are fresh, but were not at 1010.
   advanceTo( 1020 );
   EXPECT_FALSE( ready() );
   expectReadyAt( 1030 );
}

TEST_F( Boundaries, countersThatRestartInTheVeryLastSample ) {
   quietBox();
   enter();
   advanceTo( 1010 - microsecond );
   say( R"({"restartCounters": ["eth0"]})" );
   advanceTo( 1010 );
   EXPECT_EQ( verdict(), "waiting" );
   expectReadyAt( 1020 );
}

TEST_F( Boundaries, aFlapThatTakesNoTimeAtAll ) {
   quietBox();
   enter();
   advanceTo( 1007 );
   say( R"({"batch": [{"link": {"eth0": "down"}}, {"link": {"eth0": "up"}}]})" );
   EXPECT_EQ( verdict(), "waiting" );
   advanceTo( 1010 );
   EXPECT_EQ( verdict(), "waiting" );
   expectReadyAt( 1020 );
}

// Deadlines

TEST_F( Boundaries, aUnitThatIsReadyAtItsDeadlineIsReady ) {
   quietBox( { .load = "5s", .verify = R"(, "timeout": "10s", "on-timeout": "rollback")" } );
   advance( microsecond );
   enter();
   advanceTo( 1015 );
   EXPECT_EQ( state(), "inMaintenance" );
}

class DownAtTheDeadline : public Boundaries,
                          public ::testing::WithParamInterface<std::pair<char const *, char const *>> {};

// Nothing is monitored, so "verify" begins with the request, 3 s after the link went.
TEST_P( DownAtTheDeadline, isReadyFirst ) {
   config( { .verify = ", \"timeout\": \"" + std::string( GetParam().first ) + R"(", "on-timeout": "rollback")" } );
   down();
   start();
   advance( 3 );
   enter();
   advanceTo( 1010 );
   EXPECT_EQ( state(), GetParam().second );
}
INSTANTIATE_TEST_SUITE_P( Table, DownAtTheDeadline,
                          ::testing::Values( std::pair( "7s", "inMaintenance" ), std::pair( "6.999999s", "active" ) ) );

// Links that are down

class DownSince : public Boundaries, public ::testing::WithParamInterface<int> {};

TEST_P( DownSince, settlesAfterExactlyTheLoadInterval ) {
   quietBox( { .load = "7s" } );
   advance( 0.137 * GetParam() );
   enter();
   down();
   double const settled = world_.now() + 7;
   advance( 7 - microsecond );
   EXPECT_EQ( verdict(), "down" );
   EXPECT_FALSE( ready() );
   advanceTo( settled );
   EXPECT_TRUE( ready() );
}
INSTANTIATE_TEST_SUITE_P( Times, DownSince, ::testing::Range( 0, 40 ) );

// What is known grows old

TEST_F( Boundaries, aReadingThatIsTooOldWaitsForTheNextWhichGoesOnWithTheRun ) {
   quietBox( { .load = "30s", .sample = "30s" } );
   enter();
   expectReadyAt( 1030 );
   advance( 1 );
   // From now on a reading is fresh for twice 2 s and a second; the timer still goes by the old interval.
   config( { .load = "30s", .sample = "1s" } );
   advanceTo( 1035 );
   EXPECT_TRUE( ready() );
   advance( microsecond );
   EXPECT_FALSE( ready() );
   EXPECT_EQ( verdict(), "waiting" );
   expectReadyAt( 1090 );
   EXPECT_EQ( account( "quietSince" ), 1000 );
}

TEST_F( Boundaries, aReadingGrowsOldAlsoWhileAnotherLinkIsSampledEverySecond ) {
   auto const sampledEvery = [&]( std::string const & sample ) {
      say( R"({"config": {"profiles": {"p": {"threshold": "100kbps", "load-interval": "30s", "sample-interval": ")" +
           sample +
           R"("}, "q": {"threshold": "100kbps", "load-interval": "5s", "sample-interval": "1s"}}, )"
           R"("default-profile": "p", "units": {"u": {"groups": ["g", "h"]}}, )"
           R"("groups": {"g": {"interfaces": ["eth0"]}, "h": {"interfaces": ["eth1"], "profile": "q"}}}})" );
   };
   sampledEvery( "30s" );
   say( R"({"link": {"eth0": "up", "eth1": "up"}})" );
   start();
   enter();
   expectReadyAt( 1030 );
   advance( 1 );
   sampledEvery( "1s" );
   advanceTo( 1035 );
   EXPECT_TRUE( ready() );
   advance( microsecond );
   EXPECT_EQ( verdict(), "waiting" );
   EXPECT_FALSE( ready() );
   expectReadyAt( 1090 );
}

TEST_F( Boundaries, aRestartBeginsWithAFirstSample ) {
   quietBox( { .load = "5s" } );
   enter();
   expectReadyAt( 1005 );
   advanceTo( 1007 );
   crash();
   traffic( 100 * threshold );
   advance( 3 );
   traffic( 0 );
   start();
   EXPECT_FALSE( ready() );
   EXPECT_EQ( verdict(), "waiting" );
   expectReadyAt( 1020 );  // one passive interval later
   EXPECT_EQ( account( "quietSince" ), 1010 );
}

// Traffic that comes back

TEST_F( Boundaries, trafficIsBackWhenItIsMeasuredAndNotBefore ) {
   quietBox( { .load = "5s" } );
   enter();
   expectReadyAt( 1005 );
   traffic( threshold );
   advanceTo( 1015 - microsecond );
   EXPECT_FALSE( status().at( "disturbed" ).as_bool() );
   EXPECT_TRUE( ready() );
   advanceTo( 1015 );
   EXPECT_TRUE( status().at( "disturbed" ).as_bool() );
   EXPECT_FALSE( ready() );
   traffic( threshold - 8 );
   advanceTo( 1025 );
   EXPECT_FALSE( status().at( "disturbed" ).as_bool() );
   EXPECT_TRUE( ready() );
}

// Links that we hold down

TEST_F( Boundaries, aLinkThatIsHeldDownIsSettledAtOnceAndOneThatIsRaisedIsNot ) {
   quietBox( { .load = "30s", .more = R"(, "shutdown": true, "max-delay": "0s")" } );
   enter();
   EXPECT_EQ( verdict(), "held" );
   EXPECT_TRUE( ready() );
   EXPECT_EQ( state(), "inMaintenance" );
   up();
   EXPECT_EQ( verdict(), "unwatched" );
   EXPECT_FALSE( ready() );
   down();
   EXPECT_TRUE( ready() );
}

}  // namespace Lives

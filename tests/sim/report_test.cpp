// What a run leaves for people: the tables after it and the picture of it.
#include <cmath>
#include <map>
#include <random>
#include <regex>
#include <sstream>

#include "ScenarioFixture.h"
#include "report/Plot.h"
#include "report/Scales.h"
#include "report/Summary.h"

namespace Test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// Units of one interface each, by name; every 10 s, quiet for 30 s below 100 kbps.
class AfterRun : public ::testing::Test {
 protected:
   void run( std::string const & lines ) {
      std::istringstream in( lines );
      scenario_.run( in );
   }
   void unit( std::string const & name, std::string const & intf, std::string const & more = "" ) {
      run( R"({"set": ["maintenance/profile/config/interface","config",")" + name +
           R"("], "to": {"rateMonThresholdInKbps": 100, "sampleInterval": 10, "rateMonLoadInterval": 30)" + more +
           "}}" );
      run( R"({"set": ["interface/status/all","intfStatus",")" + intf + R"("], "to": {"operStatus": 1}})" );
      run( R"({"set": ["maintenance/mapping/member/interface","intfToGroup",")" + intf +
           R"("], "to": {"group": {"intf:)" + name + R"(": true}, "selectedProfile": {"2": ")" + name + "\"}}}" );
      run( R"({"set": ["group/status/interface","status",")" + name + R"("], "to": {"intf": {")" + intf +
           "\": true}}}" );
      run( R"({"set": ["maintenance/mapping/group","groupToUnit","intf:)" + name + R"("], "to": {"unitName": {")" +
           name + "\": true}}}" );
      run( R"({"set": ["maintenance/unit/status","status",")" + name + R"("], "to": {"state": 1, "group": {"intf:)" +
           name + "\": true}}}" );
   }
   void traffic( std::string const & intf, double inBits ) {
      run( "{\"traffic\": {\"" + intf + "\": {\"in\": " + std::to_string( inBits ) + "}}}" );
   }
   void enter( std::string const & name ) {
      run( R"({"set": ["maintenance/unit/status","status",")" + name +
           R"("], "to": {"genId": 1, "maintEnterInstanceName": ")" + name + "#1\", \"state\": 2}}" );
      run( R"({"set": ["stage/maintEnter/completionstatus","status",")" + name + "#1\"], \"to\": {}}" );
      run( R"({"set": ["stage/maintEnter/progress","progress",")" + name +
           "#1\"], \"to\": {\"stage\": {\"ratemon\": true}}}" );
   }
   void leave( std::string const & name ) {
      run( R"({"delete": ["stage/maintEnter/progress","progress",")" + name + "#1\"]}" );
      run( R"({"set": ["maintenance/unit/status","status",")" + name +
           R"("], "to": {"genId": 2, "maintExitInstanceName": ")" + name + "#2\", \"state\": 5}}" );
      run( R"({"set": ["stage/maintExit/completionstatus","status",")" + name + "#2\"], \"to\": {}}" );
      run( R"({"set": ["stage/maintExit/progress","progress",")" + name +
           "#2\"], \"to\": {\"stage\": {\"ratemon\": true}}}" );
   }
   void start() { run( "{\"start\": {}}" ); }
   void advance( double seconds ) { run( "{\"advance\": " + std::to_string( seconds ) + "}" ); }

   std::ostringstream out_;
   Sim::World world_{ RATEMON_PLUGIN_PATH, 1000 };
   Report::History history_{ world_.state(), world_.clock() };
   Sim::Scenario scenario_{ world_, out_ };
};

namespace {

// The document is XML of the simple kind written here: every element is closed, in order, attributes are quoted.
::testing::AssertionResult wellFormed( std::string const & document ) {
   static std::regex const tag( R"(<(/?)([a-zA-Z]+)((?: [a-zA-Z0-9-]+="[^"<>]*")*)(/?)>|<\?[^<>]*\?>|[<>])" );
   static std::regex const ampersand( "&(?!lt;|gt;|amp;|quot;)" );
   std::vector<std::string> open;
   for( std::sregex_iterator at( document.begin(), document.end(), tag ), end; at != end; ++at ) {
      std::string const name = ( *at )[2];
      if( at->str() == "<" || at->str() == ">" ) return ::testing::AssertionFailure() << "a stray " << at->str();
      if( name.empty() || ( *at )[4].length() > 0 ) continue;
      if( ( *at )[1].length() == 0 ) {
         open.push_back( name );
      } else if( open.empty() || open.back() != name ) {
         return ::testing::AssertionFailure() << name << " is closed out of order";
      } else {
         open.pop_back();
      }
   }
   if( !open.empty() ) return ::testing::AssertionFailure() << open.back() << " is not closed";
   if( std::regex_search( document, ampersand ) ) return ::testing::AssertionFailure() << "a stray &";
   return ::testing::AssertionSuccess();
}

// The tips of all shapes whose class ends so.
std::vector<std::string> tips( std::string const & document, std::string const & cls ) {
   std::regex const shape( "class=\"(?:band )?" + cls + "\"[^>]*><title>([^<]*)</title>" );
   std::vector<std::string> found;
   for( std::sregex_iterator at( document.begin(), document.end(), shape ), end; at != end; ++at ) {
      found.push_back( ( *at )[1] );
   }
   return found;
}

}  // namespace

TEST_F( AfterRun, tellsWhichUnitsDrainedAndWhichDidNot ) {
   unit( "busy", "Ethernet10" );
   unit( "forced", "Ethernet9", R"(, "shutdown": true, "shutdownMaxDelay": 50)" );
   unit( "late", "Ethernet8", R"(, "shutdown": true, "shutdownMaxDelay": 70)" );
   unit( "idle", "Ethernet11" );
   unit( "quick", "Ethernet2" );
   traffic( "Ethernet10", 100e3 );  // equal to the threshold is not below it
   traffic( "Ethernet9", 12.34e6 );
   traffic( "Ethernet8", 1e6 );
   traffic( "Ethernet2", 0 );
   start();
   advance( 5 );
   enter( "busy" );
   enter( "forced" );
   enter( "late" );
   enter( "quick" );
   advance( 40 );
   traffic( "Ethernet2", 3e6 );  // comes back, twice
   advance( 10 );
   traffic( "Ethernet8", 0 );  // goes, but not in time to be quiet for 30 s
   advance( 30 );
   traffic( "Ethernet2", 0 );
   advance( 40 );
   traffic( "Ethernet2", 5e5 );
   advance( 20 );
   leave( "quick" );
   leave( "late" );
   EXPECT_EQ( Report::summary( history_ ), R"(
From 1000 to 1145 s (2 min 25 s), rates as sampled last

UNIT    ENTERED  COMPLETE  TOOK  LEFT
busy       1005         -     -     -
forced     1005      1055  50 s     -
idle          -         -     -     -
late       1005      1075  70 s  1145
quick      1005      1035  30 s  1145

INTERFACE   STATE          SAMPLES  TO DRAIN  SPIKES    RATE IN  RATE OUT  THRESHOLD  SHUT DOWN
Ethernet2   not monitored        8      30 s       2   250 kbps     0 bps   100 kbps  no
Ethernet8   not monitored        7         -       0      0 bps     0 bps   100 kbps  1075 to 1145
Ethernet9   watched              5         -       0  12.3 Mbps     0 bps   100 kbps  since 1055
Ethernet10  waiting             14         -       0   100 kbps     0 bps   100 kbps  no
)" );
}

TEST_F( AfterRun, goesOnAfterACrash ) {
   unit( "fabric", "Ethernet1" );
   traffic( "Ethernet1", 1e6 );
   start();
   enter( "fabric" );
   advance( 20 );
   run( "{\"crash\": {}}" );
   advance( 100 );
   start();
   traffic( "Ethernet1", 0 );
   advance( 30 );
   auto const & intf = history_.intfs().at( Lumo::IntfId( "Ethernet1" ) );
   EXPECT_EQ( intf.samples, 5u );
   EXPECT_EQ( intf.drainedIn, 150 );
   ASSERT_EQ( intf.rates.buckets().size(), 5u );
   EXPECT_EQ( intf.rates.buckets()[1].to, 1020 );
   EXPECT_EQ( intf.rates.buckets()[2].from, 1120 );  // nobody sampled in between
   EXPECT_THAT( history_.units().at( "fabric" ).completed, ElementsAre( 1150 ) );
}

TEST( UnitHistory, passesAreToldApart ) {
   using enum Maintenance::Unit::State;
   Report::UnitHistory unit;
   for( auto const & [at, state] : std::vector<std::pair<double, Maintenance::Unit::State>>{ { 0, active },
                                                                                             { 10, entering },
                                                                                             { 40, inMaintenance },
                                                                                             { 50, leaving },
                                                                                             { 50, active },
                                                                                             { 50, entering },
                                                                                             { 60, failed },
                                                                                             { 70, leaving },
                                                                                             { 80, inMaintenance } } ) {
      unit.states.is( at, state );
   }
   unit.completed = { 5, 40, 95 };  // the first belongs to no pass, the last comes late
   auto const passes = unit.passes();
   ASSERT_EQ( passes.size(), 3u );
   EXPECT_EQ( passes[0].completed, 40 );
   EXPECT_EQ( passes[0].left, 50 );
   EXPECT_EQ( passes[1].began, 50 );
   EXPECT_FALSE( passes[1].completed );
   EXPECT_EQ( passes[1].left, 70 );
   EXPECT_EQ( passes[2].began, 80 );
   EXPECT_EQ( passes[2].completed, 95 );
   EXPECT_FALSE( passes[2].left );
}

TEST( RateBuckets, stayFewAndKeepEveryMaximum ) {
   unsigned const seed = std::random_device{}();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   Report::RateBuckets buckets( 100 );
   auto const upTo = [&]( int most ) {
      return static_cast<double>( std::uniform_int_distribution( 0, most )( random ) );
   };
   struct Most {
      double in = 0, out = 0;
      uint32_t spikes = 0;
   };
   std::map<double, Most> bySecond;
   double now = 1000;
   for( int i = 0; i < 20000; ++i ) {
      double const from = now;
      now += 1 + upTo( 29 );
      double const in = upTo( 1000 ), out = upTo( 1000 );
      buckets.sampleIs( from, now, in, out );
      bool const spike = upTo( 50 ) == 0;
      if( spike ) buckets.spikeIs();
      bySecond[now] = { in, out, spike };
      ASSERT_LE( buckets.buckets().size(), 100u );
   }
   std::map<double, Most> byCell;
   for( auto const & [at, most] : bySecond ) {
      Most & cell = byCell[std::floor( at / buckets.cellSeconds() )];
      cell = { std::max( cell.in, most.in ), std::max( cell.out, most.out ), cell.spikes + most.spikes };
   }
   ASSERT_EQ( buckets.buckets().size(), byCell.size() );
   EXPECT_GT( byCell.size(), 40u );
   double end = 1000;
   for( auto const & bucket : buckets.buckets() ) {
      Most const & cell = byCell.at( std::floor( bucket.to / buckets.cellSeconds() ) );
      EXPECT_EQ( bucket.inBits, cell.in );
      EXPECT_EQ( bucket.outBits, cell.out );
      EXPECT_EQ( bucket.spikes, cell.spikes );
      EXPECT_EQ( bucket.from, end );  // without a gap
      end = bucket.to;
   }
   EXPECT_EQ( end, now );
}

TEST_F( AfterRun, drawsBandsMarksAndNames ) {
   unit( "<R&D>", "Ethernet1" );
   unit( "down", "Ethernet2", R"(, "shutdown": true)" );
   traffic( "Ethernet1", 0 );
   start();
   advance( 10 );
   enter( "<R&D>" );
   enter( "down" );
   advance( 50 );
   traffic( "Ethernet1", 3e6 );
   advance( 40 );
   leave( "<R&D>" );
   advance( 20 );
   std::string const picture = Report::plot( history_ );
   EXPECT_TRUE( wellFormed( picture ) );
   EXPECT_THAT( tips( picture, "waiting" ), ElementsAre( "Ethernet1: waiting for its traffic to go, 1010 to 1040 s" ) );
   EXPECT_THAT(
      tips( picture, "watched" ),
      ElementsAre( HasSubstr( "Ethernet1" ), "Ethernet2: watched for traffic that comes back, 1010 to 1120 s" ) );
   EXPECT_THAT( tips( picture, "shutdown" ), ElementsAre( "Ethernet2: shut down, 1010 to 1120 s" ) );
   EXPECT_THAT( tips( picture, "spike" ), ElementsAre( "Ethernet1: traffic came back, 1080 s" ) );
   EXPECT_THAT( tips( picture, "complete" ),
                ElementsAre( "&lt;R&amp;D&gt;: complete at 1040 s", "down: complete at 1010 s" ) );
   EXPECT_THAT( tips( picture, "leaving" ), ElementsAre( "&lt;R&amp;D&gt;: leaving, 1100 to 1120 s" ) );
   EXPECT_EQ( picture, Report::plot( history_ ) );
}

TEST_F( AfterRun, aRunInWhichNothingHappensHasOneToo ) {
   EXPECT_TRUE( wellFormed( Report::plot( history_ ) ) );
   EXPECT_THAT( Report::plot( history_ ), HasSubstr( "no interface was monitored" ) );
   EXPECT_THAT( Report::plot( history_ ), Not( ::testing::ContainsRegex( "[\",HV]-?(nan|inf)" ) ) );
   EXPECT_THAT( Report::summary( history_ ), HasSubstr( "There was no unit." ) );
}

TEST( Scales, showSmallAndLargeRatesAndNothing ) {
   Report::RateScale const scale( 9e9 );
   EXPECT_EQ( scale.topBits(), 1e10 );
   EXPECT_EQ( scale.share( 0 ), 0 );
   EXPECT_EQ( scale.share( 1e12 ), 1 );
   EXPECT_NEAR( scale.share( 1e5 ), 2.0 / 7, 0.01 );
   EXPECT_THAT( scale.ticks( 0.3 ), ElementsAre( 0, 1e6, 1e9 ) );
   EXPECT_EQ( Report::RateScale( 1e7 ).topBits(), 1e7 );
}

TEST( Scales, ticksAreFewAndRoundWhateverTheSpan ) {
   EXPECT_THAT( Report::TimeScale( 1000, 1050, 0, 500 ).ticks( 90 ),
                ElementsAre( 1000, 1010, 1020, 1030, 1040, 1050 ) );
   for( double const span : { 0.0, 0.5, 1.0, 77.0, 3600.0, 2.6e6, 1e9, 1e15 } ) {
      for( double const from : { 0.0, 1000.0, 1e300 } ) {
         Report::TimeScale const scale( from, from + span, 0, 1000 );
         auto const ticks = scale.ticks( 90 );
         ASSERT_THAT( ticks.size(), ::testing::AllOf( ::testing::Ge( 1u ), ::testing::Le( 12u ) ) ) << span;
         for( std::size_t i = 1; from < 1e300 && i < ticks.size(); ++i ) {
            EXPECT_GE( scale.x( ticks[i] ) - scale.x( ticks[i - 1] ), 89.99 ) << span;
         }
      }
   }
}

TEST( Maintsim, reportsAfterTheRunAndOnlyThen ) {
   auto const simulated = []( std::string const & options, std::string const & more = "" ) {
      return maintsim( options, R"(printf '{"start": {}}\n{"dump": {}}\n)" + more + "' | " );
   };
   std::string const run = simulated( "--summary" );
   EXPECT_LT( run.find( "\"dump\"" ), run.find( "There was no unit." ) );
   EXPECT_THAT( run, ::testing::EndsWith( "\n0\n" ) );
   std::string const wrong = simulated( "--summary", R"({"sotp": {}}\n)" );
   EXPECT_THAT( wrong, Not( HasSubstr( "There was no unit." ) ) );
   EXPECT_THAT( wrong, ::testing::EndsWith( "there is no line \"sotp\"; did you mean \"stop\"?\n2\n" ) );
   EXPECT_EQ( simulated( "--plot /no/where.svg" ),
              "maintsim: /no/where.svg cannot be written: No such file or directory\n1\n" );
   EXPECT_THAT( simulated( "--plot /dev/full" ),
                ::testing::EndsWith( "maintsim: /dev/full cannot be written: No space left on device\n1\n" ) );
}

}  // namespace Test

// What a recording is worth: replayed with the configuration that was in force it takes the same decisions at the same
// times, whatever happened, and however late the box was with everything.
#include <gmock/gmock.h>

#include <cstdio>
#include <random>
#include <sstream>

#include "maintenance/MaintenanceService.h"
#include "record/Recorder.h"
#include "scenario/Scenario.h"

namespace Test {

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

std::string configWith( std::string const & profile ) {
   return R"({"config": {"profiles": {"p": )" + profile +
          R"(, "shut": {"threshold": "100kbps", "sample-interval": "3s", "load-interval": "9s", "shutdown": true}}, )" +
          R"("default-profile": "p", "groups": {"g": {"interfaces": ["eth0", "bond0", "v20"]}, )" +
          R"("s": {"interfaces": ["eth3"], "profile": "shut"}}, )" +
          R"("units": {"fabric": {"groups": ["g", "s"]}, "spine": {"groups": ["s"]}}}})";
}
std::string const profile = R"({"threshold": "100kbps", "sample-interval": "2s", "load-interval": "10s"})";

std::string const otherProfile =
   R"({"threshold": "9Mbps", "sample-interval": "5s", "load-interval": "20s", "shutdown": true, "max-delay": "30s"})";

constexpr char const * links =
   R"({"link": {"eth0": "up", "eth1": "up", "eth2": "up", "eth3": "up", "eth4": "up", "other": "up",
 "bond0": {"kind": "port-channel", "members": ["eth1", "eth2"]}, )"
   R"("v20": {"kind": "vlan", "vlan": 20, "members": ["eth4"]}}})";

}  // namespace

// A box that is late with everything, as real ones are, and is recorded.
class RecordedLife {
 public:
   explicit RecordedLife( unsigned seed ) : random_( seed ) {
      std::string oneLine = links;
      std::erase( oneLine, '\n' );
      run( configWith( profile ) );
      run( oneLine );
      world_.inTurn( [&] {
         world_.start();
         recorder_.emplace( Host::Recorder::Parts{ .database = *world_.database(),
                                                   .state = world_.state(),
                                                   .links = world_.linkRecords(),
                                                   .rows = world_.counterRows(),
                                                   .counters = *world_.countersRead(),
                                                   .service = *world_.agent().service(),
                                                   .wallClockOffset = [] { return 1.7e9; },
                                                   .host = "leaf\"1",
                                                   .version = "0.1" } );
         recorder_->handlePluginStart();
      } );
      world_.countersRead()->refresherIs( [this]( auto rows ) {
         ++reads_;
         world_.counters().refresh( rows );
         recorder_->handleRead();
      } );
   }
   ~RecordedLife() { recorder_.reset(); }

   void run( std::string const & lines ) {
      std::istringstream in( lines );
      scenario_.run( in );
   }
   // Until then, each turn a little later than it was due.
   void live( double seconds ) {
      double const until = world_.now() + seconds;
      while( world_.loop().nextDue() <= until ) {
         double const late = std::uniform_real_distribution( 1e-5, 3e-3 )( random_ );
         world_.late( std::max( 0.0, world_.loop().nextDue() - world_.now() ) + late, {} );
      }
      if( until > world_.now() ) world_.late( until - world_.now(), {} );
   }
   void somethingHappens() {
      auto const one = [&]( auto... choices ) {
         std::string const all[] = { std::string( choices )... };
         return all[random_() % sizeof...( choices )];
      };
      std::string const intf = one( "eth0", "eth1", "eth2", "eth3", "eth4" );
      std::string const rate = one( "0", "0", "0", "50000", "99000", "101000", "9000000" );
      run( one( R"({"traffic": {")" + intf + R"(": {"in": )" + rate + "}}}", R"({"enter": "fabric"})",
                R"({"enter": "spine"})", R"({"exit": "fabric"})", R"({"exit": "spine"})",
                R"({"link": {")" + intf + R"(": "down"}})", R"({"link": {")" + intf + R"(": "up"}})",
                R"({"link": {")" + intf + R"(": null}})", R"({"enter": "fabric", "without": ["eth0"]})",
                R"({"link": {"bond0": {"members": ["eth1"]}}})", R"({"unread": [")" + intf + "\"]}",
                R"({"unread": []})",
                R"({"batch": [{"link": {")" + intf + R"(": "up"}}, {"restartCounters": [")" + intf + "\"]}]}" ) );
      if( random_() % 10 == 0 ) configIs( one( profile, otherProfile ) );
   }
   std::shared_ptr<Host::HttpStream> record( std::optional<double> seconds = {} ) {
      std::shared_ptr<Host::HttpStream> stream;
      world_.inTurn( [&] { stream = recorder_->record( seconds ); } );
      return stream;
   }
   void configIs( std::string const & of ) {
      run( configWith( of ) );
      world_.inTurn( [&] { recorder_->handleConfig(); } );
   }
   static std::string taken( Host::HttpStream & stream ) {
      std::string text;
      for( std::string more = stream.next( 1000 ); !more.empty(); more = stream.next( 1000 ) ) text += more;
      return text;
   }
   [[nodiscard]] Host::Recorder & recorder() { return *recorder_; }
   [[nodiscard]] uint64_t reads() const { return reads_; }

 private:
   std::mt19937 random_;
   std::ostringstream out_;
   Sim::World world_{ RATEMON_PLUGIN_PATH, 51234.567 };
   Sim::Scenario scenario_{ world_, out_ };
   std::optional<Host::Recorder> recorder_;
   uint64_t reads_ = 0;
};

namespace {

struct Replayed {
   std::string out;
   std::string comparison;
   unsigned same = 0;
   unsigned all = 0;
};

Replayed replay( std::string const & recording ) {
   std::istringstream lines( recording );
   std::ostringstream out;
   std::string line;
   std::optional<Sim::Recording::Header> header;
   while( !header && std::getline( lines, line ) ) header = Sim::Recording::headerOf( line );
   Sim::World world( RATEMON_PLUGIN_PATH, header.value().clock );
   Sim::Scenario scenario( world, out );
   std::istringstream all( recording );
   scenario.run( all );
   Replayed found{ out.str(), scenario.recording().comparison() };
   // Both stay zero where nothing was decided, and there is no such line.
   std::size_t const decided = found.comparison.find( "Decided when recorded and when replayed: " );
   if( decided != std::string::npos )
      std::sscanf( found.comparison.c_str() + decided, "%*[^:]: %u of %u at the same time", &found.same, &found.all );
   return found;
}

}  // namespace

class Replay : public ::testing::TestWithParam<unsigned> {};

TEST_P( Replay, decidesTheSameAtTheSameTimes ) {
   std::string recording;
   {
      RecordedLife life( GetParam() );
      life.live( 3.4 );
      auto const stream = life.record();
      for( int i = 0; i < 60; ++i ) {
         life.live( std::uniform_real_distribution(
            0.1, 30.0 )( *std::make_unique<std::mt19937>( GetParam() + static_cast<unsigned>( i ) ) ) );
         life.somethingHappens();
         recording += RecordedLife::taken( *stream );
      }
   }
   auto const replayed = replay( recording );
   EXPECT_GT( replayed.all, 20u );
   EXPECT_EQ( replayed.same, replayed.all ) << replayed.comparison;
}

INSTANTIATE_TEST_SUITE_P( Lives, Replay, ::testing::Range( 1u, 13u ) );

TEST( Recording, readsOnceASecondAndSharesTheReadsOfSamples ) {
   RecordedLife life( 1 );
   life.live( 10 );
   EXPECT_EQ( life.reads(), 0u );
   auto const first = life.record();
   auto const second = life.record();
   life.live( 20 );
   EXPECT_EQ( life.reads(), 21u );  // one for the beginning
   life.run( R"({"enter": "fabric"})" );
   auto const before = life.reads();
   life.live( 60 );
   EXPECT_LE( life.reads(), before + 60 );
}

TEST( Recording, begunWithAUnitInMaintenanceGoesOnFromThere ) {
   std::string recording;
   {
      RecordedLife life( 1 );
      life.run( R"({"enter": "fabric"})" );
      life.live( 60 );
      auto const stream = life.record( 300.5 );
      life.live( 250 );
      recording = RecordedLife::taken( *stream );
      life.run( R"({"exit": "fabric"})" );
      life.live( 100 );
      recording += RecordedLife::taken( *stream );
      EXPECT_TRUE( stream->ended() );
   }
   EXPECT_THAT( recording, HasSubstr( "already were: \"fabric\"" ) );
   EXPECT_THAT( recording, ::testing::EndsWith( "# The recording ends here, as was asked for.\n" ) );
   auto const replayed = replay( recording + R"({"get": ["maintenance/unit/status","status","fabric","genId"]})" );
   EXPECT_THAT( replayed.out, HasSubstr( R"("result": "started", "generation": 2)" ) );
   EXPECT_THAT( replayed.comparison, ::testing::ContainsRegex( "fabric +active +[0-9:]+ +[0-9:]+ +same" ) );
}

TEST( Recording, endsAndSaysSoWhenNobodyReadsIt ) {
   auto const journal = std::make_shared<Host::Journal>( 1000 );
   Host::Recording stream( journal, std::nullopt );
   unsigned told = 0;
   stream.onMore( [&] { ++told; } );
   EXPECT_EQ( stream.next( 100 ), "" );
   stream.beginIs( { "begin" }, 10 );
   journal->add( { 11, 11, R"({"enter": "u"})" } );
   EXPECT_EQ( told, 2u );
   EXPECT_EQ( stream.next( 1000 ), "begin\n{\"advance\": 1}\n{\"batch\": [{\"enter\": \"u\"}]}\n" );
   journal->add( { 12, 12, std::string( 500, ' ' ) } );
   journal->add( { 13, 13, std::string( 600, ' ' ) } );
   EXPECT_EQ( stream.next( 1000 ), "# The recording ends early: it was not read as fast as it came.\n" );
   EXPECT_TRUE( stream.ended() );
}

}  // namespace Test

// The lines that speak to the maintenance service, and the agent around the plug-in: its links, its stop, its crash.
#include <filesystem>
#include <fstream>

#include "ScenarioFixture.h"
#include "kel/Json.h"
#include "records/Names.h"

namespace Test {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

// A unit "fabric" of eth0 and eth1: every 10 s, quiet for 30 s below 100 kbps. `profile` adds to that.
std::string config( std::string const & profile = "", std::string const & more = "" ) {
   return R"({"config": {"profiles": {"p": {"threshold": "100kbps", "sample-interval": "10s", "load-interval": "30s")" +
          profile +
          R"(}}, "default-profile": "p", "groups": {"g": {"interfaces": ["eth0", "eth1"]}}, )"
          R"("units": {"fabric": {"groups": ["g"]}})" +
          more + "}}\n";
}

constexpr char const * linksUp = "{\"link\": {\"eth0\": \"up\", \"eth1\": \"up\"}}\n";
constexpr char const * start = "{\"start\": {}}\n";
constexpr char const * enterFabric = "{\"enter\": \"fabric\"}\n";

std::string advance( double seconds ) { return "{\"advance\": " + std::to_string( seconds ) + "}\n"; }

std::string traffic( std::string const & intf, double bitsPerSecond ) {
   return "{\"traffic\": {\"" + intf + "\": {\"in\": " + std::to_string( bitsPerSecond ) + "}}}\n";
}

constexpr char const * eth0State = R"("interface/status/all","intfStatus","eth0","operStatus")";
constexpr char const * entryOfEth0 = R"("interface/errdisable/cause","maintenance-shutdown","intfStatus","eth0")";
constexpr char const * unitState = R"("maintenance/unit/status","status","fabric","state")";

}  // namespace

class AgentStory : public ScenarioFixture {
 protected:
   // What `get` prints of the value, without the rest of the line.
   std::string value( std::string const & path ) {
      std::string const line = get( path );
      std::string const mark = "\"value\": ";
      return line.substr( line.find( mark ) + mark.size(), line.size() - line.find( mark ) - mark.size() - 1 );
   }
   std::string everything() {
      std::string all;
      for( std::string const & path : world_.database()->paths() ) {
         // Rows of counters are the box's: they come and go with links, whoever runs.
         if( path == Maintenance::Path::counterWriterStatus ) continue;
         all += path + " " + Kel::toJson( Dovra::stateValue( *world_.database(), path ) ) + "\n";
      }
      return all;
   }
};

TEST_F( AgentStory, saysWhereALineOfTheServiceIsWrong ) {
   struct Case {
      std::string line;
      char const * error;
   };
   std::string const head = R"({"config": {"profiles": {"p": {"threshold": )";
   std::string const tail = R"(}}, "default-profile": "p", "groups": {}, "units": {}}})";
   for( auto const & [line, error] : std::vector<Case>{
           { R"({"config": []})", "line 1, column 12: the configuration is wanted here" },
           { head + "\"100\"" + tail, "line 1, column 45: " },
           { head + "\"1kbps\"\t, \"interval\": 1" + tail, "line 1, column 55: unknown key 'interval'" },
           { head + R"("1", "load-interval": "1")" + tail, "; column 67: " },
           { R"({"link": {"eth0": "upp"}})", "column 19: a link is \"up\" or \"down\", not \"upp\"" },
           { R"({"link": {"eth0": 1}})", "column 19: \"up\", \"down\", null or an object is wanted here" },
           { R"({"link": {"": "up"}})", "column 15: a link has a name" },
           { R"({"link": {"eth0": {"kind": "bond"}}})", "column 28: there is no kind of link \"bond\"" },
           { R"({"link": {"eth0": {"vlan": 4096}}})", "column 28: " },
           { R"({"link": {"eth0": {"mtu": 9000}}})", "column 27: a link has \"state\"" },
           { R"({"link": {"eth0": {"members": ["eth1"]}}})", "column 19: only links of the kinds" },
           { R"({"link": {"eth0": {"vlan": 5}}})", "column 19: only a link of the kind \"vlan\" has a VLAN" },
           { R"({"enter": "fabric"})", "column 11: there is no configuration yet" },
           { R"({"status": "fabric"})", "column 12: there is no configuration yet" },
           { R"({"without": ["eth0"]})", "column 1: \"without\" needs an \"enter\"" },
           { R"({"exit": "fabric", "without": []})", "column 31: \"without\" does not belong in a line with \"exit\"" },
        } ) {
      EXPECT_THAT( run( line ).back(), HasSubstr( error ) ) << line;
   }
   run( config() );
   EXPECT_THAT( run( enterFabric ), ElementsAre( "line 1, column 11: the agent is not started" ) );
   EXPECT_THAT( run( "{\"status\": \"fabric\"}" ), ElementsAre( HasSubstr( R"("state": "active")" ) ) );
   run( start );
   for( std::string const verb : { "enter", "exit", "status", "ready" } ) {
      EXPECT_THAT( run( "{\"" + verb + "\": \"fabrik\"}" ),
                   ElementsAre( HasSubstr( ": there is no unit \"fabrik\"; did you mean \"fabric\"?" ) ) )
         << verb;
      EXPECT_THAT( run( "{\"" + verb + "\": 1}" ), ElementsAre( HasSubstr( "a unit's name is wanted here" ) ) ) << verb;
   }
   EXPECT_THAT( run( R"({"enter": "fabric", "without": "eth0"})" ), ElementsAre( HasSubstr( "column 32: a list" ) ) );
   run( "{\"stop\": {}}" );
   EXPECT_THAT( run( "{\"ready\": \"fabric\"}" ), ElementsAre( HasSubstr( "the agent is not started" ) ) );
}

TEST_F( AgentStory, theFirstConfigurationComesBeforeTheStart ) {
   EXPECT_THAT( run( start + config() ),
                ElementsAre( "line 2, column 12: the first configuration comes before \"start\"" ) );
}

TEST_F( AgentStory, aReloadIsAppliedOrRefused ) {
   run( config() + linksUp + start + enterFabric + advance( 10 ) );
   std::string const other = R"({"config": {"profiles": {"p": {"threshold": "100kbps"}}, "default-profile": "p", )"
                             R"("groups": {"g": {"interfaces": ["eth0"]}}, "units": {"rack": {"groups": ["g"]}}}})";
   EXPECT_THAT( run( other ), ElementsAre( AllOf( StartsWith( R"({"t": 1010, "config": "refused", "why": [)" ),
                                                  HasSubstr( "fabric" ) ) ) );
   EXPECT_EQ( value( unitState ), "2" );
   run( "{\"exit\": \"fabric\"}" );
   EXPECT_THAT( run( other ), IsEmpty() );
   EXPECT_THAT( run( "{\"status\": \"rack\"}" ), ElementsAre( HasSubstr( R"("state": "active")" ) ) );
   EXPECT_EQ( value( unitState ), "null" );
}

TEST_F( AgentStory, hooksArePrintedAndSucceedAtOnce ) {
   run(
      config(
         "",
         R"(, "stages": {"maintEnter": [{"name": "bgp", "run": ["/hook", "in"]}, {"name": "ratemon"}, {"name": "verify"}], )"
         R"("maintExit": [{"name": "ratemon"}, {"name": "bgp", "run": ["/hook", "out"]}]})" ) +
      linksUp + start );
   EXPECT_THAT( run( enterFabric ), Contains( R"({"t": 1000, "hook": "bgp", "unit": "fabric"})" ) );
   EXPECT_THAT( run( "{\"status\": \"fabric\"}" ), ElementsAre( HasSubstr( R"("requestedBy": "maintsim")" ) ) );
   run( advance( 40 ) );
   EXPECT_THAT( run( "{\"exit\": \"fabric\"}" ), Contains( R"({"t": 1040, "hook": "bgp", "unit": "fabric"})" ) );
   EXPECT_EQ( value( unitState ), "1" );
}

TEST_F( AgentStory, ofALinkStaysWhatIsNotNamed ) {
   run( R"({"link": {"ge0": "down", "bond7": {"kind": "port-channel", "members": ["ge0", "ge1"]}, )"
        R"("Port-Channel8": {"members": ["ge2"]}, "Vlan9": {"members": ["ge0"]}, )"
        R"("br5": {"kind": "vlan", "vlan": 5, "members": ["ge1"], "state": "down"}}})" );
   EXPECT_EQ( value( R"("interface/status/all","intfStatus")" ),
              R"({"Port-Channel8": {"operStatus": 1}, "Vlan9": {"operStatus": 1}, "bond7": {"operStatus": 1}, )"
              R"("br5": {"operStatus": 2}, "ge0": {"operStatus": 2}})" );
   EXPECT_EQ( value( R"("lag/config","phyIntf","ge1")" ), R"({"lag": "bond7"})" );
   EXPECT_EQ( value( R"("bridging/vlan/status","vlanStatus")" ),
              R"({"5": {"intf": {"ge1": true}}, "9": {"intf": {"ge0": true}}})" );
   EXPECT_THAT( run( R"({"link": {"ge3": {"state": "up", "late": true}}})" ), IsEmpty() );
   run( R"({"link": {"bond7": "down", "br5": {"state": "up"}, "Vlan9": {"members": []}, "ge0": {}}})" );
   EXPECT_EQ( value( R"("lag/config","phyIntf","ge1")" ), R"({"lag": "bond7"})" );
   EXPECT_THAT( value( R"("bridging/vlan/status","vlanStatus","5")" ), R"({"intf": {"ge1": true}})" );
   EXPECT_EQ( value( R"("interface/status/all","intfStatus","br5","operStatus")" ), "1" );
   EXPECT_EQ( value( R"("interface/status/all","intfStatus","ge0","operStatus")" ), "2" );
   run( R"({"link": {"bond7": null, "Vlan9": null, "never-seen": null}})" );
   EXPECT_EQ( value( R"("interface/status/all","intfStatus","bond7")" ), "null" );
   EXPECT_THAT( value( R"("lag/config","phyIntf","ge1")" ), Not( HasSubstr( "bond7" ) ) );
   // Only Ethernet links are counted by themselves.
   EXPECT_EQ( row( "ge0" ).inOctets, Brim::MaybeU63( 0 ) );
   EXPECT_THROW( row( "br5" ), std::runtime_error );
   run( R"({"link": {"ge0": {"kind": "other"}}})" );
   EXPECT_THROW( row( "ge0" ), std::runtime_error );
   run( R"({"link": {"ge0": {"kind": "ethernet"}}})" );
   EXPECT_EQ( row( "ge0" ).restarts, 1u );
}

// What a name was before, here or in an earlier run of the same process, says nothing.
TEST_F( AgentStory, aNewLinkIsWhatItsNameTells ) {
   using Lumo::IntfKind;
   run( R"({"link": {"ens9": {"kind": "port-channel", "members": ["ens8"]}, "Port-Channel5": {"kind": "ethernet"}}})" );
   run( R"({"link": {"ens9": null, "Port-Channel5": null}})" );
   run( R"({"link": {"ens9": "up"}})" );
   for( auto const & [name, kind] : std::vector<std::pair<std::string, IntfKind>>{
           { "ens9", IntfKind::ethernet },
           { "Port-Channel5", IntfKind::portChannel },
           { "Port-Channel5.7", IntfKind::subIntf },
           { "Ethernet1/2/3", IntfKind::ethernet },
           { "Ethernet1/2.30", IntfKind::subIntf },
           { "Ethernet1.", IntfKind::ethernet },
           { "Ethernet1/.5", IntfKind::ethernet },
           { "Vlan12", IntfKind::vlan },
           { "Vlan12.3", IntfKind::ethernet },
           { "Cpu", IntfKind::cpu },
        } ) {
      run( "{\"link\": {\"" + name + "\": \"up\"}}" );
      EXPECT_EQ( Lumo::IntfId( name ).kind(), kind ) << name;
   }
}

TEST_F( AgentStory, aLinkThatComesBackGoesOnFromWhatWasPublished ) {
   run( traffic( "eth0", 8e6 ) + linksUp + advance( 5 ) );
   world_.counters().refresh( KelQuill::Rows::all );
   run( advance( 1 ) + "{\"link\": {\"eth0\": null}}" );
   EXPECT_THROW( row( "eth0" ), std::runtime_error );
   EXPECT_THAT( run( "{\"restartCounters\": [\"eth0\"]}" ).back(), HasSubstr( "eth0 has no counters" ) );
   run( advance( 100 ) + traffic( "eth0", 16e6 ) + advance( 100 ) );
   EXPECT_THROW( row( "eth0" ), std::runtime_error );
   run( "{\"link\": {\"eth0\": \"up\"}}" );
   EXPECT_EQ( row( "eth0" ).inOctets, Brim::MaybeU63( 5'000'000 ) );
   EXPECT_EQ( row( "eth0" ).restarts, 1u );
   run( advance( 1 ) );
   world_.counters().refresh( KelQuill::Rows::all );
   EXPECT_EQ( row( "eth0" ).inOctets, Brim::MaybeU63( 7'000'000 ) );
   EXPECT_EQ( row( "eth1" ).restarts, 0u );
}

// A stop is the whole agent's: links do not move, and the plug-in's teardown leaves no trace in what is kept.
TEST_F( AgentStory, aStopKeepsWhatTheStoreWouldKeep ) {
   run( config( R"(, "shutdown": true)" ) + linksUp + traffic( "eth1", 5e6 ) + start + enterFabric + advance( 35 ) );
   EXPECT_EQ( value( eth0State ), "2" );
   std::vector<std::string> const kept{
      R"("interface/errdisable/cause")",        R"("maintenance/interface/status/ratemon")",
      R"("maintenance/unit/status")",           R"("stage/maintEnter/progress")",
      R"("stage/maintEnter/completionstatus")", R"("stageAgentStatus/maintEnter/MaintenanceMode")",
      R"("maintenance/evidence/window")",       R"("interface/status/all")" };
   std::vector<std::string> before;
   for( auto const & path : kept ) {
      before.push_back( value( path ) );
      run( "{\"watch\": [" + path + "]}" );
   }
   EXPECT_THAT( before[1], HasSubstr( "eth1" ) );
   EXPECT_THAT( run( "{\"stop\": {}}" ), IsEmpty() );
   for( std::size_t i = 0; i < kept.size(); ++i ) EXPECT_EQ( value( kept[i] ), before[i] ) << kept[i];
   // Nobody follows the entries any more.
   EXPECT_THAT( run( R"({"delete": ["interface/errdisable/cause","maintenance-shutdown","intfStatus","eth0"]})" ),
                ElementsAre( HasSubstr( "null" ) ) );
   EXPECT_EQ( value( eth0State ), "2" );
   // The start finds the entry gone and lets the link go, before the plug-in looks and shuts it down once more.
   std::string const change = R"("change": ["interface/status/all", "intfStatus", "eth0", "operStatus"], "value": )";
   EXPECT_THAT( run( start ), AllOf( Contains( HasSubstr( change + "1" ) ), Contains( HasSubstr( change + "2" ) ) ) );
   EXPECT_EQ( value( entryOfEth0 ), "1035" );
   EXPECT_THAT( run( "{\"status\": \"fabric\"}" ).back(),
                AllOf( HasSubstr( R"("state": "entering", "generation": 1)" ), HasSubstr( R"("ready": false)" ) ) );
}

TEST_F( AgentStory, aCrashLeavesNothingThatRuns ) {
   run( config( R"(, "shutdown": true)" ) + linksUp + traffic( "eth1", 5e6 ) + start + enterFabric + advance( 35 ) );
   // In the middle of a turn, with judgements of that turn still to come.
   run( R"({"batch": [{"link": {"eth1": "down"}}, {"crash": {}}]})" );
   std::string const left = everything();
   run( traffic( "eth1", 0 ) + R"({"link": {"eth1": "up", "eth0": null}})" + "\n" + advance( 500 ) );
   EXPECT_EQ( everything(), left );
   run( start );
   EXPECT_EQ( value( eth0State ), "null" );
   EXPECT_EQ( value( R"("interface/status/all","intfStatus","eth1","operStatus")" ), "1" );
   EXPECT_THAT( run( "{\"ready\": \"fabric\"}" ), ElementsAre( HasSubstr( R"("ready": false)" ) ) );
   run( advance( 60 ) );
   EXPECT_EQ( value( unitState ), "3" );
   run( "{\"crash\": {}}\n{\"start\": {}}\n{\"stop\": {}}\n{\"start\": {}}\n{\"exit\": \"fabric\"}" );
   EXPECT_EQ( value( unitState ), "1" );
}

TEST_F( AgentStory, whileTheAgentIsAwayTheConfigurationChanges ) {
   run( config() + linksUp + start + "{\"stop\": {}}" );
   EXPECT_THAT( run( R"({"config": {"profiles": {"q": {"threshold": "1Mbps"}}, "default-profile": "q", )"
                     R"("groups": {"g": {"interfaces": ["eth1"]}}, "units": {"rack": {"groups": ["g"]}}}})" ),
                IsEmpty() );
   EXPECT_EQ( value( unitState ), "1" );
   run( start );
   EXPECT_EQ( value( unitState ), "null" );
   EXPECT_THAT( run( "{\"enter\": \"rack\"}" ), ElementsAre( HasSubstr( "started" ) ) );
}

namespace {

class ConfigFile : public ::testing::Test {
 protected:
   ConfigFile() : folder_( std::filesystem::temp_directory_path() / "maintsim-config-test" ) {
      std::filesystem::create_directories( folder_ );
   }
   ~ConfigFile() override { std::filesystem::remove_all( folder_ ); }

   std::string file( std::string const & name, std::string const & text ) const {
      std::ofstream( folder_ / name ) << text;
      return ( folder_ / name ).string();
   }
   std::string run( std::string const & configFile, std::string const & lines ) const {
      return maintsim( "--config '" + configFile + "' '" + file( "scenario.jsonl", lines ) + "'" );
   }

   std::filesystem::path const folder_;
};

constexpr char const * yaml = R"(profiles:
  p: { threshold: 100kbps }
default-profile: p
groups:
  g: { interfaces: [eth0] }
units:
  fabric: { groups: [g] }
)";

}  // namespace

TEST_F( ConfigFile, standsBeforeTheFirstLine ) {
   std::string const lines = "{\"link\": {\"eth0\": \"up\"}}\n{\"start\": {}}\n{\"enter\": \"fabric\"}\n";
   EXPECT_EQ( run( file( "good.yaml", yaml ), lines ),
              R"({"t": 1000, "request": "enter", "unit": "fabric", "result": "started", "generation": 1, "why": []})"
              "\n0\n" );
   std::string const bad = file( "bad.yaml", std::string( yaml ) + "colour: red\nunit: {}\n" );
   EXPECT_THAT( run( bad, lines ), AllOf( StartsWith( bad + ":8:1: " ), HasSubstr( "\n" + bad + ":9:1: " ),
                                          EndsWith( "\n2\n" ), Not( HasSubstr( "request" ) ) ) );
   EXPECT_EQ( run( "/no/where.yaml", lines ), "maintsim: /no/where.yaml cannot be read\n2\n" );
   EXPECT_EQ( run( "/", lines ), "maintsim: / cannot be read\n2\n" );
}

// Each is said on standard error, with status 2, and nobody waits for lines that do not come.
TEST_F( ConfigFile, mistakesOfSomebodyNewAreSaid ) {
   auto const run = []( std::string const & arguments ) {
      std::string const command = "'" RATEMON_MAINTSIM_PATH "' " + arguments + " 2>&1 >/dev/null; echo $?";
      std::FILE * const pipe = ::popen( command.c_str(), "r" );
      std::string text;
      char chunk[4096];
      for( std::size_t n = 0; ( n = std::fread( chunk, 1, sizeof chunk, pipe ) ) > 0; ) text.append( chunk, n );
      ::pclose( pipe );
      return text;
   };
   EXPECT_EQ( run( folder_.string() ),
              "maintsim: " + folder_.string() + " is a directory, and a scenario is a file\n2\n" );
   EXPECT_EQ( run( "/no/where" ), "maintsim: there is no file /no/where\n2\n" );
   EXPECT_THAT( run( "--sumary /no/where" ), StartsWith( "maintsim: there is no option \"--sumary\"; did you mean" ) );
   EXPECT_THAT( run( "--start-time soon" ),
                StartsWith( "maintsim: --start-time is a number of seconds from 0 to 1e12" ) );
   std::string const lines =
      file( "raw.jsonl", R"({"set": ["group/status/interface","status","g"], "to": {"intf": {"Lo1": true}}}
{"set": ["maintenance/unit/status","status","u"], "to": {"genId": 1, "group": {"intf:g": true}}}
{"set": ["maintenance/unit/status","status","u"], "to": {"maintEnterInstanceName": "u#1", "state": 2}}
{"start": {}}
{"advance": 60}
)" );
   EXPECT_EQ( run( lines ),
              "maintsim: unit u is entering as u#1, of which there is no record in stage/maintEnter/progress: the rate "
              "monitor does nothing for it\n"
              "maintsim: unit u: Lo1 has the name of no interface that the rate monitor watches (Ethernet1, "
              "Port-Channel1, Vlan1), so nobody waits for it\n0\n" );
}

}  // namespace Test

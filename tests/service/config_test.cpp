// The configuration file of maintd: what a good file gives, and where and why a bad one is refused.
#include "config/Config.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/Quantity.h"

namespace Service::Config {
namespace {

// What is wrong with the text; nothing when it holds.
std::vector<Problem> problemsOf( std::string const & text ) {
   try {
      (void)parse( text, "file.yaml" );
   } catch( ConfigError const & error ) {
      return error.problems();
   }
   return {};
}

// A file that holds; the cases below spoil one of its lines or add to them.
std::string const profiles = "profiles: { p: { threshold: 1kbps } }\n";
std::string const defaultProfile = "default-profile: p\n";
std::string const groups = "groups: { g: { interfaces: [eth0] } }\n";
std::string const units = "units: { u: { groups: [g] } }\n";
std::string const good = profiles + defaultProfile + groups + units;

std::string withProfile( std::string const & body ) {
   return "profiles: { p: " + body + " }\n" + defaultProfile + groups + units;
}
std::string withGroups( std::string const & body ) {
   return profiles + defaultProfile + "groups: " + body + "\n" + units;
}
std::string withUnits( std::string const & body ) { return profiles + defaultProfile + groups + "units: " + body; }
std::string withEnter( std::string const & list ) { return good + "stages:\n  maintEnter: " + list; }

TEST( ConfigFile, sampleIsTakenOverWhole ) {
   std::stringstream everyKey;
   everyKey << std::ifstream( RATEMON_SOURCE_DIR "/tests/service/every_key.yaml" ).rdbuf();
   Config const config = parse( everyKey.str(), "every_key.yaml" );

   std::vector<Profile> const expectedProfiles = { { "default", 100, 10, 60, false, 0 },
                                                   { "uplink", 1000, 5, 30, true, 600 } };
   EXPECT_EQ( config.profiles, expectedProfiles );
   EXPECT_EQ( config.defaultProfile, "default" );
   std::vector<Group> const expectedGroups = { { "spines", { "eth0", "eth1", "bond0" }, "uplink" },
                                               { "servers", { "eth10", "eth11", "vlan20" }, std::nullopt },
                                               { "spares", {}, std::nullopt } };
   EXPECT_EQ( config.groups, expectedGroups );
   std::vector<Unit> const expectedUnits = { { "fabric", { "spines" } },
                                             { "rack", { "servers", "spares", "spines" } } };
   EXPECT_EQ( config.units, expectedUnits );

   std::vector<std::string> const open = { "vtysh", "-c", "configure terminal", "-c", "router bgp 65001" };
   Stage leaveBgp = { "bgp", open, 30, OnTimeout::rollback };
   leaveBgp.run.insert( leaveBgp.run.end(), { "-c", "bgp graceful-shutdown" } );
   Stage enterBgp = { "bgp", open, 30, OnTimeout::rollback };
   enterBgp.run.insert( enterBgp.run.end(), { "-c", "no bgp graceful-shutdown" } );
   std::vector<Stage> const enter = { leaveBgp, { "ratemon", {}, 1800, OnTimeout::rollback } };
   std::vector<Stage> const exit = { { "ratemon", {}, std::nullopt, OnTimeout::rollback }, enterBgp };
   EXPECT_EQ( config.stages.maintEnter, enter );
   EXPECT_EQ( config.stages.maintExit, exit );
}

TEST( ConfigFile, whatIsLeftOutHasItsDefault ) {
   Config const config = parse( good, "file.yaml" );
   std::vector<Stage> const ratemonAlone = { { "ratemon", {}, std::nullopt, OnTimeout::rollback } };
   EXPECT_EQ( config.stages.maintEnter, ratemonAlone );
   EXPECT_EQ( config.stages.maintExit, ratemonAlone );
   ASSERT_EQ( config.profiles.size(), 1u );
   EXPECT_EQ( config.profiles[0], ( Profile{ "p", 1, 10, 60, false, 0 } ) );

   Config const oneList = parse( withEnter( "[{ name: ratemon, timeout: 1s, on-timeout: continue }]" ), "file.yaml" );
   std::vector<Stage> const goesOn = { { "ratemon", {}, 1, OnTimeout::proceed } };
   EXPECT_EQ( oneList.stages.maintEnter, goesOn );
   EXPECT_EQ( oneList.stages.maintExit, ratemonAlone );
}

// Precedence is the order of the file, which is neither alphabetical nor the order of the sections.
TEST( ConfigFile, orderIsThatOfTheFileWhateverTheOrderOfTheSections ) {
   Config const config = parse(
      "units: { z: { groups: [y, b] }, a: { groups: [b] } }\n"
      "groups: { y: { interfaces: [eth9, eth1], profile: q }, b: { interfaces: [eth9] } }\n"
      "default-profile: q\n"
      "profiles: { q: { threshold: 0bps }, c: { load-interval: 0s, shutdown: true, max-delay: 0s, threshold: 1bps } "
      "}\n",
      "file.yaml" );
   EXPECT_EQ( config.units, ( std::vector<Unit>{ { "z", { "y", "b" } }, { "a", { "b" } } } ) );
   EXPECT_EQ( config.groups[0], ( Group{ "y", { "eth9", "eth1" }, "q" } ) );
   EXPECT_EQ( config.groups[1], ( Group{ "b", { "eth9" }, std::nullopt } ) );
   EXPECT_EQ( config.profiles[0], ( Profile{ "q", 0, 10, 60, false, 0 } ) );
   EXPECT_EQ( config.profiles[1], ( Profile{ "c", 0.001, 10, 0, true, 0 } ) );
}

// A text with one fault; '@' stands before the place that is to be blamed, and the file is the text without it.
struct BadFile {
   char const * name;
   std::string marked;
   char const * reason;  // a part of it
};

void PrintTo( BadFile const & bad, std::ostream * out ) { *out << bad.name << ":\n" << bad.marked; }

class BadConfig : public testing::TestWithParam<BadFile> {};

TEST_P( BadConfig, isRefusedOnceAtItsPlace ) {
   std::string text = GetParam().marked;
   std::size_t const place = text.find( '@' );
   ASSERT_NE( place, std::string::npos );
   text.erase( place, 1 );
   auto const line = std::count( text.begin(), text.begin() + static_cast<std::ptrdiff_t>( place ), '\n' ) + 1;
   std::size_t const lineStart = place == 0 ? 0 : text.rfind( '\n', place - 1 ) + 1;

   std::vector<Problem> const problems = problemsOf( text );
   ASSERT_EQ( problems.size(), 1u ) << ( problems.empty() ? "" : problems[0].text + " / " + problems.back().text );
   EXPECT_EQ( problems[0].line, line ) << problems[0].text;
   EXPECT_EQ( static_cast<std::size_t>( problems[0].column ), place - lineStart + 1 ) << problems[0].text;
   EXPECT_NE( problems[0].text.find( GetParam().reason ), std::string::npos ) << problems[0].text;
}

auto const nameOf = []( testing::TestParamInfo<BadFile> const & info ) { return std::string( info.param.name ); };

std::vector<BadFile> const badShapes = {
   { "syntax", profiles + "groups: [a\nunits@: b\n", "not YAML" },
   { "tooDeep", "@" + std::string( 600, '[' ), "not YAML" },
   { "empty", "@# nothing\n", "found nothing" },
   { "list", "@- a\n", "found a list" },
   { "twoDocuments", good + "@---\nunits: {}\n", "a file holds only one" },
   { "noProfiles", "@" + defaultProfile + groups + units, "needs 'profiles'" },
   { "noDefaultProfile", "@" + profiles + groups + units, "needs 'default-profile'" },
   { "noGroups", "@" + profiles + defaultProfile + units, "needs 'groups'" },
   { "noUnits", "@" + profiles + defaultProfile + groups, "needs 'units'" },
   { "unknownSection", good + "@stage: {}\n", "did you mean 'stages'" },
   { "unknownFarOff", good + "@ab: 1\n", "unknown key 'ab' in the file" },
   { "unknownOfTwoLines", good + "@\"a\\nb\": 1\n", "unknown key 'a?b'" },
   { "emptySection", profiles + defaultProfile + groups + "\n\n@units:\n\n# end\n", "found nothing" },
   { "sectionOfOtherType", "profiles: @[]\n" + defaultProfile + groups + units, "expected a mapping" },
   { "repeatedSection", good + "@" + units, "twice, first at line 4" },
   { "repeatedName", withUnits( "\n  u: { groups: [g] }\n  v: { groups: [g] }\n  @u: { groups: [g] }\n" ),
     "'u' is given twice, first at line 5" },
   { "repeatedField", withProfile( "{ threshold: 1bps, @threshold: 2bps }" ), "'threshold' is given twice" },
   { "keyThatIsNoText", withUnits( "{ @[a]: { groups: [g] } }" ), "expected a single value, found a list" },
   { "multiByteColumn", withUnits( "{ \"\xc3\xa9\": { @group: [g], groups: [g] } }" ), "did you mean 'groups'" },
};
INSTANTIATE_TEST_SUITE_P( Shape, BadConfig, testing::ValuesIn( badShapes ), nameOf );

std::vector<BadFile> const badFields = {
   { "noThreshold", "profiles: { @p: { shutdown: true } }\n" + defaultProfile + groups + units, "needs 'threshold'" },
   { "thresholdWithoutUnit", withProfile( "{ threshold: @100 }" ), "has no unit" },
   { "thresholdEmpty", withProfile( "{ @threshold: }" ), "found nothing" },
   { "durationWithoutUnit", withProfile( "{ threshold: 1bps, load-interval: @60 }" ), "has no unit" },
   { "zeroInterval", withProfile( "{ threshold: 1bps, sample-interval: @0ms }" ), "must be more than 0s" },
   { "fractionOfLoadInterval", withProfile( "{ threshold: 1bps, load-interval: @1.5s }" ), "whole seconds" },
   { "intervalOfOtherType", withProfile( "{ threshold: 1bps, load-interval: @[60s] }" ), "found a list" },
   { "shutdownNeither", withProfile( "{ threshold: 1bps, shutdown: @maybe, max-delay: 1s }" ), "true or false" },
   { "delayAlone", withProfile( "{ threshold: 1bps, @max-delay: 1s }" ), "without 'shutdown: true'" },
   { "delayWithoutShutdown", withProfile( "{ threshold: 1bps, @max-delay: 1s, shutdown: false }" ),
     "without 'shutdown: true'" },
   { "misspelt", withProfile( "{ @treshold: 1bps, threshold: 1bps }" ), "did you mean 'threshold'?" },
   { "defaultUnknown", profiles + "default-profile: @q\n" + groups + units, "there is no profile 'q'" },
   { "profileUnknown", withGroups( "{ g: { interfaces: [], profile: @uplink } }" ), "there is no profile 'uplink'" },
   { "groupUnknown",
     profiles + defaultProfile + "groups: { spines: { interfaces: [] } }\nunits: { u: { groups: [@spnes] } }",
     "there is no group 'spnes'; did you mean 'spines'?" },
   { "noInterfaces", withGroups( "\n  @g:\n    profile: p" ), "a group needs 'interfaces'" },
   { "interfacesAsText", withGroups( "{ g: { interfaces: @eth0 } }" ), "expected a list" },
   { "interfaceEmpty", withGroups( "{ g: { interfaces: @[eth0, ~] } }" ), "found nothing" },
   { "interfaceTwice", withGroups( "{ g: { interfaces: [eth0, eth1, @eth0] } }" ), "'eth0' is in this list twice" },
   { "unitWithoutGroups", withUnits( "{ u: { groups: @[] } }" ), "at least one group" },
   { "groupTwice", withUnits( "{ u: { groups: [g, @g] } }" ), "'g' is in this list twice" },
};
INSTANTIATE_TEST_SUITE_P( Field, BadConfig, testing::ValuesIn( badFields ), nameOf );

std::vector<BadFile> const badNames = {
   { "unitWithHash", withUnits( "{ @'a#1': { groups: [g] } }" ), "part of stage instance names" },
   { "unitWithSlash", withUnits( "{ @a/b: { groups: [g] } }" ), "must not contain '/'" },
   { "unitEmpty", withUnits( "{ @'': { groups: [g] } }" ), "must not be empty" },
   { "unitOfTwoLines", withUnits( "{ @\"a\\nb\": { groups: [g] } }" ), "control characters" },
   { "groupEmpty", withGroups( "{ @'': { interfaces: [] }, g: { interfaces: [] } }" ), "must not be empty" },
   { "profileReserved",
     "profiles: { @'#DEFAULTPROFILE': { threshold: 1bps }, p: { threshold: 1bps } }\n" + defaultProfile + groups +
        units,
     "reserved" },
   { "interfaceOf16Bytes", withGroups( "{ g: { interfaces: [abcdefghijklmno, @abcdefghijklmnop] } }" ),
     "longer than 15" },
   { "interfaceWithSlash", withGroups( "{ g: { interfaces: [@Ethernet1/1] } }" ), "must not contain '/'" },
   { "interfaceWithColon", withGroups( "{ g: { interfaces: [@'eth0:1'] } }" ), "must not contain '/', ':'" },
   { "interfaceWithBlank", withGroups( "{ g: { interfaces: [@eth 0] } }" ), "blanks" },
   { "interfaceDots", withGroups( "{ g: { interfaces: [@..] } }" ), "not one that Linux takes" },
   { "stageWithColon", withEnter( "[{ name: @'a:b', run: [x] }, { name: ratemon }]" ), "stage marks" },
};
INSTANTIATE_TEST_SUITE_P( Name, BadConfig, testing::ValuesIn( badNames ), nameOf );

std::vector<BadFile> const badStages = {
   { "noRateMon", withEnter( "@[{ name: bgp, run: [x] }]" ), "lacks the stage 'ratemon'" },
   { "noStages", withEnter( "@[]" ), "lacks the stage 'ratemon'" },
   { "rateMonTwice", withEnter( "\n  - name: ratemon\n  - @name: ratemon\n" ), "'ratemon' is in this list twice" },
   { "hookTwice", withEnter( "[{ name: ratemon }, { name: a, run: [x] }, @{ name: a, run: [y] }]" ),
     "'a' is in this list twice" },
   { "rateMonRuns", withEnter( "[{ name: ratemon, @run: [x] }]" ), "runs no program" },
   { "hookWithoutRun", withEnter( "\n  - name: ratemon\n  - @name: a\n" ), "the stage 'a' needs 'run'" },
   { "hookWithEmptyRun", withEnter( "[{ name: ratemon }, { name: a, run: @[] }]" ), "must begin with the program" },
   { "hookWithEmptyProgram", withEnter( "[{ name: ratemon }, { name: a, run: @[''] }]" ),
     "must begin with the program" },
   { "nulArgument", withEnter( "[{ name: ratemon }, { name: a, run: [x, @\"-c\\0d\"] }]" ), "must not contain '\\0'" },
   { "nameless", withEnter( "[{ name: ratemon }, @{ run: [x] }]" ), "a stage needs 'name'" },
   { "timeoutOfZero", withEnter( "[{ name: ratemon, timeout: @0s }]" ), "must be more than 0s" },
   { "onTimeoutUnknown", withEnter( "[{ name: ratemon, timeout: 1s, on-timeout: @ignore }]" ), "rollback or continue" },
   { "onTimeoutAlone", withEnter( "[{ name: ratemon, @on-timeout: continue }]" ), "without 'timeout'" },
   { "unknownDirection", withEnter( "[{ name: ratemon }]\n  @maintLeave: []\n" ),
     "unknown key 'maintLeave' in 'stages'" },
};
INSTANTIATE_TEST_SUITE_P( Stage, BadConfig, testing::ValuesIn( badStages ), nameOf );

TEST( ConfigFile, allProblemsAreToldAtOnceInTheOrderOfTheFile ) {
   std::string const text =
      "units: { u: { groups: [h] } }\n"
      "groups: { g: { interfaces: [eth0, eth0], profil: p } }\n"
      "profiles: { p: { threshold: 1, sample-interval: 0s } }\n";
   try {
      (void)parse( text, "file.yaml" );
      FAIL() << "taken for a good file";
   } catch( ConfigError const & error ) {
      EXPECT_STREQ( error.what(),
                    "file.yaml:1:1: the file needs 'default-profile'\n"
                    "file.yaml:1:24: there is no group 'h'\n"
                    "file.yaml:2:35: 'eth0' is in this list twice\n"
                    "file.yaml:2:42: unknown key 'profil' in a group; did you mean 'profile'?\n"
                    "file.yaml:3:29: '1' has no unit; write a rate like 0bps, 100kbps, 1Mbps or 2.5Gbps\n"
                    "file.yaml:3:49: '0s' must be more than 0s" );
   }
}

// Nothing of the document is seen then, and reading comes to an end all the same.
TEST( ConfigFile, aStrayCommaInFrontIsRefused ) {
   std::vector<Problem> const problems = problemsOf( "\n," + good );
   ASSERT_EQ( problems.size(), 2u );
   EXPECT_EQ( problems[0].text, "expected a mapping of 'key: value', found nothing" );
   EXPECT_EQ( problems[1].line, 2 );
   EXPECT_EQ( problems[1].text, "the document has ended before this; a file holds only one" );
}

TEST( Quantities, areReadToTheLastBit ) {
   struct {
      Quantity ( *measure )( std::string_view );
      char const * text;
      double value;
   } const cases[] = {
      { durationSeconds, "500ms", 0.5 },
      { durationSeconds, "700ms", 0.7 },
      { durationSeconds, "10s", 10 },
      { durationSeconds, "2.5min", 150 },
      { durationSeconds, "2h", 7200 },
      { durationSeconds, "0s", 0 },
      { durationSeconds, "4294967295s", 4294967295.0 },
      { rateKbps, "0bps", 0 },
      { rateKbps, "1bps", 0.001 },
      { rateKbps, "100kbps", 100 },
      { rateKbps, "1Mbps", 1000 },
      { rateKbps, "2.5Gbps", 2.5e6 },
   };
   for( auto const & c : cases ) {
      Quantity const quantity = c.measure( c.text );
      EXPECT_EQ( quantity.reason, "" );
      EXPECT_EQ( quantity.value, c.value ) << c.text;
   }
}

TEST( Quantities, areRefusedWithTheirReason ) {
   struct {
      Quantity ( *measure )( std::string_view );
      std::string text;
      char const * reason;
   } const cases[] = {
      { durationSeconds, "", "is not a number" },
      { durationSeconds, "s", "is not a number" },
      { durationSeconds, "inf", "is not a number" },
      { durationSeconds, "+1s", "is not a number" },
      { durationSeconds, "10", "has no unit" },
      { durationSeconds, "10 s", "unknown unit ' s'" },
      { durationSeconds, "5m", "unknown unit 'm'" },
      { durationSeconds, "1e3s", "unknown unit 'e3s'" },
      { durationSeconds, "1.2.3s", "unknown unit" },
      { durationSeconds, "-0s", "is negative" },
      { durationSeconds, "4294967296s", "too large" },
      { durationSeconds, "1193047h", "too large" },
      { rateKbps, "1kBps", "unknown unit 'kBps'" },
      { rateKbps, "1mbps", "unknown unit 'mbps'" },
      { rateKbps, "-1kbps", "is negative" },
      { rateKbps, std::string( 305, '9' ) + "Gbps", "too large" },
      { rateKbps, std::string( 400, '9' ) + "bps", "out of range" },
   };
   for( auto const & c : cases ) {
      Quantity const quantity = c.measure( c.text );
      EXPECT_NE( quantity.reason.find( c.reason ), std::string::npos ) << c.text << ": " << quantity.reason;
   }
}

}  // namespace
}  // namespace Service::Config

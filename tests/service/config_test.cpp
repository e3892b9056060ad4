// The configuration file of maintd: what a good file gives, and where and why a bad one is refused.
#include "config/Config.h"
#include "config/Oddities.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/ConfigText.h"
#include "config/Quantity.h"
#include "kel/Json.h"

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
std::string withExit( std::string const & list ) { return good + "stages:\n  maintExit: " + list; }

TEST( ConfigFile, sampleIsTakenOverWhole ) {
   std::stringstream everyKey;
   everyKey << std::ifstream( RATEMON_SOURCE_DIR "/tests/service/every_key.yaml" ).rdbuf();
   Config const config = parse( everyKey.str(), "every_key.yaml" );

   std::vector<Profile> const expectedProfiles = { { "default", 100, 10, 60, false, std::nullopt },
                                                   { "uplink", 1000, 5, 30, true, 600 },
                                                   { "polite", 1000, 10, 60, true, std::nullopt } };
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
   Stage enterBgp = { "bgp", open, 30, OnTimeout::proceed };
   enterBgp.run.insert( enterBgp.run.end(), { "-c", "no bgp graceful-shutdown" } );
   std::vector<Stage> const enter = {
      leaveBgp, { "ratemon", {}, 1800, OnTimeout::rollback }, { "verify", {}, 600, OnTimeout::hold } };
   std::vector<Stage> const exit = { { "ratemon", {}, std::nullopt, OnTimeout::hold }, enterBgp };
   EXPECT_EQ( config.stages.maintEnter, enter );
   EXPECT_EQ( config.stages.maintExit, exit );
   EXPECT_TRUE( config.preserveIpv6 );
}

TEST( ConfigFile, writtenOutSaysTheSame ) {
   std::ostringstream everyKey;
   everyKey << std::ifstream( RATEMON_SOURCE_DIR "/tests/service/every_key.yaml" ).rdbuf();
   Config config = parse( everyKey.str(), "every_key.yaml" );
   config.profiles[0].thresholdKbps = 1e-7 / 3;
   config.profiles[0].sampleIntervalSeconds = 2.7;
   config.groups[0].interfaces.emplace_back( "a\"b\\\xc3\xa4:#" );
   EXPECT_EQ( parse( Kel::toJson( jsonOf( config ) ), "" ), config );
}

TEST( ConfigFile, whatIsLeftOutHasItsDefault ) {
   Config const config = parse( good, "file.yaml" );
   EXPECT_FALSE( config.preserveIpv6 );
   std::vector<Stage> const in = { { "ratemon", {}, 1800, OnTimeout::rollback },
                                   { "verify", {}, 600, OnTimeout::hold } };
   std::vector<Stage> const out = { { "ratemon", {}, std::nullopt, OnTimeout::hold } };
   EXPECT_EQ( config.stages.maintEnter, in );
   EXPECT_EQ( config.stages.maintExit, out );
   ASSERT_EQ( config.profiles.size(), 1u );
   EXPECT_EQ( config.profiles[0], ( Profile{ "p", 1, 10, 60, false, std::nullopt } ) );

   // A list that is given has no timeouts but its own, and the other list still has its default.
   Config const oneList = parse( withEnter( "[{ name: ratemon }, { name: verify, timeout: 1s }]" ), "file.yaml" );
   std::vector<Stage> const patient = { { "ratemon", {}, std::nullopt, OnTimeout::rollback },
                                        { "verify", {}, 1, OnTimeout::rollback } };
   EXPECT_EQ( oneList.stages.maintEnter, patient );
   EXPECT_EQ( oneList.stages.maintExit, out );
   Config const otherList = parse( withExit( "[{ name: ratemon, timeout: 2s }]" ), "file.yaml" );
   std::vector<Stage> const held = { { "ratemon", {}, 2, OnTimeout::hold } };
   EXPECT_EQ( otherList.stages.maintEnter, in );
   EXPECT_EQ( otherList.stages.maintExit, held );
}

// Also far apart: what comes between and behind is the operator's business.
TEST( ConfigFile, verifyMayStandAnywhereAfterRatemon ) {
   Config const config = parse( withEnter( "[{ name: ratemon }, { name: a, run: [x] }, { name: verify }, "
                                           "{ name: b, run: [y], timeout: 1s, on-timeout: continue }]" ),
                                "file.yaml" );
   std::vector<std::string> names;
   for( Stage const & stage : config.stages.maintEnter ) names.push_back( stage.name );
   EXPECT_EQ( names, ( std::vector<std::string>{ "ratemon", "a", "verify", "b" } ) );
   EXPECT_EQ( config.stages.maintEnter[3].onTimeout, OnTimeout::proceed );
}

// Precedence is the order of the file, which is neither alphabetical nor the order of the sections.
TEST( ConfigFile, orderIsThatOfTheFileWhateverTheOrderOfTheSections ) {
   Config const config = parse(
      "units: { z: { groups: [y, b] }, a: { groups: [b] } }\n"
      "groups: { y: { interfaces: [eth9, eth1], profile: q }, b: { interfaces: [eth9] } }\n"
      "default-profile: q\n"
      "profiles: { q: { sample-interval: 1s, threshold: 2bps }, "
      "c: { load-interval: 0s, shutdown: true, max-delay: 0s, threshold: 1bps } }\n",
      "file.yaml" );
   EXPECT_EQ( config.units, ( std::vector<Unit>{ { "z", { "y", "b" } }, { "a", { "b" } } } ) );
   EXPECT_EQ( config.groups[0], ( Group{ "y", { "eth9", "eth1" }, "q" } ) );
   EXPECT_EQ( config.groups[1], ( Group{ "b", { "eth9" }, std::nullopt } ) );
   EXPECT_EQ( config.profiles[0], ( Profile{ "q", 0.002, 1, 60, false, std::nullopt } ) );
   EXPECT_EQ( config.profiles[1], ( Profile{ "c", 0.001, 10, 0, true, 0 } ) );
}

// A text with one fault; '@' stands before the place that is to be blamed, and the file is the text without it.
struct BadFile {
   std::string marked;
   char const * reason;  // a part of it
};

void expectRefusedAtItsPlace( BadFile const & bad ) {
   SCOPED_TRACE( bad.marked );
   std::string text = bad.marked;
   std::size_t const place = text.find( '@' );
   ASSERT_NE( place, std::string::npos );
   text.erase( place, 1 );
   auto const line = std::count( text.begin(), text.begin() + static_cast<std::ptrdiff_t>( place ), '\n' ) + 1;
   std::size_t const lineStart = place == 0 ? 0 : text.rfind( '\n', place - 1 ) + 1;
   std::vector<Problem> const problems = problemsOf( text );
   ASSERT_EQ( problems.size(), 1u ) << ( problems.empty() ? "" : problems[0].text + " / " + problems.back().text );
   EXPECT_EQ( problems[0].line, line ) << problems[0].text;
   EXPECT_EQ( static_cast<std::size_t>( problems[0].column ), place - lineStart + 1 ) << problems[0].text;
   EXPECT_NE( problems[0].text.find( bad.reason ), std::string::npos ) << problems[0].text;
}

TEST( BadConfig, anOddShapeIsRefusedOnceAtItsPlace ) {
   std::vector<BadFile> const cases = {
      { profiles + "groups: [a\nunits@: b\n", "not YAML" },
      { "@" + std::string( 600, '[' ), "not YAML" },
      { "profiles:\n\tdefault@: { threshold: 100kbps }\n", "indented by a tab" },
      { "@# nothing\n", "found nothing" },
      { "@- a\n", "found a list" },
      { good + "@---\nunits: {}\n", "a file holds only one" },
      { "@" + defaultProfile + groups + units, "needs 'profiles'" },
      { "@" + profiles + groups + units, "needs 'default-profile'" },
      { "@" + profiles + defaultProfile + units, "needs 'groups'" },
      { "@" + profiles + defaultProfile + groups, "needs 'units'" },
      { good + "@stage: {}\n", "did you mean 'stages'" },
      { good + "@ab: 1\n", "unknown key 'ab' in the file" },
      { good + "@\"a\\nb\": 1\n", "unknown key 'a?b'" },
      { profiles + defaultProfile + groups + "\n\n@units:\n\n# end\n", "found nothing" },
      { "profiles: @[]\n" + defaultProfile + groups + units, "expected a mapping" },
      { good + "@" + units, "twice, first at line 4" },
      { withUnits( "\n  u: { groups: [g] }\n  v: { groups: [g] }\n  @u: { groups: [g] }\n" ),
        "'u' is given twice, first at line 5" },
      { withProfile( "{ threshold: 1bps, @threshold: 2bps }" ), "'threshold' is given twice" },
      { withUnits( "{ @[a]: { groups: [g] } }" ), "expected a single value, found a list" },
      { withUnits( "{ \"\xc3\xa9\": { @group: [g], groups: [g] } }" ), "did you mean 'groups'" },
   };
   for( BadFile const & bad : cases ) expectRefusedAtItsPlace( bad );
}

TEST( BadConfig, anOddFieldIsRefusedOnceAtItsPlace ) {
   std::vector<BadFile> const cases = {
      { "profiles: { @p: { shutdown: true } }\n" + defaultProfile + groups + units, "needs 'threshold'" },
      { withProfile( "{ threshold: @100 }" ), "has no unit" },
      { withProfile( "{ @threshold: }" ), "found nothing" },
      { withProfile( "{ threshold: 1bps, load-interval: @60 }" ), "has no unit" },
      { withProfile( "{ threshold: @0Mbps }" ), "'0Mbps' can never be met" },
      { withProfile( "{ threshold: 1bps, sample-interval: @999ms }" ), "must be 1s or more" },
      { withProfile( "{ threshold: 1bps, load-interval: @1.5s }" ), "whole seconds" },
      { withProfile( "{ threshold: 1bps, load-interval: @[60s] }" ), "found a list" },
      { withProfile( "{ threshold: 1bps, shutdown: @maybe, max-delay: 1s }" ), "true or false" },
      { withProfile( "{ threshold: 1bps, @max-delay: 1s }" ), "without 'shutdown: true'" },
      { withProfile( "{ threshold: 1bps, @max-delay: 1s, shutdown: false }" ), "without 'shutdown: true'" },
      { withProfile( "{ @treshold: 1bps, threshold: 1bps }" ), "did you mean 'threshold'?" },
      { profiles + "default-profile: @q\n" + groups + units, "there is no profile 'q'" },
      { withGroups( "{ g: { interfaces: [], profile: @uplink } }" ), "there is no profile 'uplink'" },
      { profiles + defaultProfile + "groups: { spines: { interfaces: [] } }\nunits: { u: { groups: [@spnes] } }",
        "there is no group 'spnes'; did you mean 'spines'?" },
      { withGroups( "\n  @g:\n    profile: p" ), "a group needs 'interfaces'" },
      { withGroups( "{ g: { interfaces: @eth0 } }" ), "expected a list" },
      { withGroups( "{ g: { interfaces: @[eth0, ~] } }" ), "found nothing" },
      { withGroups( "{ g: { interfaces: [eth0, eth1, @eth0] } }" ), "'eth0' is in this list twice" },
      { withUnits( "{ u: { groups: @[] } }" ), "at least one group" },
      { withUnits( "{ u: { groups: [g, @g] } }" ), "'g' is in this list twice" },
   };
   for( BadFile const & bad : cases ) expectRefusedAtItsPlace( bad );
}

TEST( BadConfig, anOddNameIsRefusedOnceAtItsPlace ) {
   std::vector<BadFile> const cases = {
      { withUnits( "{ @'a#1': { groups: [g] } }" ), "part of stage instance names" },
      { withUnits( "{ @a/b: { groups: [g] } }" ), "must not contain '/'" },
      { withUnits( "{ @'': { groups: [g] } }" ), "must not be empty" },
      { withUnits( "{ @\"a\\nb\": { groups: [g] } }" ), "control characters" },
      { withGroups( "{ @'': { interfaces: [] }, g: { interfaces: [] } }" ), "must not be empty" },
      { "profiles: { @'#DEFAULTPROFILE': { threshold: 1bps }, p: { threshold: 1bps } }\n" + defaultProfile + groups +
           units,
        "reserved" },
      { withGroups( "{ g: { interfaces: [Ethernet1/1, '" + std::string( 63, 'a' ) + "', @'" + std::string( 64, 'a' ) +
                    "'] } }" ),
        "longer than 63" },
      { withGroups( "{ g: { interfaces: [@eth 0] } }" ), "blanks" },
      { withExit( "[{ name: @'a:b', run: [x] }, { name: ratemon }]" ), "stage marks" },
      { withGroups( "{ g: { interfaces: [] }, @g/u: { interfaces: [] } }" ), "must not contain '/'" },
   };
   for( BadFile const & bad : cases ) expectRefusedAtItsPlace( bad );
}

// In every list of `badStages` that is not about them, so that the built-in stages are no second problem.
std::string const builtIn = "{ name: ratemon }, { name: verify }";

TEST( BadConfig, anOddStageIsRefusedOnceAtItsPlace ) {
   std::vector<BadFile> const cases = {
      { withEnter( "@[{ name: bgp, run: [x] }, { name: verify }]" ), "lacks the stage 'ratemon'" },
      { withExit( "@[{ name: bgp, run: [x] }]" ), "lacks the stage 'ratemon'" },
      { withExit( "@[]" ), "lacks the stage 'ratemon'" },
      { withEnter( "@[{ name: ratemon }, { name: bgp, run: [x] }]" ),
        "lacks the stage 'verify' after 'ratemon': without it the unit would count as in maintenance though traffic "
        "may "
        "have come back" },
      { withEnter( "@[{ name: verify }, { name: ratemon }]" ), "'verify' after 'ratemon'" },
      { withExit( "[{ name: ratemon }, @{ name: verify }]" ), "traffic is meant to come back" },
      { withEnter( "\n  - name: ratemon\n  - @name: ratemon\n  - name: verify\n" ), "'ratemon' is in this list twice" },
      { withEnter( "[" + builtIn + ", @{ name: verify }]" ), "'verify' is in this list twice" },
      { withEnter( "[" + builtIn + ", { name: a, run: [x] }, @{ name: a, run: [y] }]" ), "'a' is in this list twice" },
      { withEnter( "[{ name: ratemon, @run: [x] }, { name: verify }]" ), "'ratemon' is the service's own" },
      { withEnter( "[{ name: ratemon }, { name: verify, @run: [x] }]" ), "'verify' is the service's own" },
      { withEnter( "\n  - name: ratemon\n  - name: verify\n  - @name: a\n" ), "the stage 'a' needs 'run'" },
      { withEnter( "[" + builtIn + ", { name: a, run: @[] }]" ), "must begin with the program" },
      { withEnter( "[" + builtIn + ", { name: a, run: @[''] }]" ), "must begin with the program" },
      { withEnter( "[" + builtIn + ", { name: a, run: [x, @\"-c\\0d\"] }]" ), "must not contain '\\0'" },
      { withEnter( "[" + builtIn + ", @{ run: [x] }]" ), "a stage needs 'name'" },
      { withExit( "[{ name: ratemon, timeout: @0s }]" ), "must be more than 0s" },
      { withExit( "[{ name: ratemon, timeout: 1s, on-timeout: @roll-back }]" ),
        "'roll-back' must be rollback, continue or hold" },
      // Only a program can fail.
      { withEnter( "[{ name: ratemon, @on-timeout: continue }, { name: verify }]" ), "without 'timeout'" },
      { withExit( "[{ name: ratemon, timeout: 1s, on-timeout: @rollback }]" ),
        "nothing to roll back to; it must be continue or hold" },
      { withExit( "[{ name: ratemon }]\n  @maintLeave: []\n" ), "unknown key 'maintLeave' in 'stages'" },
   };
   for( BadFile const & bad : cases ) expectRefusedAtItsPlace( bad );
}

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
                    "file.yaml:3:49: '0s' must be 1s or more: samples are taken on a beat of one second" );
   }
}

// The same in JSON: no blanks, everything quoted, one line however long; and spread out with tabs.
TEST( ConfigFile, mayAsWellBeJson ) {
   std::string interfaces = R"("caf\u00e9","a\"b")";
   for( int i = 0; i < 1000; ++i ) interfaces += ",\"eth" + std::to_string( i ) + '"';
   std::string const json =
      R"({"default-profile":"p","profiles":{"p":{"threshold":"1.5Mbps","shutdown":true},"q":{"threshold":"1bps",)"
      R"("shutdown":false,"load-interval":"0s"}},"groups":{"g":{"interfaces":[)" +
      interfaces + R"(]}},"units":{"u":{"groups":["g"]}},"stages":{"maintExit":[{"name":"ratemon"},)" +
      R"({"name":"h","run":["\/bin\/x","a b","10",""],"timeout":"1s","on-timeout":"continue"}]}})";
   Config const config = parse( json, "line" );
   EXPECT_EQ( config.profiles, ( std::vector<Profile>{ { "p", 1500, 10, 60, true, std::nullopt },
                                                       { "q", 0.001, 10, 0, false, std::nullopt } } ) );
   ASSERT_EQ( config.groups[0].interfaces.size(), 1002u );
   EXPECT_EQ( config.groups[0].interfaces[0], "caf\xc3\xa9" );
   EXPECT_EQ( config.groups[0].interfaces[1], "a\"b" );
   EXPECT_EQ( config.groups[0].interfaces[1001], "eth999" );
   EXPECT_EQ( config.stages.maintExit[1].run, ( std::vector<std::string>{ "/bin/x", "a b", "10", "" } ) );

   std::string spread;
   bool quoted = false;
   for( char const c : json ) {
      if( c == '"' && spread.back() != '\\' ) quoted = !quoted;
      spread += c;
      bool const between = !quoted && ( c == ',' || c == ':' || c == '{' || c == '[' );
      if( between ) spread += "\n\t ";
   }
   EXPECT_EQ( parse( spread, "lines" ), config );
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
      { durationSeconds, "5m", 300 },
      { durationSeconds, "1d", 86400 },
      { durationSeconds, "1min30s", 90 },
      { durationSeconds, "1h30m", 5400 },
      { durationSeconds, "12 min 30.5 s", 750.5 },
      { durationSeconds, "1d2h3m4s5ms", 93784.005 },
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
      { durationSeconds, "1m1h", "largest down" },
      { durationSeconds, "1m 2min", "largest down" },
      { durationSeconds, "1.5h30m", "fraction before" },
      { durationSeconds, "1h30", "has no unit" },
      { durationSeconds, "5fortnights", "unknown unit 'fortnights'" },
      { durationSeconds, "1e3s", "unknown unit 'e'" },
      { durationSeconds, "1.2.3s", "unknown unit" },
      { durationSeconds, "-0s", "is negative" },
      { durationSeconds, "4294967296s", "longer than 136 years" },
      { durationSeconds, "1193047h", "longer than 136 years" },
      { durationSeconds, "49710d6h28min16s", "longer than 136 years" },
      { durationSeconds, std::string( 400, '9' ) + "d", "longer than 136 years" },
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

TEST( Oddities, areSaidOfWhatHoldsAndIsHardlyMeant ) {
   auto const of = []( std::string const & ps, std::string const & gs, std::string const & us ) {
      return oddities(
         parse( "profiles: {" + ps + "}\ndefault-profile: p\ngroups: {" + gs + "}\nunits: {" + us + "}\n", "f" ) );
   };
   std::string const p = "p: { threshold: 1Mbps }";
   std::string const g = "g: { interfaces: [a] }";
   std::string const u = "u: { groups: [g] }";
   std::string const h = ", h: { interfaces: [a, b], profile: q }";
   struct {
      std::vector<std::string> found;
      std::vector<std::string> expected;
   } const cases[] = {
      { of( p, g, u ), {} },
      { of( p + ", q: { threshold: 1Mbps }", g, u ), { "profile q: no group names it, and it is not the default" } },
      { of( "p: { threshold: 1bps }", g, u ),
        { "profile p: its threshold of 1 bps is below what an idle link carries, such as LLDP: it may never be met" } },
      { of( "p: { threshold: 100bps, load-interval: 9s }", g, u ),
        { "profile p: its load-interval of 9 s is shorter than its sample-interval of 10 s: a single quiet sample "
          "counts "
          "as proof" } },
      { of( "p: { threshold: 1Mbps, load-interval: 10s }", g, u ), {} },
      { of( "p: { threshold: 1Mbps, load-interval: 30min }", g, u ),
        { "profile p: its load-interval of 30 min does not fit into the timeout of the stage ratemon, 30 min: it "
          "always "
          "runs out" } },
      { of( p, g + ", h: { interfaces: [] }", u + ", v: { groups: [h] }" ),
        { "unit v: it has no interfaces, so there is nothing to prove" } },
      { of( p, g + ", h: { interfaces: [b] }", u ), { "group h: no unit has it" } },
      { of( p + ", q: { threshold: 1Mbps }", g + h, u + ", v: { groups: [h] }" ),
        { "a: in the groups g (profile p), h (profile q); the profile p counts, as its group is written first, unless "
          "only units of another are in maintenance" } },
      { of( p, g + ", h: { interfaces: [a], profile: p }", u + ", v: { groups: [h] }" ), {} },
   };
   for( auto const & [found, expected] : cases ) EXPECT_EQ( found, expected );
}

}  // namespace
}  // namespace Service::Config

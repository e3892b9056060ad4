// The lines of a scenario, one by one, as somebody writes them who knows only the manual.
#include "ScenarioFixture.h"

namespace Test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

// A unit "u" of interface Ethernet1 under a profile of 100 kbps, every 10 s, for 30 s.
constexpr char const * fabric = R"(
{"set": ["maintenance/profile/config/interface","config","#DEFAULTPROFILE"], "to": {"rateMonThresholdInKbps": 100, "sampleInterval": 10, "rateMonLoadInterval": 30}}
{"set": ["interface/status/all","intfStatus","Ethernet1"], "to": {"operStatus": 1}}
{"set": ["maintenance/mapping/member/interface","intfToGroup","Ethernet1"], "to": {"group": {"intf:g": true}, "selectedProfile": {"2": "#DEFAULTPROFILE"}}}
{"set": ["group/status/interface","status","g"], "to": {"intf": {"Ethernet1": true}}}
{"set": ["maintenance/mapping/group","groupToUnit","intf:g"], "to": {"unitName": {"u": true}}}
{"set": ["maintenance/unit/status","status","u"], "to": {"state": 1, "group": {"intf:g": true}}}
)";
constexpr char const * enter = R"(
{"set": ["maintenance/unit/status","status","u"], "to": {"genId": 1, "maintEnterInstanceName": "u#1", "state": 2}}
{"set": ["stage/maintEnter/completionstatus","status","u#1"], "to": {}}
{"set": ["stage/maintEnter/progress","progress","u#1"], "to": {"stage": {"ratemon": true}}}
)";

}  // namespace

class Scenario : public ScenarioFixture {};

TEST_F( Scenario, recordsAreMadeChangedAndWatchedByPath ) {
   std::string const profiles = R"("maintenance/profile/config/interface","config")";
   EXPECT_THAT( run( "{\"watch\": [" + profiles + ",\"p\"]}\n{\"watch\": [" + profiles + "]}\n" + "{\"set\": [" +
                     profiles + ",\"p\"], \"to\": {\"shutdown\": true}}\n" +  //
                     "{\"set\": [" + profiles + ",\"p\"], \"to\": {\"sampleInterval\": 0.1}}\n" + "{\"set\": [" +
                     profiles + ",\"p\",\"sampleInterval\"], \"to\": 0.1}\n" +  // equal: no change
                     "{\"delete\": [" + profiles + "]}\n{\"delete\": [" + profiles + ",\"p\"]}" ),
                ElementsAre( HasSubstr( R"("change": [)" ), HasSubstr( R"("p", "sampleInterval"], "value": 0.1})" ),
                             HasSubstr( R"("p"], "value": null})" ) ) );
   std::string const statuses = R"("interface/status/all","intfStatus",)";
   run( "{\"watch\": [" + statuses + "\"Ethernet1\",\"operStatus\"]}\n{\"watch\": [" + statuses + "\"Ethernet2\"]}" );
   run( "{\"set\": [" + statuses + "\"Ethernet1\"], \"to\": {}}\n{\"set\": [" + statuses +
        "\"Ethernet2/1\"], \"to\": {}}" );
   EXPECT_THAT( run( "{\"set\": [" + statuses + "\"Ethernet1\",\"operStatus\"], \"to\": 1}\n" + "{\"set\": [" +
                     statuses + "\"Ethernet2/1\",\"operStatus\"], \"to\": 1}" ),
                ElementsAre( HasSubstr( R"("Ethernet1", "operStatus"], "value": 1})" ) ) );
   run(
      R"({"set": ["bridging/vlan/status","vlanStatus",10], "to": {"intf": {"Ethernet10": true, "Ethernet9": true}}})" );
   EXPECT_THAT( get( R"("bridging/vlan/status","vlanStatus","10")" ),
                HasSubstr( R"("value": {"intf": {"Ethernet9": true, "Ethernet10": true}})" ) );
}

TEST_F( Scenario, countersAndTrafficAreWhatTheyWereSetTo ) {
   auto const octets = [&]( Sim::Direction direction ) {
      for( uint32_t row = 0; row < world_.counterTable().rows(); ++row ) {
         auto const entry = world_.counterTable().entry( row );
         if( !entry ) continue;
         return direction == Sim::Direction::in ? entry->counters.inOctets : entry->counters.outOctets;
      }
      return Brim::MaybeU63( UINT64_MAX );
   };
   run( R"({"counters": {"Ethernet1": {"in": 9223372036854775807}}})" );
   EXPECT_EQ( octets( Sim::Direction::in ), Brim::MaybeU63( 9223372036854775807u ) );
   EXPECT_EQ( octets( Sim::Direction::out ), Brim::MaybeU63( 0 ) );
   run( R"({"traffic": {"Ethernet1": {"out": 9}}}
{"advance": 1}
{"counters": {"Ethernet1": {"in": null}}})" );
   EXPECT_FALSE( octets( Sim::Direction::in ).hasValue() );
   EXPECT_EQ( octets( Sim::Direction::out ), Brim::MaybeU63( 1 ) );  // 9 bits: one whole octet
   run( R"({"counters": {"Ethernet1": {"out": 100}}}
{"advance": 8}
{"traffic": {"Ethernet1": {"out": 0}}})" );
   // The rate goes on from where the counter was set.
   EXPECT_EQ( octets( Sim::Direction::out ), Brim::MaybeU63( 109 ) );
}

TEST_F( Scenario, saysWhereALineIsWrong ) {
   struct Case {
      char const * line;
      char const * error;
   };
   for( auto const & [line, error] : std::vector<Case>{
           { R"({"advance": 1)", "line 1, column 14: this is no JSON: it ends before it is complete" },
           { R"({"advance": tru})", "line 1, column 16: this is no JSON" },
           { R"({"advance": 1} x)", "line 1, column 16: this is no JSON" },
           { R"([1])", "column 1: an object is wanted here, not a list" },
           { R"({})", "column 1: this object says nothing to do" },
           { R"({"advanse": 1})", "column 1: there is no line \"advanse\"; did you mean \"advance\"?" },
           { R"({"get": ["", "x"]})", "there is no \"\" at the top; there are: " },
           { R"({"advance": -1})", "column 13: time must not be negative" },
           { R"({"advance": 1e999})", "column 13: this number is out of range" },
           { R"({"advance": "1"})", "column 13: wants a number, not a string" },
           { R"({"advance": 1, "to": 2})", "column 22: \"to\" does not belong in a line with \"advance\"" },
           { R"({"advance": 1, "advance": 2})", "column 16: \"advance\" stands twice in this object" },
           { R"({"set": ["a"]})", "column 1: \"set\" needs a \"to\"" },
           { R"({"batch": [{"get": ["lag/config"]}, {"advance": 1}]})",
             "column 37: time does not move within a batch" },
           { R"({"get": ["no/where"]})", "column 9: there is no \"no/where\" at the top; there are: " },
           { R"({"get": ["lag/config", "phyIntff"]})",
             "column 9: there is no \"phyIntff\" in lag/config; did you mean \"phyIntf\"?" },
           { R"({"set": ["interface/status/all","intfStatus","Ethernet1"], "to": {"operStatus": 77}})",
             "column 66: interface/status/all/intfStatus/Ethernet1: the attribute \"operStatus\" wants" },
           { R"({"set": ["group/status/interface","status","g"], "to": {"intf": {"Ethernet1": false}}})",
             "wants true (it is a set), not a boolean" },
           { R"({"stop": {}})", "column 10: the plug-in is not started" },
           { R"({"trace": [12]})", "column 12: there is no level 12" },
           { R"({"counters": {"Ethernet1": {"up": 1}}})", "column 35: a direction is \"in\" or \"out\", not \"up\"" },
           { R"({"traffic": {"Ethernet1": {"in": -5}}})", "column 34: a rate must not be negative" },
           { R"({"unread": "Ethernet1"})", "column 12: a list of interfaces is wanted" },
           { R"({"unread": [1]})", "column 13: an interface's name is wanted here, not a number" },
           { R"({"restartCounters": ["Ethernet99"]})", "column 22: Ethernet99 has no counters" },
        } ) {
      EXPECT_THAT( run( line ).back(), HasSubstr( error ) ) << line;
   }
   EXPECT_THAT( run( "# fine\n\n  \r\n{\"stop\": {}}" ), ElementsAre( HasSubstr( "line 4, column 10" ) ) );
   EXPECT_THAT( run( "{\"start\": {}}\n{\"start\": {}}" ).back(), HasSubstr( "is started already" ) );
}

TEST_F( Scenario, tracesAreShownByLevel ) {
   run( fabric );
   auto const lines = run( "{\"trace\": [2]}\n{\"ring\": [3]}\n{\"start\": {}}" + std::string( enter ) );
   EXPECT_THAT( lines, ::testing::Contains(
                          R"({"t": 1000, "trace": 2, "text": "handleUnitMaintenanceEnter: unit - u, genId 1"})" ) );
   for( auto const & line : lines ) {
      EXPECT_TRUE( line.find( "\"trace\": 2" ) != std::string::npos || line.find( "\"ring\": 3" ) != std::string::npos )
         << line;
   }
   EXPECT_THAT( lines, ::testing::Contains( HasSubstr( "\"ring\": 3" ) ) );
   EXPECT_THAT( run( "{\"trace\": []}\n{\"ring\": []}\n{\"stop\": {}}\n{\"start\": {}}" ), IsEmpty() );
}

}  // namespace Test

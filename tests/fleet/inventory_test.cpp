#include "inventory/Inventory.h"

#include <gtest/gtest.h>

namespace FleetTest {

namespace {

using namespace Fleet;

Inventory pairOf( std::string const & budgets ) {
   return readInventory( R"(
boxes:
  a: { labels: { pair: one, site: fra }, units: [ fabric, edge ] }
  b: { labels: { pair: one, site: ams }, units: [ fabric ] }
budgets: )" + budgets + "\n",
                         "fleet.yaml" );
}

std::string faultOf( std::string const & text ) {
   try {
      static_cast<void>( readInventory( text, "fleet.yaml" ) );
      return "";
   } catch( Service::Config::ConfigError const & fault ) {
      return fault.what();
   }
}

}  // namespace

TEST( Inventory, aShareNeverAllowsMoreThanItSays ) {
   struct Case {
      Budget budget;
      std::size_t units;
      std::size_t mayBeOut;
   };
   using enum Budget::Rule;
   for( Case const & c : { Case{ { atMostOut, 1, false }, 2, 1 }, Case{ { atMostOut, 5, false }, 2, 2 },
                           Case{ { atMostOut, 25, true }, 3, 0 }, Case{ { atMostOut, 25, true }, 4, 1 },
                           Case{ { atMostOut, 10, true }, 70, 7 }, Case{ { atMostOut, 34, true }, 3, 1 },
                           Case{ { atLeastIn, 90, true }, 11, 1 }, Case{ { atLeastIn, 90, true }, 10, 1 },
                           Case{ { atLeastIn, 90, true }, 9, 0 }, Case{ { atLeastIn, 4, false }, 3, 0 },
                           Case{ { atLeastIn, 0, false }, 3, 3 } } ) {
      EXPECT_EQ( c.budget.mayBeOut( c.units ), c.mayBeOut ) << c.budget.text() << " of " << c.units;
   }
}

TEST( Inventory, aUnitCountsInTheGroupOfEachLabelThatHasABudget ) {
   Inventory const inventory = pairOf( R"({ pair: { out: 1 }, "site: fra": { in-service: 50% } })" );
   std::vector<std::string> groups;
   for( Group const * group : inventory.groupsOf( { "a", "edge" } ) ) groups.push_back( group->name );
   EXPECT_EQ( groups, ( std::vector<std::string>{ "pair: one", "site: fra" } ) );
   ASSERT_EQ( inventory.groupsOf( { "b", "fabric" } ).size(), 1u );
   EXPECT_EQ( inventory.groupsOf( { "b", "fabric" } )[0]->units.size(), 3u );
   EXPECT_EQ( odditiesOf( inventory ), std::vector<std::string>() );
   // That of the group goes before that of its label.
   Inventory const two = pairOf( R"({ site: { out: 1 }, "site: fra": { out: 0 } })" );
   EXPECT_EQ( two.groupsOf( { "a", "edge" } )[0]->mayBeOut(), 0u );
   EXPECT_EQ( two.groupsOf( { "b", "fabric" } )[0]->mayBeOut(), 1u );
   EXPECT_EQ( odditiesOf( two ),
              std::vector<std::string>{ "nothing of \"site: fra\" can ever go out: at most 0 out of 2" } );
   EXPECT_EQ( odditiesOf( pairOf( R"({ "site: fra": { out: 1 } })" ) ),
              std::vector<std::string>{ "no budget holds for b/fabric: it may go out at any time" } );
}

TEST( Inventory, whatIsWrongIsSaidAllAtOnceWithItsPlace ) {
   EXPECT_EQ(
      faultOf( R"(boxes:
  a.b: { labels: { pair: one }, units: [ x, x ] }
  c: { lables: {}, units: [ "y/z" ] }
  d: { labels: { pair: "" } }
budgets:
  piar: { out: 1 }
  pair: { out: 1, in-service: 2 }
heartbeat: 100ms
)" ),
      "fleet.yaml:2:3: box name 'a.b' may only have letters, digits, '-' and '_': it is part of keys in the broker\n"
      "fleet.yaml:2:45: unit 'x' stands here twice\n"
      "fleet.yaml:3:8: unknown key 'lables' in box 'c'; did you mean 'labels'?\n"
      "fleet.yaml:3:29: unit name 'y/z' must not contain '#', '/' or control characters\n"
      "fleet.yaml:4:24: label 'pair' has no value\n"
      "fleet.yaml:6:3: no box has the label 'piar'; did you mean 'pair'?\n"
      "fleet.yaml:7:3: budget 'pair' needs 'out' or 'in-service', one of them\n"
      "fleet.yaml:8:12: a heartbeat takes 1s or more" );
   EXPECT_EQ( faultOf( "boxes: { a: { units: [ x ] } }\nbudgets: { pair: { out: 1.5 }, site: { out: 101% } }\n" ),
              "fleet.yaml:2:12: no box has the label 'pair'\n"
              "fleet.yaml:2:25: '1.5' is neither a number of units, as 2, nor a share of them, as 25%\n"
              "fleet.yaml:2:32: no box has the label 'site'\n"
              "fleet.yaml:2:45: '101%' is neither a number of units, as 2, nor a share of them, as 25%" );
   EXPECT_EQ( faultOf( "boxes: {}" ), "fleet.yaml:1:1: the inventory needs 'boxes', at least one" );
   EXPECT_NE( faultOf( "boxes: [" ).find( "this is not YAML" ), std::string::npos );
}

}  // namespace FleetTest

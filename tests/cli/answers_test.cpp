// Answers that are not what they should be: each kind of change to each member, in process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Answers.h"
#include "report/WindowPage.h"
#include "tables/Changes.h"
#include "tables/Report.h"
#include "tables/Shape.h"
#include "tables/Units.h"

namespace Cli {
namespace {

namespace json = boost::json;

Service::UnitAnswer fullUnit() {
   Service::AccountAnswer account;
   account.interface = "up1";
   account.verdict = "loud";
   account.since = 900;
   account.settled = false;
   account.stillNeededSeconds = 3;
   account.thresholdBitsRate = 1e5;
   account.lastLoud = Service::LoudAnswer{ 997, "out", 3e6 };
   account.why = "a reason";
   Service::UnitAnswer unit;
   unit.unit = "fabric";
   unit.state = "entering";
   unit.stage = "ratemon";
   unit.requestedBy = "alice";
   unit.since = 900;
   unit.now = 1000;
   unit.without = { "up2" };
   unit.interfaces = { account };
   return unit;
}

Service::WindowAnswer fullWindow() {
   Service::WindowInterfaceAnswer intf;
   intf.interface = "up1";
   intf.events = { Evidence::IntfEvent() };
   intf.verdicts = { { 1, "quiet" } };
   intf.rates = { Evidence::RateCell() };
   intf.profile = Evidence::ProfileInForce();
   Service::WindowAnswer window;
   window.unit = "fabric";
   window.outcome = "underway";
   window.requested = 900;
   window.entered = 950;
   window.asOf = 1000;
   window.wallClockOffset = 1.7e9;
   window.stages = { { 1, "verify", "enter", 900, 950, {}, "done", {} } };
   window.interfaces = { intf };
   return window;
}

// An answer, what it must be, and all that is made of it.
struct Asked {
   char const * name;
   Shape const & shape;
   Object answer;
   std::function<void( Object const & )> shown;
};

template<class Print>
std::function<void( Object const & )> printing( Print const & print ) {
   return [print]( Object const & answer ) {
      std::ostringstream out;
      print( out, answer );
   };
}

std::vector<Asked> everything() {
   return {
      { "unit", unitShape, received( fullUnit() ),
        printing( []( auto & out, Object const & unit ) { printStatus( out, unit, true ); } ) },
      { "units", unitsShape, received( Service::UnitsAnswer{ { fullUnit() } } ), printing( printUnits ) },
      { "explained", unitsShape, received( Service::UnitsAnswer{ { fullUnit() } } ), printing( printExplained ) },
      { "changes", unitShape, received( fullUnit() ), []( Object const & unit ) { (void)Changes().next( unit ); } },
      { "ready", readyShape, received( Service::ReadyAnswer{ "fabric", true, 990, false, 1000, { "why" } } ),
        printing( printReady ) },
      { "interfaces", interfacesShape, received( Service::InterfacesAnswer{ { Service::InterfaceAnswer() } } ),
        printing( printInterfaces ) },
      { "window", windowShape, received( fullWindow() ), printing( printReport ) },
      { "page", windowShape, received( fullWindow() ),
        []( Object const & window ) {
           try {
              (void)Report::windowPage( kelValue( window ) );
           } catch( Kel::AttributeError const & error ) {
              throw WrongAnswer( error.what() );  // as maintctl does
           }
        } },
   };
}

// Calls `each` with every value below, as something that can be changed.
void walk( json::value & value, std::function<void( json::value & )> const & each ) {
   each( value );
   if( auto * const object = value.if_object() ) {
      for( auto & [name, member] : *object ) walk( member, each );
   } else if( auto * const list = value.if_array() ) {
      for( auto & element : *list ) walk( element, each );
   }
}

TEST( Answers, asTheyAreDeclaredHaveTheirShape ) {
   for( auto const & [name, shape, answer, shown] : everything() ) {
      EXPECT_EQ( shapeFault( answer, shape ), "" ) << name;
      EXPECT_NO_THROW( shown( answer ) ) << name;
   }
   Service::RequestAnswer const request{ "enter", "fabric", "started", 4, {} };
   EXPECT_EQ( shapeFault( received( request ), requestShape ), "" );
}

// Whatever a member is changed to, the answer is refused, read as one that knows less, or shown: there is no third way
// out, and none that ends the program.
TEST( Answers, ofAnotherShapeAreRefusedByName ) {
   json::value const others[] = {
      nullptr, true, -1, 1e300, 18446744073709551615U, "\x1b", json::array{}, json::array{ 1 }, json::object{} };
   for( auto const & [name, shape, answer, shown] : everything() ) {
      std::size_t refused = 0;
      json::value changed = answer;
      walk( changed, [&, &name = name, &shape = shape, &shown = shown]( json::value & at ) {
         json::value const before = at;
         for( json::value const & other : others ) {
            at = other;
            try {
               if( shapeFault( changed, shape ).empty() ) {
                  shown( changed.as_object() );
               } else {
                  ++refused;
               }
            } catch( WrongAnswer const & ) {
               ++refused;
            } catch( std::exception const & error ) {
               ADD_FAILURE() << name << " " << json::serialize( changed ) << ": " << error.what();
            }
         }
         at = before;
      } );
      EXPECT_GT( refused, answer.size() ) << name;
   }
}

TEST( Answers, withoutAMemberTellWhichAndWhere ) {
   Object units = received( Service::UnitsAnswer{ { fullUnit(), fullUnit() } } );
   auto & unit = units["units"].as_array()[1].as_object();
   unit["without"] = json::array{ 3 };
   EXPECT_EQ( shapeFault( units, unitsShape ), "units[1] has no \"without\" that is a list of texts" );
   unit.erase( "state" );
   EXPECT_EQ( shapeFault( units, unitsShape ), "units[1] has no \"state\" that is a text" );
   units["units"].as_array()[0] = 3;
   EXPECT_EQ( shapeFault( units, unitsShape ), "units[0] is no object" );
   EXPECT_EQ( shapeFault( json::array{}, unitsShape ), "it is no object" );
   unit = received( fullUnit() );
}

}  // namespace
}  // namespace Cli

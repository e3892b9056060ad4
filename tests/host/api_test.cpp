// What maintd's API answers, request by request.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/json.hpp>

#include "AllDescriptors.h"
#include "ApiBox.h"
#include "kel/Trace.h"

namespace Host {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

// Writes more than a pipe takes at a time.
class LongDumper final : public Maintenance::DumpPluginInfo {
 public:
   void dump( int fd ) override {
      ASSERT_EQ( ::write( fd, text.data(), text.size() / 2 ), static_cast<ssize_t>( text.size() / 2 ) );
      ASSERT_EQ( ::write( fd, text.data(), text.size() / 2 ), static_cast<ssize_t>( text.size() / 2 ) );
   }
   std::string text = [] {
      std::string const half = std::string( 500'000, 'x' ).append( "\n" );
      return half + half;
   }();
};

class ApiTest : public ::testing::Test, protected ApiBox {
 protected:
   ~ApiTest() override {
      for( auto * const handle : Kel::traceHandles() ) handle->levelsIs( 0 );
   }
   boost::json::value asked( std::string const & target ) { return boost::json::parse( ask( "GET", target ).body ); }
};

// A unit of which one interface is there and one is not.
class ApiUnitTest : public ApiTest {
 protected:
   ApiUnitTest() { makeUnit(); }
   std::string state() { return asked( "/v1/units/fabric" ).at( "state" ).as_string().c_str(); }
   std::size_t windows() { return asked( "/v1/windows" ).at( "windows" ).as_array().size(); }
};

TEST_F( ApiUnitTest, aRefusalSaysEachReasonAndChangesNothing ) {
   for( std::string const query : { "", "?dry-run=1", "?dry-run=0&without=up1" } ) {
      auto const answer = ask( "POST", "/v1/units/fabric/enter" + query );
      EXPECT_EQ( answer.status, 409u ) << query;
      auto const body = boost::json::parse( answer.body );
      ASSERT_EQ( body.at( "why" ).as_array().size(), 1u ) << query;
      std::string const why = body.at( "why" ).at( 0 ).as_string().c_str();
      EXPECT_THAT( why, StartsWith( "up2: " ) );
      EXPECT_EQ( body.at( "error" ).as_string(), "unit \"fabric\" is not taken into maintenance: " + why );
   }
   auto const two = boost::json::parse( ask( "POST", "/v1/units/fabric/enter?without=x&without=y" ).body );
   ASSERT_GE( two.at( "why" ).as_array().size(), 2u );
   EXPECT_THAT( two.at( "error" ).as_string().c_str(), AllOf( HasSubstr( "x: not an" ), HasSubstr( "; y: not an" ) ) );
   EXPECT_EQ( state(), "active" );
   EXPECT_EQ( windows(), 0u );
}

TEST_F( ApiUnitTest, aDryRunChangesNothingAndSaysSo ) {
   auto const answer = ask( "POST", "/v1/units/fabric/enter?without=up2&dry-run=1" );
   EXPECT_EQ( answer.status, 200u );
   auto const body = boost::json::parse( answer.body );
   EXPECT_EQ( body.at( "result" ), "wouldStart" );
   EXPECT_TRUE( body.at( "generation" ).is_null() );
   EXPECT_EQ( state(), "active" );
   EXPECT_EQ( windows(), 0u );
}

// Passed over, each of these would take the unit out of service otherwise than it was asked for.
TEST_F( ApiUnitTest, anOptionOfEnterThatIsMisspeltIsNotPassedOver ) {
   for( std::string const query :
        { "?wihtout=up2", "?without=up2&dryrun=1", "?without=up2&dry-run=yes", "?without=up2&dry-run", "?without=%zz",
          "?without=up2&%4=1", "?without=up2&yes", "?without=up2&yes=true",
          "?without=up2&session=", "?without=up2&session=eth0", "?without=up2&session=192.0.2.7&session=192.0.2.8" } ) {
      EXPECT_EQ( ask( "POST", "/v1/units/fabric/enter" + query ).status, 400u ) << query;
      EXPECT_EQ( state(), "active" ) << query;
   }
}

TEST_F( ApiUnitTest, whoMeansItIsNotAskedBack ) {
   std::string const enter = "/v1/units/fabric/enter?without=up2";
   objections_ = { "up1 carries your session; say --yes if you mean it", "another" };
   for( char const * more : { "&session=192.0.2.7", "&session=2001:db8::7&dry-run=1", "&yes=0" } ) {
      auto const answer = ask( "POST", enter + more );
      EXPECT_EQ( answer.status, 409u ) << more;
      EXPECT_EQ( boost::json::parse( answer.body ).at( "why" ),
                 ( boost::json::array{ objections_[0], objections_[1] } ) );
      EXPECT_EQ( state(), "active" ) << more;
   }
   EXPECT_THAT( guarded_, ElementsAre( "fabric|up2|192.0.2.7", "fabric|up2|2001:db8::7", "fabric|up2|" ) );
   EXPECT_THAT( ask( "POST", enter + "&yes=1&dry-run=1" ).body, HasSubstr( "\"wouldStart\"" ) );
   EXPECT_EQ( ask( "POST", enter + "&yes=1&session=192.0.2.7" ).status, 200u );
   EXPECT_EQ( state(), "entering" );
   // Nothing begins any more that could be guarded against.
   EXPECT_THAT( ask( "POST", enter ).body, HasSubstr( "\"already\"" ) );
   EXPECT_EQ( guarded_.size(), 3u );
}

TEST_F( ApiUnitTest, whatCannotBeKeptOnDiskIsRefusedOrToldToBeSo ) {
   std::string const enter = "/v1/units/fabric/enter?without=up2";
   storeTrouble_ = "the disk is full";
   for( std::string const target : { enter.c_str(), "/v1/units/fabric/exit", "/v1/reload" } ) {
      auto const answer = ask( "POST", target );
      EXPECT_EQ( answer.status, 503u ) << target;
      EXPECT_THAT( answer.body, HasSubstr( "nothing is changed" ) );
      EXPECT_THAT( answer.body, HasSubstr( "the disk is full" ) );
   }
   EXPECT_EQ( state(), "active" );
   // These change nothing that is kept.
   EXPECT_EQ( ask( "POST", enter + "&dry-run=1" ).status, 200u );
   EXPECT_EQ( ask( "POST", "/v1/trace/levels?levels=" ).status, 200u );
   EXPECT_EQ( asked( "/v1/units/fabric" ).at( "state" ), "active" );

   storeTrouble_ = "";
   storeTroubleOfTurn_ = "it filled up just now";
   EXPECT_EQ( ask( "POST", "/v1/units/north/exit" ).status, 404u );
   storeTrouble_ = "";
   auto const answer = ask( "POST", enter );
   EXPECT_EQ( answer.status, 500u );
   EXPECT_THAT( answer.body, HasSubstr( "in force, but not on disk: it filled up just now" ) );
   EXPECT_EQ( state(), "entering" );
}

TEST_F( ApiUnitTest, aStayIsAnsweredForFromItsRequestOn ) {
   EXPECT_EQ( ask( "GET", "/v1/windows/fabric/last" ).status, 404u );
   EXPECT_EQ( ask( "GET", "/v1/windows/fabric" ).body, "{\"windows\": []}\n" );
   // Encoded, and more than one: the second is left out as well.
   auto const entered = ask( "POST", "/v1/units/fabric/enter?without=%75p2&without=up1", "bob" );
   EXPECT_EQ( entered.status, 200u );
   EXPECT_THAT( entered.body, HasSubstr( "\"request\": \"enter\", \"unit\": \"fabric\", \"result\": \"started\", "
                                         "\"generation\": 1, " ) );
   auto const unit = asked( "/v1/units/fabric" );
   EXPECT_EQ( unit.at( "state" ), "entering" );
   EXPECT_EQ( unit.at( "requestedBy" ), "bob" );
   EXPECT_EQ( unit.at( "now" ).to_number<double>(), 1000 );
   EXPECT_EQ( unit.at( "without" ), ( boost::json::array{ "up1", "up2" } ) );
   EXPECT_THAT( ask( "POST", "/v1/units/fabric/enter?without=up2" ).body, HasSubstr( "\"result\": \"already\"" ) );

   EXPECT_EQ( ask( "POST", "/v1/units/fabric/exit", "carol" ).status, 200u );
   for( char const * which : { "/1", "/last" } ) {
      auto const window = asked( std::string( "/v1/windows/fabric" ) + which );
      EXPECT_EQ( window.at( "generation" ), 1 ) << which;
      EXPECT_EQ( window.at( "requestedBy" ), "bob" ) << which;
      EXPECT_EQ( window.at( "exitRequestedBy" ), "carol" ) << which;
   }
   EXPECT_EQ( asked( "/v1/windows/fabric" ).at( "windows" ).as_array().size(), 1u );
   for( char const * which : { "/2", "/0", "/-1", "/1x", "/", "/first" } ) {
      unsigned const status = std::string( which ) == "/" ? 200 : 404;
      EXPECT_EQ( ask( "GET", std::string( "/v1/windows/fabric" ) + which ).status, status ) << which;
   }
}

TEST_F( ApiUnitTest, readinessAndInterfacesAreAnswered ) {
   // The answer says it, not the status: the question was answered.
   auto const ready = ask( "GET", "/v1/units/fabric/ready" );
   EXPECT_EQ( ready.status, 200u );
   EXPECT_THAT( ready.body, HasSubstr( "\"ready\": false" ) );
   ask( "POST", "/v1/units/fabric/enter?without=up2&without=up1" );
   auto const proven = asked( "/v1/units/fabric/ready" );
   EXPECT_TRUE( proven.at( "ready" ).as_bool() );
   EXPECT_TRUE( proven.at( "provenUntil" ).is_null() );

   auto const explained = asked( "/v1/interfaces/up1" );
   ASSERT_EQ( explained.at( "units" ).as_array().size(), 1u );
   auto const & accounts = explained.at( "units" ).at( 0 ).at( "interfaces" ).as_array();
   ASSERT_EQ( accounts.size(), 1u );
   EXPECT_EQ( accounts[0].at( "interface" ), "up1" );
   EXPECT_EQ( accounts[0].at( "verdict" ), "left out" );
   EXPECT_EQ( ask( "GET", "/v1/interfaces/up3" ).status, 404u );
}

TEST_F( ApiTest, aReloadIsDoneOrRefusedWithEachReason ) {
   EXPECT_EQ( ask( "POST", "/v1/reload" ).body, "{\"result\": \"reloaded\"}\n" );
   reloadTrouble_ = { "maintd.yaml:3:1: no such key", "unit fabric is in maintenance" };
   auto const answer = ask( "POST", "/v1/reload" );
   EXPECT_EQ( answer.status, 409u );
   auto const body = boost::json::parse( answer.body );
   EXPECT_EQ( body.at( "why" ), ( boost::json::array{ reloadTrouble_[0], reloadTrouble_[1] } ) );
   EXPECT_THAT( body.at( "error" ).as_string().c_str(), HasSubstr( "no such key; unit fabric" ) );
   EXPECT_EQ( ask( "GET", "/v1/reload" ).status, 405u );
}

TEST_F( ApiTest, levelsReachEveryHandleOrNone ) {
   auto & one = Kel::traceHandle( "One" );
   auto & two = Kel::traceHandle( "Two" );
   struct Case {
      char const * query;
      unsigned status;
      Kel::TraceHandle::Levels levels;  // afterwards
   } const cases[] = {
      { "?levels=1,2,4", 200, 0b10110 },         { "?levels=0%2C31", 200, 0x80000001 },
      { "?levels=32", 400, 0x80000001 },         { "?levels=1,", 400, 0x80000001 },
      { "?levels=1,x", 400, 0x80000001 },        { "?levels=-1", 400, 0x80000001 },
      { "?levels=4294967297", 400, 0x80000001 }, { "?levels=%zz", 400, 0x80000001 },
      { "?other=1", 400, 0x80000001 },           { "", 400, 0x80000001 },
      { "?other=1&levels=5,5", 200, 1 << 5 },    { "?levels=", 200, 0 },
   };
   for( auto const & [query, status, levels] : cases ) {
      auto const answer = ask( "POST", ( std::string( "/v1/trace/levels" ) + query ).c_str() );
      EXPECT_EQ( answer.status, status ) << query;
      EXPECT_EQ( one.levels(), levels ) << query;
      EXPECT_EQ( two.levels(), levels ) << query;
      EXPECT_THAT( answer.body, HasSubstr( status == 200 ? "{\"levels\": {" : "{\"error\": \"" ) );
   }
   one.levelsIs( { 4, 9 } );
   EXPECT_THAT( ask( "GET", "/v1/trace/levels" ).body, HasSubstr( "\"One\": [4, 9], \"Two\": []" ) );
}

TEST_F( ApiTest, theDumpIsTheDumpersText ) {
   EXPECT_EQ( ask( "GET", "/v1/dump" ).body, "" );
   LongDumper dumper;
   context_.dumpPluginInfoIs( &dumper );
   auto const answer = ask( "GET", "/v1/dump" );
   EXPECT_EQ( answer.status, 200u );
   EXPECT_EQ( answer.contentType, "text/plain" );
   EXPECT_TRUE( answer.body == dumper.text );
   // A dumper writes to a descriptor.
   AllDescriptors const all;
   auto const none = ask( "GET", "/v1/dump" );
   EXPECT_EQ( none.status, 503u );
   EXPECT_THAT( none.body, HasSubstr( "there is no dump now: " ) );
}

TEST_F( ApiTest, whatIsNotThereIsSaid ) {
   struct Case {
      char const * method;
      char const * target;
      unsigned status;
      char const * says;
   } const cases[] = {
      { "GET", "/v1/units", 200, "\"units\": []" },
      { "GET", "//v1//units/?x=/y", 200, "\"units\": []" },
      { "GET", "/v1/windows", 200, "\"windows\": []" },
      { "GET", "/v1/windows/north", 404, "there is no unit \\\"north\\\"" },
      { "GET", "/v1/units/north/ready", 404, "there is no unit \\\"north\\\"" },
      { "GET", "/v1/interfaces/up1", 404, "no unit has an interface \\\"up1\\\"" },
      { "POST", "/v1/units/north/enter?dry-run=1", 404, "there is no unit \\\"north\\\"" },
      { "GET", "/v1/units/n%6frth", 404, "there is no unit \\\"north\\\"" },
      { "POST", "/v1/units/north/enter", 404, "there is no unit \\\"north\\\"" },
      { "POST", "/v1/units/north/leave", 404, "there is nothing at POST /v1/units/north/leave" },
      { "POST", "/v1/dump", 405, "/v1/dump has no method POST" },
      { "GET", "/v1/state", 200, "{\"below\": [\"bridging\", " },
      { "GET", "/v1/state/stage/maintEnter", 200, "{\"below\": [\"" },
      { "GET", "/v1/state/maintenance/nowhere", 404, "there is no \\\"nowhere\\\" in maintenance; there are: " },
      { "GET", "/v1/state/maintenence/unit", 404, "at the top; did you mean \\\"maintenance\\\"?" },
      { "GET", "/v2/units", 404, "there is nothing at GET /v2/units" },
      { "GET", "/", 404, "there is nothing at GET /" },
      { "GET", "/v1/units/%4", 400, "percent-encoded" },
      { "DELETE", "/v1/units", 405, "/v1/units has no method DELETE" },
      { "DELETE", "/v2/units", 404, "there is nothing at DELETE /v2/units" },
   };
   for( auto const & [method, target, status, says] : cases ) {
      auto const answer = ask( method, target );
      EXPECT_EQ( answer.status, status ) << target;
      EXPECT_THAT( answer.body, HasSubstr( says ) ) << target;
      EXPECT_EQ( answer.body.back(), '\n' ) << target;
   }
}

TEST_F( ApiTest, aMethodThatATargetLacksIsAnsweredWithThoseItHas ) {
   struct Case {
      char const * method;
      char const * target;
      unsigned status;
      char const * allow;
   } const cases[] = {
      { "PUT", "/v1/units", 405, "GET, HEAD, OPTIONS" },
      { "GET", "/v1/units/x/enter", 405, "POST, OPTIONS" },
      { "PATCH", "/v1/trace/levels", 405, "GET, HEAD, POST, OPTIONS" },
      { "OPTIONS", "/v1/trace/levels", 200, "GET, HEAD, POST, OPTIONS" },
      { "OPTIONS", "*", 200, "GET, HEAD, POST, OPTIONS" },
      { "OPTIONS", "/v1", 404, "" },
      { "GET", "/v1/units", 200, "" },
   };
   for( auto const & [method, target, status, allow] : cases ) {
      auto const answer = ask( method, target );
      EXPECT_EQ( answer.status, status ) << method << target;
      EXPECT_EQ( answer.allow, allow ) << method << target;
   }
}

TEST_F( ApiTest, targetsAreTakenApartAsTheStandardSays ) {
   // The slash belongs to the name, and so do the plus, the dots and what is no text.
   EXPECT_THAT( ask( "GET", "/v1/units/a%2Fb+c" ).body, HasSubstr( "no unit \\\"a/b+c\\\"" ) );
   EXPECT_THAT( ask( "GET", "/v1/units/.." ).body, HasSubstr( "no unit \\\"..\\\"" ) );
   EXPECT_THAT( ask( "GET", "/v1/units/%00%ff" ).body, HasSubstr( "no unit \\\"\\u0000\uFFFD\\\"" ) );
   for( char const * target : { "", "v1/units", "*x", "/v1/units#x", "/v1/units?%", "/v1/un its", "/v1/\"" } ) {
      EXPECT_EQ( ask( "GET", target ).status, 400u ) << target;
   }
   std::string deep = "/v1/state";
   while( std::count( deep.begin(), deep.end(), '/' ) < 32 ) deep += "/x";
   EXPECT_EQ( ask( "GET", deep ).status, 404u );
   EXPECT_EQ( ask( "GET", deep + "/x" ).status, 414u );
}

TEST_F( ApiTest, inventedNamesLeaveNothingBehind ) {
   std::size_t const before = Lumo::IntfId::names();
   for( std::string const target :
        { "/v1/state/maintenance/interface/status/ratemon/monIntfStatus/x/y/z",
          "/v1/state/maintenance/interface/status/ratemon/monIntfUnderMaint/x/y/z",
          "/v1/state/interface/status/all/intfStatus/x%2fy/operStatus",
          "/v1/state/interface/errdisable/cause/x/intfStatus/y", "/v1/units/x", "/v1/interfaces", "/v1/interfaces/x",
          "/v1/windows/x/1", "/v1/units/x/y", "/v1/state/x/y" } ) {
      ask( "GET", target.c_str() );
   }
   EXPECT_EQ( ask( "POST", "/v1/units/x/enter?without=y" ).status, 404u );
   EXPECT_EQ( Lumo::IntfId::names(), before );
}

}  // namespace
}  // namespace Host

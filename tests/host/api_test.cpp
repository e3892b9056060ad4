// What maintd's API answers besides the units, request by request.
#include "api/Api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "kel/ActivityLoop.h"
#include "kel/Trace.h"
#include "quill/CounterWriter.h"
#include "quill/EntityManager.h"

namespace Host {
namespace {

using ::testing::HasSubstr;

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

class ApiTest : public ::testing::Test {
 protected:
   ~ApiTest() override {
      for( auto * const handle : Kel::traceHandles() ) handle->levelsIs( 0 );
   }
   HttpAnswer ask( char const * method, char const * target ) {
      HttpAnswer answer;
      loop_.turn( [&] { answer = api_.answer( { method, target } ); } );
      return answer;
   }

   Kel::Ptr<Kel::VirtualClock> clock_{ new Kel::VirtualClock( 1000 ) };
   Kel::ActivityLoop loop_{ Kel::Ptr<Kel::Clock>( clock_ ) };
   Kel::Ptr<Dovra::EntityManager> database_{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state_{ *database_ };
   KelQuill::CounterWriter counters_{ state_.counterWriterStatus, "" };
   Service::Config::Config const config_{};
   Service::ConfigRecords records_{ state_, config_ };
   Service::UnitService units_{ state_, records_ };
   Service::UnitView view_{ state_, records_ };
   Maintenance::PluginContext context_{ new Kel::Dir( "plugins" ), database_,
                                        new KelQuill::EntityManager( counters_.table() ) };
   Api api_{ *database_, units_, view_, context_ };
};

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
      EXPECT_THAT( answer.body, HasSubstr( status == 200 ? "{\"levels\": {" : "numbers from 0 to 31" ) );
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
   EXPECT_STREQ( answer.contentType, "text/plain" );
   EXPECT_TRUE( answer.body == dumper.text );
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
      { "GET", "/v1/units/n%6frth", 404, "there is no unit \\\"north\\\"" },
      { "POST", "/v1/units/north/enter", 404, "there is no unit \\\"north\\\"" },
      { "POST", "/v1/units/north/leave", 404, "there is nothing at POST /v1/units/north/leave" },
      { "POST", "/v1/dump", 404, "there is nothing at POST /v1/dump" },
      { "GET", "/v1/state", 404, "there is nothing at GET /v1/state" },
      { "GET", "/v1/state/maintenance/nowhere", 404, "maintenance/nowhere" },
      { "GET", "/v2/units", 404, "there is nothing at GET /v2/units" },
      { "GET", "/", 404, "there is nothing at GET /" },
      { "GET", "/v1/units/%4", 400, "percent-encoded" },
      { "DELETE", "/v1/units", 405, "only GET and POST" },
   };
   for( auto const & [method, target, status, says] : cases ) {
      auto const answer = ask( method, target );
      EXPECT_EQ( answer.status, status ) << target;
      EXPECT_THAT( answer.body, HasSubstr( says ) ) << target;
      EXPECT_EQ( answer.body.back(), '\n' ) << target;
   }
}

TEST_F( ApiTest, inventedNamesLeaveNothingBehind ) {
   std::size_t const before = Lumo::IntfId::names();
   for( std::string const target : { "/v1/state/maintenance/interface/status/ratemon/monIntfStatus/x/y/z",
                                     "/v1/state/maintenance/interface/status/ratemon/monIntfUnderMaint/x/y/z",
                                     "/v1/state/interface/status/all/intfStatus/x%2fy/operStatus",
                                     "/v1/state/interface/errdisable/cause/x/intfStatus/y", "/v1/units/x",
                                     "/v1/interfaces", "/v1/units/x/y", "/v1/state/x/y" } ) {
      ask( "GET", target.c_str() );
   }
   EXPECT_EQ( ask( "POST", "/v1/units/x/enter" ).status, 404u );
   EXPECT_EQ( Lumo::IntfId::names(), before );
}

}  // namespace
}  // namespace Host

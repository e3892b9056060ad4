#include "kel/Trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "kel/ActivityLoop.h"
#include "kel/LogHandle.h"
#include "kel/String8.h"

namespace {

using Kel::Ptr;

// Counts how often it is printed.
struct Costly {
   int * prints;
   friend std::ostream & operator<<( std::ostream & out, Costly const & costly ) {
      ++*costly.prints;
      return out << "costly";
   }
};

class TraceTest : public testing::Test {
 protected:
   TraceTest() {
      Kel::traceSinkIs( [this]( Kel::TraceRecord const & record ) {
         lines.emplace_back( record.text );
         last = record;
         lastHandle = record.handle;
      } );
      handle.levelsIs( { 1, 5 } );
   }
   ~TraceTest() override { Kel::traceSinkIs( {} ); }

   void sampleTaken() { KEL_TRACE( handle, 5, "intf " << 7 << ", ok " << true ); }

   Ptr<Kel::VirtualClock> clock = new Kel::VirtualClock( 1000 );
   Kel::ActivityLoop loop{ clock };
   Kel::TraceHandle & handle = Kel::traceHandle( "TraceTest" );
   std::vector<std::string> lines;
   Kel::TraceRecord last{};
   std::string lastHandle;
};

TEST_F( TraceTest, aLineCarriesItsFunctionTextTimeAndPlace ) {
   clock->nowIs( 1012.5 );
   loop.turn();
   sampleTaken();
   ASSERT_EQ( lines, std::vector<std::string>{ "sampleTaken: intf 7, ok 1" } );
   EXPECT_EQ( last.time, 1012.5 );
   EXPECT_EQ( last.level, 5 );
   EXPECT_EQ( lastHandle, "TraceTest" );
   EXPECT_STREQ( last.file, __FILE__ );
   EXPECT_GT( last.line, 0 );
   EXPECT_STREQ( last.function, "sampleTaken" );
}

TEST_F( TraceTest, aDisabledLevelEvaluatesNothing ) {
   int prints = 0;
   int evaluations = 0;
   auto const evaluated = [&] { return ++evaluations; };
   for( int const level : { 0, 2, 4, 9, 31 } ) KEL_TRACE( handle, level, Costly{ &prints } << evaluated() );
   EXPECT_EQ( prints + evaluations, 0 );
   EXPECT_FALSE( Kel::TraceHelper::createIfEnabled( handle, 4 ) );
   KEL_TRACE_AS( handle, 1, "void Machine::go()", Costly{ &prints } << evaluated() );
   EXPECT_EQ( prints, 1 );
   EXPECT_EQ( lines, std::vector<std::string>{ "void Machine::go(): costly1" } );
}

TEST_F( TraceTest, standardErrorIsTheDefault ) {
   Kel::traceSinkIs( {} );
   testing::internal::CaptureStderr();
   sampleTaken();
   EXPECT_EQ( testing::internal::GetCapturedStderr(), "1000.000000 TraceTest 5 sampleTaken: intf 7, ok 1\n" );
}

TEST_F( TraceTest, doublesPrintExactly ) {
   struct Case {
      double value;
      char const * text;
   } const cases[] = { { 0, "0" },
                       { 123456789, "123456789" },
                       { -100000000, "-100000000" },
                       { 9007199254740992.0, "9007199254740992" },
                       { 1e22, "1e+22" },
                       { 0.1, "0.1" },
                       { 1234567.0625, "1234567.0625" },
                       { 1e-9, "1e-09" },
                       { std::numeric_limits<double>::infinity(), "inf" } };
   for( auto const & [value, text] : cases ) {
      lines.clear();
      KEL_TRACE_AS( handle, 1, "f", value );
      EXPECT_EQ( lines, std::vector<std::string>{ std::string( "f: " ) + text } );
   }
   EXPECT_EQ( std::stod( Kel::doubleText( 0.1 + 0.2 ) ), 0.1 + 0.2 );
}

class LogTest : public testing::Test {
 protected:
   LogTest() {
      Kel::logSinkIs( [this]( Kel::LogRecord const & record ) {
         logged.push_back( std::string( record.handle.name() ) + ": " + std::string( record.text ) );
      } );
   }
   ~LogTest() override { Kel::logSinkIs( {} ); }

   void at( double time ) {
      clock->nowIs( time );
      loop.turn();
   }

   Ptr<Kel::VirtualClock> clock = new Kel::VirtualClock( 0 );
   Kel::ActivityLoop loop{ clock };
   std::vector<std::string> logged;
};

TEST_F( LogTest, argumentsFillTheFormatInOrder ) {
   Kel::LogHandle handle( "MOVED", 5, "%s moved to %s (100%%, %s)", "Why.", Kel::NoActionRequired, 0.0, 1.0, 0 );
   handle.log( Kel::String8( "eth0" ), "%s", 2.5 );
   EXPECT_EQ( logged, std::vector<std::string>{ "MOVED: eth0 moved to %s (100%, 2.5)" } );
   EXPECT_DEATH( handle.log( "eth0", "up" ), "Assertion failed" );
   EXPECT_DEATH( handle.log( "eth0", "up", 1, 2 ), "Assertion failed" );
}

TEST_F( LogTest, equalMessagesKeepTheirDistance ) {
   Kel::LogHandle limited( "LIMITED", 4, "%s", "", "", 10.0, 0.0, 0 );
   Kel::LogHandle unlimited( "UNLIMITED", 4, "%s", "", "", 0.0, 0.0, 0 );
   auto const both = [&]( char const * text ) {
      limited.log( text );
      unlimited.log( text );
      std::size_t const count = logged.size();
      logged.clear();
      return count;
   };
   EXPECT_EQ( both( "a" ), 2u );
   at( 5 );
   EXPECT_EQ( both( "a" ), 1u );
   EXPECT_EQ( both( "b" ), 2u );
   at( 9.999 );
   EXPECT_EQ( both( "a" ), 1u );
   at( 10 );
   EXPECT_EQ( both( "a" ), 2u );  // measured from the message that was logged, not from the ones held back
   EXPECT_EQ( both( "b" ), 1u );
   at( 15 );
   EXPECT_EQ( both( "b" ), 2u );
}

}  // namespace

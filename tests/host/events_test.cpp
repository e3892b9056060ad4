// GET /v1/events, and the lines of the system log.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "ApiBox.h"
#include "api/EventStream.h"
#include "log/SystemLog.h"

namespace Host {

using Service::EventKind;
using Service::Severity;
using ::testing::AllOf;
using ::testing::HasSubstr;

class EventsApi : public ApiBox, public ::testing::Test {
 protected:
   void tell( std::string const & text, std::string const & unit = "", std::string const & intf = "" ) {
      loop_.turn( [&] {
         service_.events()->tell(
            { .kind = EventKind::verdict, .text = text, .unit = unit, .interface = Lumo::IntfId( intf ) } );
      } );
   }
   std::shared_ptr<HttpStream> stream( std::string const & query = "" ) {
      HttpAnswer const answer = ask( "GET", "/v1/events" + query );
      EXPECT_EQ( answer.status, 200U ) << answer.body;
      EXPECT_EQ( answer.contentType, streamType );
      EXPECT_EQ( answer.body, "" );
      if( answer.stream ) answer.stream->onMore( [this] { ++more_; } );
      return answer.stream;
   }
   // The texts of what comes next; of a last line all of it.
   static std::string textsOf( std::string const & lines ) {
      std::string texts;
      std::string const mark = "\"text\": \"";
      for( std::size_t at = 0, end = 0; ( end = lines.find( '\n', at ) ) != std::string::npos; at = end + 1 ) {
         std::string const line = lines.substr( at, end - at );
         std::size_t const text = line.find( mark );
         texts +=
            ( texts.empty() ? "" : "|" ) +
            ( text == std::string::npos ? line
                                        : line.substr( text + mark.size(), line.size() - text - mark.size() - 2 ) );
      }
      return texts;
   }
   std::string last() const { return std::to_string( service_.events()->last() ); }

   int more_ = 0;
};

TEST_F( EventsApi, goOnFromNowOrFromANumber ) {
   tell( "before" );
   std::string const before = last();
   tell( "a" );
   auto const now = stream();
   auto const resumed = stream( "?after=" + before );
   EXPECT_EQ( now->next( 10000 ), "" );
   EXPECT_EQ( textsOf( resumed->next( 10000 ) ), "a" );
   EXPECT_EQ( resumed->next( 10000 ), "" );
   EXPECT_EQ( more_, 0 );
   tell( "b" );
   tell( "c" );
   EXPECT_EQ( more_, 2 );                        // once for each: what was said is said until somebody looks
   EXPECT_EQ( textsOf( now->next( 1 ) ), "b" );  // at least one, and not much more than asked for
   EXPECT_EQ( textsOf( now->next( 1 ) ), "c" );
   EXPECT_EQ( textsOf( resumed->next( 10000 ) ), "b|c" );
   EXPECT_FALSE( now->ended() );
}

TEST_F( EventsApi, ofAUnitAreItsOwnAndThoseOfItsInterfaces ) {
   makeUnit();
   auto const ofUnit = stream( "?unit=fabric" );
   EXPECT_EQ( ofUnit->next( 10000 ), "" );
   tell( "of the agent" );
   tell( "of another", "rack", "up1" );
   tell( "of a link of nobody", "", "eth7" );
   EXPECT_EQ( more_, 0 );
   tell( "its own", "fabric" );
   tell( "of its link", "", "up2" );
   EXPECT_EQ( textsOf( ofUnit->next( 10000 ) ), "its own|of its link" );
   // What is passed over has been seen: the client is not too slow for it.
   EXPECT_EQ( ofUnit->next( 10000 ), "" );
   for( std::size_t i = 0; i <= Service::EventLog::eventsMax; ++i ) tell( "of the agent" );
   EXPECT_EQ( ofUnit->next( 10000 ), "" );
   EXPECT_FALSE( ofUnit->ended() );
}

TEST_F( EventsApi, endWithALineThatSaysWhereToGoOn ) {
   tell( "a" );
   std::string const a = last();
   auto const slow = stream();
   auto const stopped = stream( "?after=" + std::to_string( service_.events()->oldest() - 1 ) );
   stopped->stop();
   EXPECT_EQ( textsOf( stopped->next( 10000 ) ),
              "a|{\"seq\": " + a + ", \"end\": \"stopping\", \"resumeAfter\": " + a + "}" );
   EXPECT_TRUE( stopped->ended() );
   EXPECT_EQ( stopped->next( 10000 ), "" );
   EXPECT_EQ( slow->next( 10000 ), "" );
   for( std::size_t i = 0; i <= Service::EventLog::eventsMax; ++i ) tell( "x" );
   EXPECT_EQ( textsOf( slow->next( 10000 ) ),
              "{\"seq\": " + a + ", \"end\": \"too slow\", \"resumeAfter\": " + a + "}" );
   EXPECT_TRUE( slow->ended() );
   HttpAnswer const gone = ask( "GET", "/v1/events?after=" + a );
   EXPECT_EQ( gone.status, 410U );
   EXPECT_THAT( gone.body, HasSubstr( "\"oldest\": " + std::to_string( service_.events()->oldest() ) ) );
}

TEST_F( EventsApi, areRefusedForWhatIsNoPlaceInTheHistory ) {
   makeUnit();
   struct Case {
      char const * query;
      unsigned status;
      char const * says;
   };
   for( auto const & [query, status, says] : {
           Case{ "?after=x", 400, "after=NUMBER" },
           Case{ "?after=", 400, "after=NUMBER" },
           Case{ "?after=-1", 400, "after=NUMBER" },
           Case{ "?after=1&after=2", 400, "each once" },
           Case{ "?since=1", 400, "nothing else" },
           Case{ "?unit=rack", 404, "the units are: fabric" },
           Case{ "?after=99999", 410, "there is no event 99999 yet" },
        } ) {
      HttpAnswer const answer = ask( "GET", std::string( "/v1/events" ) + query );
      EXPECT_EQ( answer.status, status ) << query;
      EXPECT_THAT( answer.body, HasSubstr( says ) ) << query;
      EXPECT_FALSE( answer.stream ) << query;
   }
}

TEST( SystemLogLines, sayTheirSeverityWhereTheJournalReadsIt ) {
   struct Case {
      Severity severity;
      char const * journal;
      char const * plain;
   };
   for( auto const & [severity, journal, plain] : {
           Case{ Severity::error, "<3>text\n", "maintd: error: text\n" },
           Case{ Severity::warning, "<4>text\n", "maintd: warning: text\n" },
           Case{ Severity::notice, "<5>text\n", "maintd: text\n" },
           Case{ Severity::info, "<6>text\n", "maintd: text\n" },
        } ) {
      EXPECT_EQ( logLineText( severity, "text", true ), journal );
      EXPECT_EQ( logLineText( severity, "text", false ), plain );
   }
   // One line, in which nothing moves the cursor, and no second one with a severity of its own choice.
   EXPECT_EQ( logLineText( Severity::info, "\x1b[2J\n<0>gone", true ), "<6>\\u001b[2J\\n<0>gone\n" );
   Service::Event event;
   event.kind = "spike";
   event.text = "out 4 Mbps";
   event.interface = Kel::String8( "eth0" );
   EXPECT_EQ( logText( event ), "link eth0: spike: out 4 Mbps" );
   event.unit = Kel::String8( "fabric" );
   EXPECT_EQ( logText( event ), "unit fabric: eth0: spike: out 4 Mbps" );
}

TEST( SystemLogLines, takeOnlyTheStreamThatIsNamedForTheJournals ) {
   std::FILE * const file = std::tmpfile();
   struct stat status = {};
   ASSERT_EQ( fstat( fileno( file ), &status ), 0 );
   std::string const named = std::to_string( status.st_dev ) + ":" + std::to_string( status.st_ino );
   EXPECT_TRUE( isJournalStream( fileno( file ), named.c_str() ) );
   EXPECT_FALSE( isJournalStream( fileno( file ), nullptr ) );
   EXPECT_FALSE( isJournalStream( fileno( file ), ( named + "0" ).c_str() ) );
   EXPECT_FALSE( isJournalStream( STDIN_FILENO, named.c_str() ) );  // led elsewhere since
   std::fclose( file );
   EXPECT_FALSE( isJournalStream( -1, named.c_str() ) );
}

}  // namespace Host

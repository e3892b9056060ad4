// The history of events: what it keeps, and in which order it is heard.
#include "events/EventLog.h"

#include <gmock/gmock.h>

#include <memory>
#include <optional>

#include "kel/ActivityLoop.h"

namespace Service {

using ::testing::ElementsAre;

class EventHistory : public ::testing::Test {
 protected:
   void tell( std::string const & text ) {
      loop_.turn( [&] { log_->tell( { .kind = EventKind::agent, .text = text } ); } );
   }
   // What follows a number.
   std::vector<std::string> after( uint64_t number ) const {
      std::vector<std::string> texts;
      for( auto const * entry = log_->next( number ); entry; entry = log_->next( entry->seq() ) )
         texts.push_back( std::to_string( entry->seq() ) + " " + entry->event().text.str() );
      return texts;
   }

   Kel::ActivityLoop loop_{ Kel::Ptr<Kel::Clock>( new Kel::VirtualClock( 1000 ) ) };
   uint64_t number_ = 40;
   std::unique_ptr<EventLog> log_ = std::make_unique<EventLog>( [this] { return number_ += 2; }, [] { return 1e9; } );
};

TEST_F( EventHistory, isReadOnFromAnyNumberThatIsKept ) {
   EXPECT_TRUE( log_->has( 42 ) );  // its beginning
   EXPECT_FALSE( log_->has( 41 ) );
   EXPECT_FALSE( log_->has( 0 ) );
   EXPECT_TRUE( EventLog().has( 0 ) );  // whose numbers begin with it, so that nothing was told before
   EXPECT_EQ( log_->oldest(), 43U );
   tell( "a" );
   number_ = 100;  // they may jump
   tell( "b" );
   EXPECT_THAT( after( 42 ), ElementsAre( "44 a", "102 b" ) );
   EXPECT_THAT( after( 44 ), ElementsAre( "102 b" ) );
   EXPECT_THAT( after( 50 ), ElementsAre( "102 b" ) );
   EXPECT_THAT( after( 102 ), ElementsAre() );
   EXPECT_TRUE( log_->has( 102 ) );
   EXPECT_FALSE( log_->has( 103 ) );
   EXPECT_EQ( log_->next( 44 )->line(),
              "{\"seq\": 102, \"time\": 1000, \"wallTime\": 1000001000, \"kind\": \"agent\", \"severity\": \"notice\", "
              "\"unit\": null, \"generation\": null, \"interface\": null, \"text\": \"b\"}\n" );
}

// By number, and by size: the latest is kept whatever it takes, and no text is longer than may be.
TEST_F( EventHistory, isBounded ) {
   for( std::size_t i = 0; i < EventLog::eventsMax; ++i ) tell( "x" );
   uint64_t const first = log_->oldest();
   EXPECT_EQ( first, 44U );
   EXPECT_TRUE( log_->has( 42 ) );
   tell( "one more" );
   EXPECT_EQ( log_->oldest(), first + 2 );
   EXPECT_TRUE( log_->has( first ) );  // all that came after it is kept
   EXPECT_FALSE( log_->has( first - 1 ) );
   std::string const umlauts( "\xc3\xa4" );
   std::string longText = "x";
   while( longText.size() < 3 * EventLog::textMax ) longText += umlauts;
   for( std::size_t i = 0; i < 2000; ++i ) tell( longText );
   auto const kept = after( log_->oldest() - 1 );
   EXPECT_LT( kept.size(), 1000U );
   EXPECT_GT( kept.size(), 900U );
   EXPECT_TRUE( kept.back().ends_with( umlauts + " ..." ) );
   EXPECT_LE( log_->next( log_->last() - 1 )->event().text.view().size(), EventLog::textMax + 4 );
}

// Each hears all in the order of their numbers, also of what another tells in answer.
TEST_F( EventHistory, isHeardInOrderByListenersThatDoAnything ) {
   std::vector<std::string> heard;
   std::optional<EventLog::Listener> late;
   std::unique_ptr<EventLog::Listener> once;
   EventLog::Listener const answering( *log_, [&]( Event const & event ) {
      heard.push_back( "answering " + event.text.str() );
      if( event.text.view() != "question" ) return;
      EXPECT_EQ( log_->last(), event.seq );  // it is in the history
      log_->tell( { .kind = EventKind::agent, .text = "answer" } );
      late.emplace( *log_, [&]( Event const & later ) { heard.push_back( "late " + later.text.str() ); } );
   } );
   once = std::make_unique<EventLog::Listener>( *log_, [&]( Event const & event ) {
      std::string const text = event.text.str();
      once.reset();
      heard.push_back( "once " + text );
   } );
   EventLog::Listener const last( *log_,
                                  [&]( Event const & event ) { heard.push_back( "last " + event.text.str() ); } );
   tell( "question" );
   EXPECT_THAT(
      heard, ElementsAre( "answering question", "once question", "last question", "answering answer", "last answer" ) );
   heard.clear();
   tell( "next" );
   EXPECT_THAT( heard, ElementsAre( "answering next", "last next", "late next" ) );
}

TEST( EventTexts, areOneLineHoweverManyThereAre ) {
   EXPECT_EQ( someOf( {} ), "" );
   EXPECT_EQ( someOf( std::vector<std::string>( 10, "a" ), "; " ), "a; a; a; a; a; a; a; a; a; a" );
   EXPECT_EQ( someOf( std::vector<std::string>( 12, "a" ) ), "a, a, a, a, a, a, a, a, a, a, and 2 more" );
}

}  // namespace Service

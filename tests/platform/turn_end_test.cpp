// The last phase of a turn: who is called, in which order, and when the turn is over.
#include "kel/TurnEnd.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

#include "kel/ActivityLoop.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TurnEndTest : public ::testing::Test {
 protected:
   Kel::Ptr<Kel::VirtualClock> clock_{ new Kel::VirtualClock( 1000 ) };
   Kel::ActivityLoop loop_{ Kel::Ptr<Kel::Clock>( clock_ ) };
   std::vector<std::string> called_;

   class Judge final : public Kel::TurnEnd {
    public:
      Judge( TurnEndTest & test, char const * name, int rank ) : TurnEnd( rank ), test_( test ), name_( name ) {}
      void onTurnEnd() override {
         test_.called_.emplace_back( name_ );
         if( also_ ) std::exchange( also_, {} )();
      }
      void thenOnce( std::function<void()> also ) { also_ = std::move( also ); }

    private:
      TurnEndTest & test_;
      std::string const name_;
      std::function<void()> also_;
   };

   std::vector<std::string> turn( std::function<void()> const & work = {} ) {
      loop_.turn( work );
      return std::exchange( called_, {} );
   }

   Judge stages_{ *this, "stages", 30 };
   Judge links_{ *this, "links", 10 };
   Judge accounts_{ *this, "accounts", 20 };
};

TEST_F( TurnEndTest, eachIsCalledOnceByRankHoweverOftenItAsked ) {
   EXPECT_THAT( turn(), IsEmpty() );
   EXPECT_THAT( turn( [&] {
                   stages_.due();
                   accounts_.due();
                   accounts_.due();
                } ),
                ElementsAre( "accounts", "stages" ) );
   EXPECT_THAT( turn(), IsEmpty() );
}

// What a stage writes may move links and accounts again, and is judged before the turn is over.
TEST_F( TurnEndTest, whatOneCausesIsSettledFromTheLowestAgain ) {
   accounts_.thenOnce( [&] { stages_.due(); } );
   stages_.thenOnce( [&] {
      stages_.due();
      links_.due();
      accounts_.due();
   } );
   EXPECT_THAT( turn( [&] { accounts_.due(); } ), ElementsAre( "accounts", "stages", "links", "accounts", "stages" ) );
}

TEST_F( TurnEndTest, comesAfterDeferredWorkAndOneThatAsksBetweenTurnsGetsATurn ) {
   class Work final : public Kel::Deferred {
    public:
      explicit Work( std::vector<std::string> & called ) : called_( called ) {}
      void onTimeMin() override { called_.emplace_back( "work" ); }

    private:
      std::vector<std::string> & called_;
   } work( called_ );
   work.timeMinIs( 0 );
   links_.due();
   EXPECT_LE( loop_.nextDue(), 1000 );
   loop_.runUntil( *clock_, 1000 );
   EXPECT_THAT( called_, ElementsAre( "work", "links" ) );
   EXPECT_EQ( loop_.nextDue(), Kel::never );
}

TEST_F( TurnEndTest, oneThatIsGoneIsNotCalled ) {
   {
      Judge shortLived( *this, "gone", 5 );
      shortLived.due();
   }
   EXPECT_THAT( turn( [&] { links_.due(); } ), ElementsAre( "links" ) );
}

}  // namespace

// The agent of one box, killed at every write to its memory in turn.
#include "box/BoxAgent.h"

#include <gtest/gtest.h>

#include <optional>
#include <utility>

namespace FleetTest {

namespace {

using namespace Fleet;

struct AgentDeath {};

// Dies at one write, before or after it, and is whole again for the next life.
class OneDeath final : public Memory {
 public:
   OneDeath( int write, bool before ) : left_( write ), before_( before ) {}

   [[nodiscard]] Rows rows() const override { return rows_; }
   void commit( Changes const & changes ) override {
      bool const dies = left_-- == 0;
      if( dies && before_ ) throw AgentDeath();
      for( auto const & [key, row] : changes ) rows_[key] = row.value();
      if( dies ) throw AgentDeath();
   }
   [[nodiscard]] bool died() const { return left_ < 0; }

 private:
   int left_;
   bool const before_;
   Rows rows_;
};

class OneUnit final : public Maintd {
 public:
   Units units( double ) override {
      Units all;
      all.units["fabric"].status.state = state;
      all.units["fabric"].status.ready = state == UnitState::inMaintenance;
      all.units["fabric"].generation = generation;
      return all;
   }
   Reply enter( std::string const & ) override {
      if( state == UnitState::active ) {
         ++drains;
         ++generation;
         state = UnitState::inMaintenance;
      }
      return { answers ? Reply::Kind::agreed : Reply::Kind::unknown, "" };
   }
   Reply exit( std::string const & ) override {
      if( state == UnitState::inMaintenance ) {
         ++generation;
         state = UnitState::active;
      }
      return { answers ? Reply::Kind::agreed : Reply::Kind::unknown, "" };
   }

   UnitState state = UnitState::active;
   uint64_t generation = 0;
   int drains = 0;
   bool answers = true;
};

// What goes wrong in one telling of the story.
struct Fate {
   int write = 0;
   bool before = false;
   bool answered = true;
   bool endedMeanwhile = false;  // somebody takes the unit back while the agent is dead
};

// One box with its agent, whatever becomes of it.
class OneBox {
 public:
   explicit OneBox( Fate const & of ) : fate( of ), memory( of.write, of.before ) { maintd.answers = of.answered; }

   // So many seconds, with that order in the broker.
   void live( Order const & order, int seconds ) {
      for( int second = 0; second < seconds; ++second, ++now ) {
         try {
            if( !agent ) agent.emplace( "s1", memory, maintd, 15, now );
            agent->connectedIs( true );
            agent->desiredIs( { "s1", { { "fabric", order } } } );
            if( auto const status = agent->turn( now ) ) latest = *status;
         } catch( AgentDeath const & ) {
            agent.reset();
            if( fate.endedMeanwhile ) static_cast<void>( maintd.exit( "fabric" ) );
         }
      }
   }

   Fate const fate;
   OneDeath memory;
   OneUnit maintd;
   std::optional<BoxAgent> agent;
   double now = 1000;
   Status latest;
};

std::vector<Fate> allFates() {
   std::vector<Fate> fates;
   for( int write = 0; write < 12; ++write ) {
      for( bool const before : { true, false } ) {
         for( bool const answered : { true, false } ) {
            for( bool const ended : { true, false } ) fates.push_back( { write, before, answered, ended } );
         }
      }
   }
   return fates;
}

}  // namespace

TEST( BoxAgent, carriesOutAnOrderOnceWheneverItDies ) {
   int deaths = 0;
   for( Fate const & fate : allFates() ) {
      SCOPED_TRACE( "write " + std::to_string( fate.write ) + ( fate.before ? " before" : " after" ) +
                    ( fate.answered ? "" : ", no answers" ) + ( fate.endedMeanwhile ? ", ended meanwhile" : "" ) );
      OneBox box( fate );
      box.live( { .number = 7, .want = Want::maintenance, .expires = 2000 }, 20 );
      EXPECT_EQ( box.maintd.drains, 1 );
      UnitStatus const & out = box.latest.units.at( "fabric" );
      EXPECT_EQ( out.acknowledged, 7u );
      bool const undone = box.maintd.state == UnitState::active;
      EXPECT_EQ( out.outcome, undone ? Outcome::undone : Outcome::carried );
      box.live( { .number = 8, .want = Want::service, .expires = 2000 }, 20 );
      // An older one that comes late, and one that expired.
      box.live( { .number = 7, .want = Want::maintenance, .expires = 2000 }, 5 );
      box.live( { .number = 9, .want = Want::maintenance, .expires = 900 }, 5 );
      EXPECT_EQ( box.maintd.state, UnitState::active );
      EXPECT_EQ( box.maintd.drains, 1 );
      EXPECT_EQ( box.latest.units.at( "fabric" ).outcome, Outcome::expired );
      deaths += box.memory.died();
   }
   EXPECT_GT( deaths, 50 );
}

// Between two orders that came together it was away for one look.
TEST( BoxAgent, aMaintdThatIsAwayForAMomentLosesNoOrder ) {
   class Flickering final : public Maintd {
    public:
      Units units( double ) override {
         if( std::exchange( away, false ) ) return { .trouble = "maintd: no answer", .units = {} };
         return all;
      }
      Reply enter( std::string const & unit ) override {
         away = true;
         ++all.units[unit].generation;
         all.units[unit].status.state = UnitState::entering;
         return { Reply::Kind::agreed, "" };
      }
      Reply exit( std::string const & ) override { return { Reply::Kind::agreed, "" }; }
      Units all{ .trouble = {}, .units = { { "a", {} }, { "b", {} } } };
      bool away = false;
   } maintd;
   for( auto & [name, unit] : maintd.all.units ) unit.status.state = UnitState::active;
   OneDeath memory( 1000, true );
   BoxAgent agent( "s1", memory, maintd, 15, 1000 );
   agent.connectedIs( true );
   Order const order{ .number = 7, .want = Want::maintenance, .expires = 2000 };
   agent.desiredIs( { "s1", { { "a", order }, { "b", order } } } );
   for( double now = 1000; now < 1005; ++now ) static_cast<void>( agent.turn( now ) );
   for( auto const & [name, unit] : maintd.all.units ) EXPECT_EQ( unit.status.state, UnitState::entering ) << name;
}

TEST( BoxAgent, givesBackAtItsDeadlineAndLeavesAloneWhoTakesItOutLater ) {
   for( Fate const & fate : allFates() ) {
      SCOPED_TRACE( "write " + std::to_string( fate.write ) + ( fate.before ? " before" : " after" ) );
      class NeverQuiet final : public Maintd {
       public:
         Units units( double ) override {
            Units all;
            all.units["fabric"].status.state = out ? UnitState::entering : UnitState::active;
            all.units["fabric"].generation = generation;
            return all;
         }
         Reply enter( std::string const & ) override {
            generation += !out;
            out = true;
            return { Reply::Kind::agreed, "" };
         }
         Reply exit( std::string const & ) override {
            generation += out;
            out = false;
            return { Reply::Kind::agreed, "" };
         }
         bool out = false;
         uint64_t generation = 0;
      } maintd;
      OneDeath memory( fate.write, fate.before );
      std::optional<BoxAgent> agent;
      double now = 1000;
      auto const live = [&]( int seconds, bool connected ) {
         for( int second = 0; second < seconds; ++second, ++now ) {
            try {
               if( !agent ) agent.emplace( "s1", memory, maintd, 15, now );
               agent->connectedIs( connected );
               agent->desiredIs( { "s1",
                                   { { "fabric",
                                       { .number = 7,
                                         .want = Want::maintenance,
                                         .expires = 2000,
                                         .deadlineSeconds = 30,
                                         .atDeadline = AtDeadline::giveBack } } } } );
               static_cast<void>( agent->turn( now ) );
            } catch( AgentDeath const & ) {
               agent.reset();
            }
         }
      };
      live( 10, true );
      EXPECT_TRUE( maintd.out );
      // Cut off: the deadline is its own.
      live( 40, false );
      EXPECT_FALSE( maintd.out );
      static_cast<void>( maintd.enter( "fabric" ) );
      live( 100, true );
      EXPECT_TRUE( maintd.out );
   }
}

}  // namespace FleetTest

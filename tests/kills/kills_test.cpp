// The promise: whenever maintd is killed, the next one goes on as if nothing had happened. Random lives on a kernel
// that outlives the agents; in each, agents die at chosen moments, and what is seen afterwards is what is seen in the
// same life in which nobody died. See Points.h for where they die and Lives.h for the lives.
//
// RATEMON_KILLS_SEED chooses the first seed, RATEMON_KILLS in how many lives an agent dies at each point, and
// RATEMON_KILLS_TELL=1 has each seed with its deaths printed.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "Lives.h"
#include "plugin/Loader.h"

namespace Kills {
namespace {

namespace fs = std::filesystem;

#ifdef RATEMON_OPTIMISED
constexpr unsigned livesWanted = 100;
#else
constexpr unsigned livesWanted = 4;
#endif
constexpr unsigned slices = 4;
// A point that so many lives do not pass is none.
constexpr unsigned livesMax = 60;
constexpr double timeToStartAgain = 0.3;  // s

uint64_t environment( char const * name, uint64_t otherwise ) {
   char const * const text = std::getenv( name );
   return text ? std::strtoull( text, nullptr, 10 ) : otherwise;
}

// Who dies when, and whether the machine goes down with the first.
struct Death {
   unsigned moment = noMoment;
   unsigned again = noMoment;
   bool powerLoss = false;
};

std::string names( PointSet at ) {
   std::string text;
   for( unsigned p = 0; p < points; ++p ) {
      if( ( at >> p & 1 ) != 0 ) text.append( text.empty() ? "" : "; " ).append( pointName( p ) );
   }
   return text;
}

class Kills : public ::testing::TestWithParam<unsigned> {
 protected:
   Kills() { Maintenance::DefaultPluginLoader().load( RATEMON_PLUGIN_PATH ); }
   ~Kills() override { fs::remove_all( directory_ ); }

   // One agent after the other, until the life is over. Returns what went wrong.
   std::string liveThrough( Life const & life, Death const & death ) {
      fs::remove_all( directory_ );
      fs::create_directory( directory_ );
      world_.begin( life.preserveIpv6 );
      world_.dieAt = death.moment;
      world_.dieAgainAt = death.again;
      for( unsigned agents = 0; !world_.over; ++agents ) {
         if( agents > life.steps.size() + 2 ) return "the agents do not come to an end";
         int status = 0;
         pid_t const agent = ::fork();
         if( agent == 0 ) live( life, world_, directory_ + "/maintd.db" );
         ::waitpid( agent, &status, 0 );
         bool const killed = WIFSIGNALED( status ) && WTERMSIG( status ) == SIGKILL;
         if( !killed && status != 0 ) return "an agent ended with status " + std::to_string( status );
         if( killed && death.powerLoss && world_.boots == 1 ) world_.machineStarts();
         world_.now += timeToStartAgain;
         world_.settledAt = world_.now + life.settle;
      }
      return world_.fault.data();
   }

   // The same life with a death in it; `reference_` is the one without. Returns what is different.
   std::string compare( Life const & life, Death const & death ) {
      std::string wrong = liveThrough( life, death );
      if( wrong.empty() && world_.passed[death.moment] != reference_->passed[death.moment] ) wrong = "another life";
      for( unsigned step = 0; wrong.empty() && step < life.steps.size(); ++step ) {
         std::string const expected = reference_->views[step].data();
         std::string const seen = world_.views[step].data();
         // A start takes a link once more that somebody has set up.
         if( expected == seen || expected.find( ": raised\n" ) != std::string::npos ) continue;
         wrong = "after step " + std::to_string( step ) + " (" + text( life.steps[step] ) + "):\n-- without\n" +
                 expected + "-- with\n" + seen;
      }
      for( unsigned i = 0; wrong.empty() && !death.powerLoss && i < World::linkCount; ++i ) {
         Link const & without = reference_->links[i];
         Link const & with = world_.links[i];
         if( with.raised || ( without.ups == with.ups && without.downs == with.downs ) ) continue;
         std::ostringstream text;
         text << with.name.data() << " was taken down " << with.downs << " times instead of " << without.downs
              << ", and set up " << with.ups << " times instead of " << without.ups;
         wrong = text.str();
      }
      return wrong;
   }

   std::string const directory_ = "/dev/shm/ratemon-kills-" + std::to_string( ::getpid() );
   World & world_ = World::make();
   std::unique_ptr<World> const reference_ = std::make_unique<World>();
};

TEST_P( Kills, theNextAgentGoesOnAsIfNothingHadHappened ) {
   auto const wanted = ( environment( "RATEMON_KILLS", livesWanted ) + slices - 1 ) / slices;
   uint64_t const first = environment( "RATEMON_KILLS_SEED", 1 );
   bool const tell = environment( "RATEMON_KILLS_TELL", 0 ) != 0;
   std::array<unsigned, points> lives{};  // in which somebody died at the point
   auto const all = [&] { return std::ranges::all_of( lives, [&]( unsigned n ) { return n >= wanted; } ); };
   unsigned runs = 0;
   for( uint64_t n = 0; !all() && n < livesMax * wanted; ++n ) {
      uint64_t const seed = first + n * slices + GetParam();
      Life const life = randomLife( seed );
      std::string const wrong = liveThrough( life, {} );
      ASSERT_EQ( wrong, "" ) << "in the life with seed " << seed << ", in which nobody died";
      *reference_ = world_;
      if( tell ) {
         for( unsigned i = 0; i < life.steps.size(); ++i ) {
            std::cout << "-- " << text( life.steps[i] ) << "\n" << reference_->views[i].data();
         }
      }
      ASSERT_LE( reference_->moment, World::momentsMax ) << "more moments than there is room for";
      PointSet died = 0;  // in this life
      for( unsigned p = 0; p < points; ++p ) {
         if( lives[p] >= wanted || ( died >> p & 1 ) != 0 ) continue;
         std::vector<unsigned> moments;
         for( unsigned m = 0; m < reference_->moment; ++m ) {
            if( ( reference_->passed[m] >> p & 1 ) != 0 ) moments.push_back( m );
         }
         if( moments.empty() ) continue;
         ++runs;
         uint64_t const chance = seed * points + p;
         Death death{ .moment = moments[chance * 7919 % moments.size()] };
         // Soon after, in the middle of the start or in what it goes on with.
         if( chance % 3 == 0 ) death.again = death.moment + 1 + static_cast<unsigned>( chance % 23 );
         death.powerLoss = chance % 4 == 1;
         PointSet const at = reference_->passed[death.moment];
         if( tell ) std::cout << "seed " << seed << ", moment " << death.moment << ": " << names( at ) << std::endl;
         std::string const difference = compare( life, death );
         std::string steps;
         for( Step const & step : life.steps ) steps.append( text( step ) ).append( ", " );
         ASSERT_EQ( difference, "" ) << "in the life with seed " << seed << ": " << steps
                                     << "\nin which an agent died at moment " << death.moment << " (" << names( at )
                                     << ")" << ( death.powerLoss ? ", and the machine with it" : "" )
                                     << ( death.again != noMoment
                                             ? ", and one again at moment " + std::to_string( death.again )
                                             : "" );
         for( unsigned q = 0; q < points; ++q ) {
            if( ( at & ~died ) >> q & 1 ) ++lives[q];
         }
         died |= at;
      }
   }
   for( unsigned p = 0; p < points; ++p ) {
      EXPECT_GE( lives[p], wanted ) << "the lives in which an agent died " << pointName( p );
   }
   RecordProperty( "deaths", static_cast<int>( runs ) );
   std::cout << runs << " lives with a death, at " << points << " points in at least " << wanted << " lives each\n";
}

INSTANTIATE_TEST_SUITE_P( Lives, Kills, ::testing::Range( 0u, slices ) );

}  // namespace
}  // namespace Kills

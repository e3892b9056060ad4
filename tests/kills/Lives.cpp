#include "Lives.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "Agent.h"

namespace Kills {

namespace {

constexpr double Mbps = 1e6;  // bit/s

// Not the library's distributions, which may differ from one library to the next.
class Dice {
 public:
   explicit Dice( uint64_t seed ) : engine_( seed ) {}
   uint64_t below( uint64_t n ) { return engine_() % n; }
   bool oneIn( uint64_t n ) { return below( n ) == 0; }
   template<class T, std::size_t n>
   T const & of( std::array<T, n> const & all ) {
      return all[below( n )];
   }

 private:
   std::mt19937_64 engine_;
};

struct StageLists {
   char const * yaml;
   double settle;  // s
};

// Profiles "plain", "drained", "late" and "at-once"; units fabric and rack share up2. With deadlines a life has to be
// longer: both run out, and a proof that is made twice does not reach them.
constexpr std::array<StageLists, 4> stageLists{ {
   { "", 20 },
   { R"(stages:
  maintEnter: [ { name: bgp, run: [/bgp] }, { name: ratemon }, { name: verify } ]
  maintExit: [ { name: ratemon }, { name: bgp, run: [/bgp] } ]
)",
     24 },
   { R"(stages:
  maintEnter:
    - { name: ratemon, timeout: 20s, on-timeout: rollback }
    - { name: verify, timeout: 20s, on-timeout: rollback }
)",
     50 },
   { R"(stages:
  maintEnter:
    - { name: ratemon, timeout: 20s, on-timeout: continue }
    - { name: verify, timeout: 20s, on-timeout: continue }
)",
     50 },
} };

constexpr std::array<char const *, 4> profiles{ "plain", "drained", "late", "at-once" };
constexpr std::array<char const *, 2> units{ "fabric", "rack" };
constexpr std::array<char const *, 4> links{ "up1", "up2", "up3", "up4" };

std::string configText( Dice & dice, char const * stages ) {
   return std::string( R"(
profiles:
  plain: { threshold: 100kbps, sample-interval: 1s, load-interval: 2s }
  drained: { threshold: 100kbps, sample-interval: 1s, load-interval: 2s, shutdown: true }
  late: { threshold: 100kbps, sample-interval: 1s, load-interval: 2s, shutdown: true, max-delay: 3s }
  at-once: { threshold: 100kbps, sample-interval: 1s, load-interval: 2s, shutdown: true, max-delay: 0s }
default-profile: plain
groups:
  ups: { interfaces: [up1, up2], profile: )" ) +
          dice.of( profiles ) + " }\n  racks: { interfaces: [up2, up3, up4], profile: " + dice.of( profiles ) +
          " }\nunits:\n  fabric: { groups: [ups] }\n  rack: { groups: [racks] }\n" + stages;
}

Step randomStep( Dice & dice ) {
   std::string const unit = dice.of( units );
   std::string const link = dice.of( links );
   uint64_t const n = dice.below( 20 );
   if( n < 7 ) return { Deed::enter, unit };
   if( n < 9 ) return { Deed::exit, unit };
   constexpr std::array onLinks{ Deed::traffic,  Deed::traffic, Deed::quiet,  Deed::down,      Deed::up,
                                 Deed::cableOut, Deed::cableIn, Deed::remade, Deed::remadeDown };
   if( n < 18 ) return { dice.of( onLinks ), link };
   return { n == 18 ? Deed::restart : Deed::death, "" };
}

// The link is not held any more, so nobody but the agent may depend on it: whoever is in maintenance leaves.
void raise( std::vector<Step> & steps, std::string const & link ) {
   steps.push_back( { Deed::up, link } );
   for( char const * const unit : units ) steps.push_back( { Deed::exit, unit } );
}

void carryOut( Step const & step, World & world ) {
   Link * const link = world.link( step.on );
   switch( step.deed ) {
      case Deed::traffic: link->bitsPerSecond = 4 * Mbps; break;
      case Deed::quiet: link->bitsPerSecond = 0; break;
      case Deed::down:
         if( link->adminUp ) world.setByOthers( *link, false );
         break;
      case Deed::up:
         if( !link->adminUp ) world.setByOthers( *link, true );
         break;
      case Deed::cableOut: link->carrier = false; break;
      case Deed::cableIn: link->carrier = true; break;
      case Deed::remade:
      case Deed::remadeDown:
         link->wanted = step.deed == Deed::remade;
         world.remade( *link );
         break;
      case Deed::enter:
      case Deed::exit:
      case Deed::restart:
      case Deed::death: break;
   }
}

void ask( Step const & step, World & world, Agent & agent ) {
   if( world.answered ) return;
   if( step.deed == Deed::enter )
      agent.enter( step.on );
   else if( step.deed == Deed::exit )
      agent.exit( step.on );
   else if( !step.on.empty() )
      agent.tell( step.on );
}

void next( World & world ) {
   world.begun = world.answered = false;
   ++world.step;
}

}  // namespace

Life randomLife( uint64_t seed ) {
   Dice dice( seed );
   StageLists const & stages = dice.of( stageLists );
   Life life{
      Service::Config::parse( configText( dice, stages.yaml ), "life.yaml" ), dice.oneIn( 2 ), stages.settle, {} };
   life.steps.push_back( { Deed::enter, dice.of( units ) } );
   for( uint64_t n = 2 + dice.below( 5 ); n > 0; --n ) {
      Step const step = randomStep( dice );
      if( step.deed == Deed::up )
         raise( life.steps, step.on );
      else
         life.steps.push_back( step );
   }
   for( char const * const unit : units ) life.steps.push_back( { Deed::exit, unit } );
   KEL_ASSERT( life.steps.size() <= World::stepsMax );
   return life;
}

std::string text( Step const & step ) {
   constexpr std::array names{ "enter",    "exit",       "traffic",           "quiet",   "down", "up", "cable out",
                               "cable in", "made again", "made again, down,", "restart", "death" };
   return std::string( names[static_cast<unsigned>( step.deed )] ) + " " + step.on;
}

void live( Life const & life, World & world, std::string const & storeFile ) {
   auto agent = std::make_unique<Agent>( world, life.config, storeFile );
   while( world.step < life.steps.size() ) {
      Step const & step = life.steps[world.step];
      if( !world.begun ) {
         carryOut( step, world );
         world.settledAt = world.now + life.settle;
         world.begun = true;
      }
      bool const away = step.deed == Deed::restart || step.deed == Deed::death;
      if( away && !world.answered ) {
         world.answered = true;
         if( step.deed == Deed::restart ) agent = nullptr;
         ::_exit( 0 );
      }
      ask( step, world, *agent );
      agent->runUntil( world.settledAt );
      agent->view().copy( world.views[world.step].data(), world.views[0].size() - 1 );
      next( world );
   }
   world.over = true;
   ::_exit( 0 );
}

}  // namespace Kills

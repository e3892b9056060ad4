// A reader that acts from inside a write of the service: at the changes of a life of two units, every act that a
// handler may do.
//
// The life has everything in which writes of the service follow one another: entries with a hook, a shared interface,
// shutdowns, a link that is raised and one that is made again, traffic that comes back, a reload, a restart, exits. A
// watcher on every record of the state database counts the changes; at the k-th it acts. Then the life goes on as well
// as it can. Nothing may crash or fail an assertion (the address sanitizer looks on), and in the end, when all that is
// still in maintenance has been asked to leave, nothing may be left: no account, no stage instance, no window under
// way, no entry, no link that is held.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>

#include "dovra/Watches.h"
#include "links/HeldLinks.h"
#include "maintenance/MaintenanceService.h"
#include "records/Errdisable.h"
#include "records/Names.h"
#include "world/World.h"

namespace Service {
namespace {

using Maintenance::Unit::State;

std::string file( std::string const & threshold, std::string const & south ) {
   return "profiles:\n"
          "  plain: { threshold: " +
          threshold +
          ", sample-interval: 2s, load-interval: 4s }\n"
          "  shut: { threshold: 100kbps, sample-interval: 2s, load-interval: 4s, shutdown: true, max-delay: 9s }\n"
          "default-profile: plain\n"
          "groups:\n"
          "  north: { interfaces: [up1, up2] }\n"
          "  south: { interfaces: [" +
          south +
          "], profile: shut }\n"
          "units:\n"
          "  fabric: { groups: [north] }\n"
          "  rack: { groups: [south] }\n"
          "stages:\n"
          "  maintEnter:\n"
          "    - { name: bgp, run: [/hook] }\n"
          "    - { name: ratemon, timeout: 3s, on-timeout: hold }\n"
          "    - { name: verify, timeout: 2s, on-timeout: continue }\n";
}

}  // namespace

class HostileService {
 public:
   using Act = void ( * )( HostileService & );

   // `heard`: called with each change, says whether to act at it; null: never acts.
   HostileService( Act act, std::function<bool( std::string const & )> actAt )
      : act_( act ), actAt_( std::move( actAt ) ) {}
   ~HostileService() {
      ears_.muted( true );
      if( world_.running() ) world_.inTurn( [this] { world_.stop(); } );
   }

   void live();
   void expectNothingLeft();

   // What a handler may do.
   struct NamedAct {
      char const * name;
      Act act;
   };
   static std::vector<NamedAct> acts();

 private:
   MaintenanceService * service() { return world_.agent().service(); }
   // Null before the service has made it.
   template<class T>
   Kel::Ptr<T> dir( std::string_view path ) {
      auto const found = world_.database()->getEntity<T>( path );
      return found ? found : Kel::Ptr<T>( new T( "none" ) );
   }
   Kel::Ptr<Errdisable::CauseStatus> shutdowns() {
      return Kel::dynamicPtrCast<Errdisable::CauseStatus>(
         world_.state().errdisableCauses->entityRef( Maintenance::shutdownCause ) );
   }
   void enter( std::string const & unit, std::vector<std::string> const & without = {} ) {
      if( service() && world_.running() ) service()->units().enter( unit, without, "test" );
   }
   void exit( std::string const & unit ) {
      if( service() && world_.running() ) service()->units().exit( unit, "test" );
   }
   void exitsBoth() {
      exit( "rack" );
      exit( "fabric" );
   }
   void configIs( std::string const & text ) { world_.agent().configIs( Config::parse( text, "test.yaml" ) ); }
   void link( std::string const & name, bool up ) {
      world_.links().linkIs( Lumo::IntfId( name ), { .up = up, .kind = {}, .vlanId = {}, .members = {} } );
   }
   void traffic( std::string const & name, double bitsPerSecond ) {
      world_.counters().bitsPerSecondIs( Lumo::IntfId( name ), Sim::Direction::in, bitsPerSecond );
   }
   void turn( std::function<void()> const & work ) { world_.inTurn( work ); }
   void listen() {
      for( std::string const & path : world_.database()->paths() ) {
         if( followed_.insert( path ).second ) ears_.watch( { path } );
      }
   }
   void heard( Dovra::StateComponents const & path ) {
      std::string change;  // whose it is, what, and of which key
      for( std::size_t i = path.size() > 3 ? path.size() - 3 : 0; i < path.size(); ++i ) change += path[i] + " ";
      if( acted_ || !actAt_( change ) ) return;
      acted_ = true;
      act_( *this );
   }
   void asksAll();

   Act const act_;
   std::function<bool( std::string const & )> const actAt_;
   bool acted_ = false;
   std::set<std::string> followed_;
   Sim::World world_{ RATEMON_PLUGIN_PATH, 1000 };
   Dovra::Watches ears_{ *world_.database(), [this]( auto const & path, auto const & ) { heard( path ); } };
};

void HostileService::asksAll() {
   if( !service() ) return;
   static_cast<void>( service()->views().units() );
   for( char const * name : { "fabric", "rack" } ) static_cast<void>( service()->views().ready( name ) );
   static_cast<void>( service()->views().interfaces() );
}

std::vector<HostileService::NamedAct> HostileService::acts() {
   using Life = HostileService;
   return {
      { "entersFabric", []( Life & l ) { l.enter( "fabric" ); } },
      { "entersRackWithoutUp2", []( Life & l ) { l.enter( "rack", { "up2" } ); } },
      { "exitsFabric", []( Life & l ) { l.exit( "fabric" ); } },
      { "exitsBoth", []( Life & l ) { l.exitsBoth(); } },
      { "dropsWindows", []( Life & l ) { l.dir<Evidence::WindowDir>( Maintenance::Path::windows )->windowDelAll(); } },
      { "closesAccounts",
        []( Life & l ) {
           if( l.service() ) l.service()->ledger().unitDel( "fabric" );
        } },
      { "deletesAccounts",
        []( Life & l ) { l.dir<Evidence::UnitAccountsDir>( Maintenance::Path::accounts )->unitDelAll(); } },
      { "deletesUnit", []( Life & l ) { l.world_.state().unitStatus->statusDel( "fabric" ); } },
      { "takesAnInterfaceAway", []( Life & l ) { l.configIs( file( "1Mbps", "down1" ) ); } },
      { "reloadsWithOtherThreshold", []( Life & l ) { l.configIs( file( "1bps", "up2, down1" ) ); } },
      { "removesLinks",
        []( Life & l ) {
           for( char const * name : { "up1", "up2", "down1" } ) l.world_.links().linkDel( Lumo::IntfId( name ) );
        } },
      { "flapsLinks",
        []( Life & l ) {
           for( char const * name : { "up2", "down1" } ) {
              l.world_.links().linkDel( Lumo::IntfId( name ) );
              l.link( name, true );
           }
        } },
      { "raisesLinks",
        []( Life & l ) {
           for( char const * name : { "up2", "down1" } ) l.link( name, true );
        } },
      { "removesEntries",
        []( Life & l ) {
           if( auto const cause = l.shutdowns() ) cause->intfStatusDelAll();
        } },
      { "asksAll", []( Life & l ) { l.asksAll(); } },
   };
}

void HostileService::live() {
   turn( [this] { configIs( file( "100kbps", "up2, down1" ) ); } );
   turn( [this] {
      for( char const * name : { "up1", "up2", "down1" } ) link( name, true );
      traffic( "up2", 1e6 );
   } );
   listen();
   turn( [this] { world_.start(); } );
   listen();
   turn( [this] { enter( "fabric" ); } );
   world_.advance( 2 );
   turn( [this] { enter( "rack" ); } );
   world_.advance( 4 );
   turn( [this] { traffic( "up2", 0 ); } );
   world_.advance( 8 );
   turn( [this] {
      traffic( "up1", 1e6 );
      link( "down1", true );  // that is held
   } );
   world_.advance( 4 );
   turn( [this] {
      traffic( "up1", 0 );
      world_.links().linkDel( Lumo::IntfId( "up2" ) );
      link( "up2", true );
   } );
   turn( [this] { enter( "rack", { "down1" } ); } );
   world_.advance( 4 );
   turn( [this] { configIs( file( "200kbps", "up2, down1" ) ); } );
   world_.advance( 4 );
   if( world_.running() ) turn( [this] { world_.stop(); } );
   turn( [this] { world_.start(); } );
   world_.advance( 4 );
   turn( [this] { exit( "fabric" ); } );
   turn( [this] { exit( "rack" ); } );
   world_.advance( 2 );
}

void HostileService::expectNothingLeft() {
   acted_ = true;
   // What an act has begun, and what it has taken away.
   turn( [this] { configIs( file( "100kbps", "up2, down1" ) ); } );
   turn( [this] { exitsBoth(); } );
   world_.advance( 1 );
   for( auto [name, unit] : world_.state().unitStatus->statusIterator() ) {
      EXPECT_TRUE( unit->state() == State::active || unit->state() == State::unknown )
         << name << " is " << enumName( unit->state() );
   }
   EXPECT_EQ( dir<Evidence::UnitAccountsDir>( Maintenance::Path::accounts )->units(), 0u );
   for( auto [name, window] : dir<Evidence::WindowDir>( Maintenance::Path::windows )->windowIterator() ) {
      EXPECT_NE( window->outcome(), Evidence::Outcome::underway ) << name;
   }
   for( auto const * stage : { &world_.state().enter, &world_.state().exit } ) {
      EXPECT_EQ( stage->progress->progresss(), 0u );
      EXPECT_EQ( stage->completion->statuss(), 0u );
   }
   ASSERT_TRUE( shutdowns() );
   EXPECT_EQ( shutdowns()->intfStatuss(), 0u );
   EXPECT_EQ( dir<HeldLinkDir>( heldLinksPath )->helds(), 0u );
   for( char const * name : { "up1", "up2", "down1" } ) {
      auto const link = world_.links().link( Lumo::IntfId( name ) );
      EXPECT_TRUE( !link || link->adminUp ) << name;
   }
   asksAll();
}

namespace {

// Every act at every change takes minutes where nothing is optimised. There each change meets one of six acts, and each
// act one of six changes: others in each run, so that runs together meet them all.
bool isStruck( std::size_t change, std::size_t act ) {
#ifdef RATEMON_OPTIMISED
   bool const all = true;
#else
   static bool const all = std::getenv( "RATEMON_THOROUGH" ) != nullptr;
#endif
   static std::size_t const shift = std::random_device()();
   return all || ( change + act + shift ) % 6 == 0;
}

class Hostile : public ::testing::TestWithParam<std::size_t> {};

// At the first and at the last change of each kind: what is told alike in between is written by the same line.
TEST_P( Hostile, breaksNothingAtAnyChange ) {
   std::map<std::string, int> often;
   {
      HostileService peaceful( nullptr, [&]( std::string const & change ) {
         ++often[change];
         return false;
      } );
      peaceful.live();
      peaceful.expectNothingLeft();
   }
   ASSERT_GT( often.size(), 150u );
   auto const act = HostileService::acts()[GetParam()];
   std::size_t number = 0;
   for( auto const & entry : often ) {
      std::string const & change = entry.first;
      int const times = entry.second;
      for( int const at : { 1, 2, times } ) {
         if( at > times || ( at == 2 && times == 2 ) || HasFailure() ) continue;
         if( !isStruck( ++number, GetParam() ) ) continue;
         SCOPED_TRACE( std::string( act.name ) + " at change " + std::to_string( at ) + " of " + change );
         int seen = 0;
         HostileService life( act.act, [&]( std::string const & heard ) { return heard == change && ++seen == at; } );
         life.live();
         life.expectNothingLeft();
      }
   }
}

INSTANTIATE_TEST_SUITE_P( Acts, Hostile, ::testing::Range( std::size_t{ 0 }, HostileService::acts().size() ),
                          []( auto const & tested ) { return HostileService::acts()[tested.param].name; } );

}  // namespace
}  // namespace Service

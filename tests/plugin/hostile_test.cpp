// A reader that acts from inside a write: at every single change of a life of two units, every act that a handler may
// do.
//
// The life has everything in which writes follow one another: entries, a shared interface, a shutdown, units that
// drain, traffic that comes back, profiles that change, a restart, exits. A watcher on every record of the state
// database counts the changes; at the k-th it acts, for every k. Then the life goes on as well as it can. Nothing may
// crash or fail an assertion (the address sanitizer looks on), and in the end nothing may be left: no record of an
// interface, no link held down, no violation, no traffic in an aggregate, no reactor.
#include <cstdlib>
#include <random>

#include "DrainStory.h"
#include "Model.h"
#include "dovra/Watches.h"

namespace Test {

// One life, with one act at its k-th change. The interfaces are Ethernet1 to 3; Ethernet2 is shared, Ethernet3 is shut
// down.
class HostileLife : public DrainStory {
 public:
   using Act = void ( * )( HostileLife & );

   HostileLife( Act act, int at ) : act_( act ), at_( at ) {}
   void TestBody() override {}

   void live();
   void expectNothingLeft();
   [[nodiscard]] int changes() const { return changes_; }
   [[nodiscard]] std::string const & actedAt() const { return actedAt_; }

   // What a handler may do.
   struct NamedAct {
      char const * name;
      Act act;
   };
   static std::vector<NamedAct> acts();

 private:
   void ask( std::string const & unitName, Maintenance::StageState const & stage );
   void finish( std::string const & unitName );
   void heard( Dovra::StateComponents const & path );
   void startAgain();

   Act const act_;
   int const at_;
   int changes_ = 0;
   std::string actedAt_;
   Dovra::Watches spy_{ *world_.database(), [this]( auto const & path, auto const & ) { heard( path ); } };
};

std::vector<HostileLife::NamedAct> HostileLife::acts() {
   using Life = HostileLife;
   return {
      { "exitsNorth", []( Life & l ) { l.ask( "north", l.state_.exit ); } },
      { "exitsSouth", []( Life & l ) { l.ask( "south", l.state_.exit ); } },
      { "entersNorth", []( Life & l ) { l.ask( "north", l.state_.enter ); } },
      { "deletesNorth", []( Life & l ) { l.state_.unitStatus->statusDel( "north" ); } },
      { "deletesSouth", []( Life & l ) { l.state_.unitStatus->statusDel( "south" ); } },
      { "deletesGroupMapping",
        []( Life & l ) {
           l.state_.groupToUnit->groupToUnitDel( { Group::GroupType::intf, "north" } );
        } },
      { "takesGroupOutOfUnit",
        []( Life & l ) {
           auto const mapping = l.state_.groupToUnit->groupToUnit( { Group::GroupType::intf, "south" } );
           if( mapping ) mapping->unitNameDel( "south" );
        } },
      { "deletesIntfMapping", []( Life & l ) { l.state_.intfToGroup->intfToGroupDel( Lumo::IntfId( "Ethernet2" ) ); } },
      { "takesIntfOutOfGroups",
        []( Life & l ) {
           auto const mapping = l.state_.intfToGroup->intfToGroup( Lumo::IntfId( "Ethernet2" ) );
           if( mapping ) mapping->groupDelAll();
        } },
      { "deletesSharedStatus", []( Life & l ) { l.linkDel( "Ethernet2" ); } },
      { "deletesShutStatus", []( Life & l ) { l.linkDel( "Ethernet3" ); } },
      { "togglesShutdown",
        []( Life & l ) {
           auto const down = l.state_.profiles->config( "down" );
           down->shutdownIs( !down->shutdown() );
        } },
      { "stopsThePlugin",
        []( Life & l ) {
           if( l.world_.running() ) l.stop();
        } },
   };
}

void HostileLife::heard( Dovra::StateComponents const & path ) {
   if( ++changes_ != at_ ) return;
   for( std::string const & component : path ) actedAt_ += " " + component;
   act_( *this );
}

// What a stage manager does for an enter or exit, without waiting for what comes of it.
void HostileLife::ask( std::string const & unitName, Maintenance::StageState const & stage ) {
   auto const unit = state_.unitStatus->status( Kel::String8( unitName ) );
   if( !unit ) return;
   bool const entering = &stage == &state_.enter;
   unit->genIdIs( unit->genId() + 1 );
   Kel::Name const name = instance( unitName, unit->genId() );
   if( entering ) {
      unit->maintEnterInstanceNameIs( name );
   } else {
      unit->maintExitInstanceNameIs( name );
   }
   unit->stateIs( entering ? State::entering : State::leaving );
   stage.completion->statusIs( name );
   stage.progress->progressIs( name )->stageIs( "ratemon", true );
}

// Removes the instance of a unit that has completed; the record may be deleted from inside either removal.
void HostileLife::finish( std::string const & unitName ) {
   auto const unit = state_.unitStatus->status( Kel::String8( unitName ) );
   if( !unit ) return;
   bool const entering = unit->state() == State::entering && enterComplete( unitName );
   bool const leaving = unit->state() == State::leaving && exitComplete( unitName );
   if( !entering && !leaving ) return;
   auto const & stage = entering ? state_.enter : state_.exit;
   Kel::Name const name = instance( unitName, unit->genId() );
   stage.progress->progressDel( name );
   stage.completion->statusDel( name );
   unit->stateIs( entering ? State::inMaintenance : State::active );
}

void HostileLife::startAgain() {
   if( world_.running() ) stop();
   start();
}

void HostileLife::live() {
   profile( "#DEFAULTPROFILE", { .loadInterval = 20 } );
   profile( "down", { .loadInterval = 20, .shutdown = true, .maxDelay = 600 } );
   unit( "north", { "Ethernet1", "Ethernet2" } );
   unit( "south", { "Ethernet2", "Ethernet3" } );
   select( "Ethernet3", "down" );
   traffic( "Ethernet2", 1_Mbps );
   for( std::string const & path : world_.database()->paths() ) spy_.watch( { path } );
   startAgain();
   ask( "north", state_.enter );
   advance( 10_s );
   ask( "south", state_.enter );
   advance( 20_s );
   link( "Ethernet3", Interface::IntfOperStatus::down );
   traffic( "Ethernet2", 0_bps );
   advance( 20_s );
   finish( "north" );
   finish( "south" );
   traffic( "Ethernet1", 1_Mbps );
   traffic( "Ethernet2", 1_Mbps );
   advance( 20_s );
   startAgain();
   advance( 20_s );
   select( "Ethernet2", "down" );
   advance( 0 );
   profile( "down", { .loadInterval = 20 } );
   link( "Ethernet3", Interface::IntfOperStatus::up );
   advance( 20_s );
   for( char const * unitName : { "north", "south" } ) ask( unitName, state_.exit );
   advance( 0 );
   for( char const * unitName : { "north", "south" } ) finish( unitName );
}

void HostileLife::expectNothingLeft() {
   if( world_.running() ) {
      expectInvariants( world_ );
      stop();
   }
   expectNothingLeftBehind( world_ );
   auto const & published = *state_.monIntfStatus;
   EXPECT_EQ( published.monIntfStatuss(), 0u );
   EXPECT_EQ( published.monIntfEnterMaints() + published.monIntfUnderMaints() + published.monIntfSpikeUnderMaints(),
              0u );
   EXPECT_EQ( cause().intfStatuss(), 0u );
   for( auto [unitName, unit] : state_.unitStatus->statusIterator() ) {
      EXPECT_EQ( unit->intfsViolatingTrafficThresholds(), 0u ) << unitName;
      EXPECT_EQ( unit->aggTrafficRate().inBitsRate + unit->aggTrafficRate().outBitsRate, 0u ) << unitName;
   }
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

}  // namespace

class Hostile : public ::testing::TestWithParam<std::size_t> {};

TEST_P( Hostile, breaksNothingAtAnyChange ) {
   int changes = 0;
   {
      HostileLife peaceful( nullptr, 0 );
      peaceful.live();
      peaceful.expectNothingLeft();
      changes = peaceful.changes();
   }
   ASSERT_GT( changes, 250 );
   auto const act = HostileLife::acts()[GetParam()];
   for( int k = 1; k <= changes && !HasFailure(); ++k ) {
      if( !isStruck( static_cast<std::size_t>( k ), GetParam() ) ) continue;
      HostileLife life( act.act, k );
      life.live();
      SCOPED_TRACE( std::string( act.name ) + " at change " + std::to_string( k ) + ":" + life.actedAt() );
      life.expectNothingLeft();
   }
}

INSTANTIATE_TEST_SUITE_P( Acts, Hostile, ::testing::Range( std::size_t{ 0 }, HostileLife::acts().size() ),
                          []( auto const & tested ) { return HostileLife::acts()[tested.param].name; } );

}  // namespace Test

// A reader that acts from inside a write: at every single change of a life of two units, every act that a handler may
// do.
//
// The life has everything in which writes follow one another: entries, a shared interface, a shutdown, units that
// drain, traffic that comes back, profiles that change, a restart, exits. A watcher on every record of the state
// database counts the changes; at the k-th it acts, for every k. Then the life goes on as well as it can. Nothing may
// crash or fail an assertion (the address sanitizer looks on), and in the end nothing may be left: no record of an
// interface, no link held down, no violation, no traffic in an aggregate, no reactor.
#include <deque>

#include "DrainStory.h"
#include "Model.h"

namespace Test {

namespace {

// Hears of every change of the entities that it was given and of those that come below them. It holds a reference to
// none, so that it keeps nothing alive.
class Spy {
 public:
   explicit Spy( std::function<void( std::string const & change )> heard ) : heard_( std::move( heard ) ) {}

   void follow( Kel::Entity const & e ) {
      // Never taken back: an entity that dies forgets its watchers.
      e.watcherIs( ears_.emplace_back( *this ) );
      for( auto const & attribute : e.kelTypeInfo().attributes() ) {
         if( attribute->kind() != Kel::AttributeInfo::Kind::children ) continue;
         for( std::string const & key : attribute->keys( e ) ) follow( *attribute->child( e, key ) );
      }
   }

 private:
   class Ear final : public Kel::Watcher {
    public:
      explicit Ear( Spy & spy ) : spy_( spy ) {}
      void onAttribute( Kel::Entity const & e, Kel::AttributeInfo const & attribute,
                        std::string const * key ) override {
         if( key && attribute.kind() == Kel::AttributeInfo::Kind::children ) {
            if( auto const child = attribute.child( e, *key ) ) spy_.follow( *child );
         }
         spy_.heard_( e.name() + " " + attribute.name() + ( key ? " " + *key : "" ) );
      }

    private:
      Spy & spy_;
   };

   std::function<void( std::string const & )> const heard_;
   std::deque<Ear> ears_;
};

}  // namespace

// One life, with one act at its k-th change. The interfaces are Ethernet1 to 3; Ethernet2 is shared, Ethernet3 is shut
// down.
class HostileLife : public DrainStory {
 public:
   using Act = void ( HostileLife::* )();

   HostileLife( Act act, int at ) : act_( act ), at_( at ) {}
   // The spy goes before the records that it listens to, so nothing may change any more.
   ~HostileLife() override {
      if( world_.running() ) stop();
   }
   void TestBody() override {}

   void live();
   void expectNothingLeft();
   [[nodiscard]] int changes() const { return changes_; }
   [[nodiscard]] std::string const & actedAt() const { return actedAt_; }

   // What a handler may do
   void nothing() {}
   void exitsNorth() { ask( "north", state_.exit ); }
   void exitsSouth() { ask( "south", state_.exit ); }
   void entersNorth() { ask( "north", state_.enter ); }
   void deletesNorth() { state_.unitStatus->statusDel( "north" ); }
   void deletesSouth() { state_.unitStatus->statusDel( "south" ); }
   void deletesGroupMapping() { state_.groupToUnit->groupToUnitDel( { Group::GroupType::intf, "north" } ); }
   void takesGroupOutOfUnit() {
      auto const mapping = state_.groupToUnit->groupToUnit( { Group::GroupType::intf, "south" } );
      if( mapping ) mapping->unitNameDel( "south" );
   }
   void deletesIntfMapping() { state_.intfToGroup->intfToGroupDel( Lumo::IntfId( "Ethernet2" ) ); }
   void takesIntfOutOfGroups() {
      auto const mapping = state_.intfToGroup->intfToGroup( Lumo::IntfId( "Ethernet2" ) );
      if( mapping ) mapping->groupDelAll();
   }
   void deletesSharedStatus() { linkDel( "Ethernet2" ); }
   void deletesShutStatus() { linkDel( "Ethernet3" ); }
   void togglesShutdown() {
      auto const down = state_.profiles->config( "down" );
      down->shutdownIs( !down->shutdown() );
   }
   void stopsThePlugin() {
      if( world_.running() ) stop();
   }

 private:
   void ask( std::string const & unitName, Maintenance::StageState const & stage );
   void finish( std::string const & unitName );
   void heard( std::string const & change );
   void startAgain();

   Act const act_;
   int const at_;
   int changes_ = 0;
   std::string actedAt_;
   Spy spy_{ [this]( auto const & change ) { heard( change ); } };
};

void HostileLife::heard( std::string const & change ) {
   if( ++changes_ != at_ ) return;
   actedAt_ = change;
   ( this->*act_ )();
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
   for( std::string const & path : world_.database()->paths() ) spy_.follow( *world_.database()->getEntity( path ) );
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

struct NamedAct {
   char const * name;
   HostileLife::Act act;
};

class Hostile : public ::testing::TestWithParam<NamedAct> {};

TEST_P( Hostile, breaksNothingAtAnyChange ) {
   int changes = 0;
   {
      HostileLife peaceful( &HostileLife::nothing, 0 );
      peaceful.live();
      peaceful.expectNothingLeft();
      changes = peaceful.changes();
   }
   ASSERT_GT( changes, 250 );
   for( int k = 1; k <= changes && !HasFailure(); ++k ) {
      HostileLife life( GetParam().act, k );
      life.live();
      SCOPED_TRACE( std::string( GetParam().name ) + " at change " + std::to_string( k ) + ": " + life.actedAt() );
      life.expectNothingLeft();
   }
}

INSTANTIATE_TEST_SUITE_P( Acts, Hostile,
                          ::testing::Values( NamedAct{ "exitsNorth", &HostileLife::exitsNorth },
                                             NamedAct{ "exitsSouth", &HostileLife::exitsSouth },
                                             NamedAct{ "entersNorth", &HostileLife::entersNorth },
                                             NamedAct{ "deletesNorth", &HostileLife::deletesNorth },
                                             NamedAct{ "deletesSouth", &HostileLife::deletesSouth },
                                             NamedAct{ "deletesGroupMapping", &HostileLife::deletesGroupMapping },
                                             NamedAct{ "takesGroupOutOfUnit", &HostileLife::takesGroupOutOfUnit },
                                             NamedAct{ "deletesIntfMapping", &HostileLife::deletesIntfMapping },
                                             NamedAct{ "takesIntfOutOfGroups", &HostileLife::takesIntfOutOfGroups },
                                             NamedAct{ "deletesSharedStatus", &HostileLife::deletesSharedStatus },
                                             NamedAct{ "deletesShutStatus", &HostileLife::deletesShutStatus },
                                             NamedAct{ "togglesShutdown", &HostileLife::togglesShutdown },
                                             NamedAct{ "stopsThePlugin", &HostileLife::stopsThePlugin } ),
                          []( auto const & tested ) { return tested.param.name; } );

}  // namespace Test

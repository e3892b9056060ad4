#include "world/World.h"

#include <optional>
#include <vector>

#include "plugin/Loader.h"
#include "world/KeptState.h"

namespace Sim {

namespace {

// What crashed plug-ins left behind, kept so that no destructor of theirs ever runs.
std::vector<Kel::Ptr<Kel::Dir>> & pluginDirsLeft() {
   // Reachable for ever, so that the leak checker knows that it is meant.
   static auto * const dirs = new std::vector<Kel::Ptr<Kel::Dir>>;
   return *dirs;
}

// Of the entity and all below it. Watchers stay: what follows the records belongs to the simulator, which did not
// crash.
void forgetReactors( Kel::Entity const & e ) {
   e.reactorsForget();
   for( auto const & attribute : e.kelTypeInfo().attributes() ) {
      if( attribute->kind() != Kel::AttributeInfo::Kind::children ) continue;
      for( std::string const & key : attribute->keys( e ) ) forgetReactors( *attribute->child( e, key ) );
   }
}

}  // namespace

World::World( std::string const & plugin, double startTime, double clockStep )
   : clock_( new Kel::VirtualClock( startTime, clockStep ) ),
     loop_( Kel::Ptr<Kel::Clock>( clock_ ) ),
     database_( new Dovra::EntityManager ),
     state_( *database_ ),
     writer_( state_.counterWriterStatus, "" ),
     counters_( writer_ ),
     quill_( new KelQuill::EntityManager( writer_.table() ) ),
     linkRecords_( state_ ),
     links_( linkRecords_, counters_ ),
     pluginDir_( new Kel::Dir( "plugins" ) ),
     agent_( { database_, state_, quill_, linkRecords_, links_ } ) {
   // A crashed plug-in may keep the manager beyond this world, but nothing of it runs that could call the refresher.
   quill_->refresherIs( [this]( auto rows ) { counters_.refresh( rows ); } );
   // Last: it throws, and all members are then there to be taken down.
   Maintenance::DefaultPluginLoader().load( plugin );
}

World::~World() {
   if( running() ) stop();
}

void World::inTurn( Kel::ActivityLoop::Work const & work ) {
   loop_.turn( work );
   // The turn may have asked for work at the present time, which waits for a turn of its own.
   loop_.runUntil( *clock_, now() );
}

void World::advance( double seconds ) {
   loop_.runUntil( *clock_, now() + seconds );
   // The last turn may be long past; whoever asks for its time from outside is to get the present one.
   inTurn( {} );
}

void World::late( double seconds, Kel::ActivityLoop::Work const & work ) {
   clock_->nowIs( now() + seconds );
   inTurn( work );
}

void World::start() {
   KEL_ASSERT( !running() );
   agent_.start();
   context_ = std::make_unique<Maintenance::PluginContext>( pluginDir_, database_, quill_ );
   Maintenance::DefaultPluginLoader().initPlugins( *context_ );
}

void World::stop() {
   KEL_ASSERT( running() );
   std::optional<KeptState> kept;
   if( agent_.configured() ) kept.emplace( *database_ );
   agent_.stop();
   // Before the context, which outlives all that is made in it.
   pluginDir_->entityDelAll();
   context_ = nullptr;
   if( kept ) kept->putBack();
}

void World::crash() {
   KEL_ASSERT( running() );
   // Nothing runs between here and the end, so no handler sees the half-forgotten state.
   agent_.crash();
   loop_.forgetAll();
   for( std::string const & path : database_->paths() ) forgetReactors( *database_->getEntity( path ) );
   pluginDirsLeft().push_back( pluginDir_ );
   pluginDir_ = new Kel::Dir( "plugins" );
   context_ = nullptr;
}

std::string World::dump() { return running() ? Maintenance::dumpText( *context_ ) : ""; }

}  // namespace Sim

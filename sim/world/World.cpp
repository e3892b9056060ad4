#include "world/World.h"

#include <vector>

#include "plugin/Loader.h"

namespace Sim {

namespace {

// What crashed plug-ins left behind, kept so that no destructor of theirs ever runs.
std::vector<Kel::Ptr<Kel::Dir>> & graveyard() {
   static auto * const dirs = new std::vector<Kel::Ptr<Kel::Dir>>;
   return *dirs;
}

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
     pluginDir_( new Kel::Dir( "plugins" ) ) {
   quill_->refresherIs( [this] { counters_.refresh(); } );
   Maintenance::DefaultPluginLoader().load( plugin );
}

World::~World() {
   if( running() ) stop();
}

void World::inTurn( Kel::ActivityLoop::Work const & work ) {
   loop_.turn( work );
   loop_.runUntil( *clock_, now() );
}

void World::advance( double seconds ) {
   loop_.runUntil( *clock_, now() + seconds );
   inTurn( {} );  // whoever asks for the time of the turn from outside now gets the present time
}

void World::start() {
   KEL_ASSERT( !running() );
   context_ = std::make_unique<Maintenance::PluginContext>( pluginDir_, database_, quill_ );
   Maintenance::DefaultPluginLoader().initPlugins( *context_ );
}

void World::stop() {
   KEL_ASSERT( running() );
   pluginDir_->entityDelAll();
   context_ = nullptr;
}

void World::crash() {
   KEL_ASSERT( running() );
   loop_.forgetAll();
   for( std::string const & path : database_->paths() ) forgetReactors( *database_->getEntity( path ) );
   graveyard().push_back( pluginDir_ );
   pluginDir_ = new Kel::Dir( "plugins" );
   context_ = nullptr;
}

std::string World::dump() { return running() ? Maintenance::dumpText( *context_ ) : ""; }

}  // namespace Sim

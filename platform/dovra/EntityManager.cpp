#include "dovra/EntityManager.h"

namespace Dovra {

namespace {

bool wellFormed( std::string_view path ) {
   bool const slashesInside = !path.empty() && path.front() != '/' && path.back() != '/';
   return slashesInside && path.find( "//" ) == std::string_view::npos;
}

}  // namespace

void EntityManager::entityIs( std::string_view path, Kel::Ptr<Kel::Entity> const & entity ) {
   KEL_ASSERT( wellFormed( path ) );
   KEL_ASSERT( entity );
   bool const added = entities_.emplace( path, entity ).second;
   // A plug-in may hold the entity that stands there; a second one in its place would split readers from writers.
   KEL_ASSERT( added );
}

std::vector<std::string> EntityManager::paths() const {
   std::vector<std::string> paths;
   paths.reserve( entities_.size() );
   for( auto const & mounted : entities_ ) paths.push_back( mounted.first );
   return paths;
}

std::string_view EntityManager::mountedPrefix( std::string_view path ) const {
   while( !path.empty() ) {
      auto const mounted = entities_.find( path );
      // A view of the key in the map, not of the caller's text: it stays good as long as the database, as nothing is
      // ever unmounted.
      if( mounted != entities_.end() ) return mounted->first;
      std::size_t const slash = path.rfind( '/' );
      path = path.substr( 0, slash == std::string_view::npos ? 0 : slash );
   }
   return {};
}

Kel::Ptr<Kel::Entity> EntityManager::getEntity( std::string_view path ) const {
   auto const mounted = entities_.find( path );
   return mounted == entities_.end() ? nullptr : mounted->second;
}

Kel::Ptr<MountGroup> EntityManager::getMountGroup( Mounter * mounter ) {
   // The group holds the database until it is complete, so that a mounter need not.
   Kel::Ptr<MountGroup> group( new MountGroup( Kel::Ptr<EntityManager>( this ), mounter ) );
   mounter->groups_.push_back( group );
   return group;
}

std::string_view EntityManager::lastComponent( std::string_view path ) {
   std::size_t const slash = path.rfind( '/' );
   return slash == std::string_view::npos ? path : path.substr( slash + 1 );
}

}  // namespace Dovra

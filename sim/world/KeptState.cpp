#include "world/KeptState.h"

#include <algorithm>

#include "kel/Dir.h"
#include "links/HeldLinks.h"
#include "records/Names.h"

namespace Sim {

namespace {

using Kel::Value;
namespace Path = Maintenance::Path;

Value const * member( Value::Object const & object, std::string const & name ) {
   auto const found = std::ranges::find( object, name, []( auto const & m ) { return m.first; } );
   return found == object.end() ? nullptr : &found->second;
}

Value::Object const & object( Value const & value ) {
   auto const * const found = value.as<Value::Object>();
   KEL_ASSERT( found );
   return *found;
}

// Deletes the entries, here and below, that were not there before.
void deleteAdded( Kel::Entity & e, Value::Object const & before ) {
   bool const isDir = dynamic_cast<Kel::Dir const *>( &e );  // its children stand directly below it
   for( auto const & attribute : e.kelTypeInfo().attributes() ) {
      if( !attribute->keyed() ) continue;
      Value::Object const & entries = isDir ? before : object( *member( before, attribute->name() ) );
      for( std::string const & key : attribute->keys( e ) ) {
         Value const * const was = member( entries, key );
         if( !was ) {
            attribute->entryDel( e, key );
         } else if( auto const child = attribute->child( e, key ) ) {
            deleteAdded( *child, object( *was ) );
         }
      }
   }
}

}  // namespace

KeptState::KeptState( Dovra::EntityManager const & database ) : database_( database ) {
   for( std::string const & path :
        { std::string( Path::unitStatus ), std::string( Path::monIntfStatus ), std::string( Path::errdisableCauses ),
          std::string( Path::errdisableCauseGroups ), std::string( Service::heldLinksPath ),
          Path::stageAgentStatus( Maintenance::enterStageClass ),
          Path::stageAgentStatus( Maintenance::exitStageClass ) } ) {
      kept_.emplace_back( path, Dovra::stateValue( database, path ) );
   }
}

void KeptState::putBack() const {
   for( auto const & [path, before] : kept_ ) {
      if( Dovra::stateValue( database_, path ) == before ) continue;
      deleteAdded( *database_.getEntity( path ), object( before ) );
      Dovra::stateValueIs( database_, path, before );
   }
}

}  // namespace Sim

#include "kel/Dir.h"

KEL_TYPE( Kel::Dir )

namespace Kel {

Ptr<Entity> Dir::newEntity( std::string_view typeName, Name const & entityName ) {
   TypeInfo const * const type = typeNode( typeName );
   if( !type ) throw AttributeError( "no type \"" + std::string( typeName ) + "\" is registered" );
   return entityIs( type->newEntity( entityName.view() ) );
}

}  // namespace Kel

// A directory: an entity that holds child entities of any type by name.
#pragma once

#include "kel/Attributes.h"

namespace Kel {

class Dir final : public Entity {
   KEL_ENTITY( Dir, "Kel::Dir", Name, dirName )
   KEL_CHILDREN( Entity, Name, entity, onEntity )
   KEL_ENTITY_END

   // Makes an entity of a registered type and holds it; throws AttributeError when no such type can be made by name.
   Ptr<Entity> newEntity( std::string_view typeName, Name const & name );
   // The child of that name, null when there is none.
   [[nodiscard]] Ptr<Entity> entityRef( Name const & name ) { return entity( name ); }
   [[nodiscard]] Ptr<Entity const> entityRef( Name const & name ) const { return entity( name ); }
};

}  // namespace Kel

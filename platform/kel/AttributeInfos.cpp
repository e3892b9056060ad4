#include "kel/AttributeInfos.h"

namespace Kel {

std::pair<Value::Object, Value::Object> scalarsAndCollections( TypeInfo const & type, Value::Object const & object ) {
   std::pair<Value::Object, Value::Object> parts;
   for( auto const & named : object ) {
      auto const * attribute = type.attribute( named.first );
      // Before anything is made: a misspelt name must not leave a child behind that is half filled in.
      if( !attribute ) throw AttributeError( type.name() + " has no attribute \"" + named.first + "\"" );
      ( attribute->keyed() ? parts.second : parts.first ).push_back( named );
   }
   return parts;
}

}  // namespace Kel

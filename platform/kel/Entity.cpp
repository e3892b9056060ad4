#include "kel/Entity.h"

namespace Kel {

TypeInfo const & Entity::kelType() {
   static TypeInfo const type( kelTypeName(), nullptr );
   return type;
}

void Entity::watcherIs( Watcher & w ) const {
   if( !watchers_ ) watchers_ = std::make_unique<NotifieeList>();
   watchers_->append( w );
}

void Entity::watcherDel( Watcher & w ) const { watchers_->remove( w ); }

void Entity::kelTellWatchers( AttributeInfo const & attribute, std::string const * key ) const {
   Ptr<Entity const> const alive( this );
   NotifieeList::Delivery delivery( *watchers_ );
   while( NotifieeBase * const n = delivery.next() ) {
      if( n->deliverable() ) static_cast<Watcher &>( *n ).onAttribute( *this, attribute, key );
   }
}

}  // namespace Kel

#include "kel/Entity.h"

#include <unordered_map>

namespace Kel {

constinit NotifieeList::Delivery * NotifieeList::Delivery::innermost_ = nullptr;

namespace {

// Few entities are ever watched, so the lists are no part of them. Never destroyed: an entity may outlive everything.
std::unordered_map<Entity const *, NotifieeList> & watchers() {
   static auto & lists = *new std::unordered_map<Entity const *, NotifieeList>;
   return lists;
}

}  // namespace

TypeInfo const & Entity::kelType() {
   static TypeInfo const type( kelTypeName(), nullptr );
   return type;
}

void Entity::watcherIs( Watcher & w ) const {
   kelHasWatchersIs( true );
   watchers()[this].append( w );
}

void Entity::watcherDel( Watcher & w ) const { watchers().at( this ).remove( w ); }

void Entity::kelTellWatchers( AttributeInfo const & attribute, std::string const * key ) const {
   Dispatch const dispatch;
   NotifieeList::Delivery delivery( watchers().at( this ) );
   while( NotifieeBase * const n = delivery.next() ) {
      if( n->deliverable() ) static_cast<Watcher &>( *n ).onAttribute( *this, attribute, key );
   }
}

void Entity::kelWatchersForget() const { watchers().erase( this ); }

}  // namespace Kel

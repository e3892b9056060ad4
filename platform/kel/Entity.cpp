#include "kel/Entity.h"

#include <unordered_map>

namespace Kel {

constinit NotifieeList::Delivery * NotifieeList::Delivery::innermost_ = nullptr;

namespace {

// Few entities are ever watched, so the lists are kept apart from them. Never destroyed: an entity may outlive
// everything.
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

// The list stays when its last watcher goes: it may be in the middle of a delivery. So does the flag, which says that
// there is a list.
void Entity::watcherDel( Watcher & w ) const { watchers().at( this ).remove( w ); }

void Entity::kelTellWatchers( AttributeInfo const & attribute, std::string const * key ) const {
   // Of its own, because changes of attributes that notify no reactor open none.
   Dispatch const dispatch;
   // Handlers may make lists for other entities; this one does not move when the map grows.
   NotifieeList::Delivery delivery( watchers().at( this ) );
   while( NotifieeBase * const n = delivery.next() ) {
      if( n->deliverable() ) static_cast<Watcher &>( *n ).onAttribute( *this, attribute, key );
   }
}

// By address, and that may be the next entity's, which must not inherit these watchers.
void Entity::kelWatchersForget() const { watchers().erase( this ); }

}  // namespace Kel

#include "kel/Entity.h"

#include <deque>
#include <vector>

namespace Kel {

constinit NotifieeList::Delivery * NotifieeList::Delivery::innermost_ = nullptr;

// The watchers of all entities, by their numbers less 1. Few entities are ever watched, so they are kept apart.
// Handlers may make more for other entities; those that are there stay where they are. Never destroyed: an entity may
// outlive everything.
struct AllWatchers {
   std::deque<Entity::Watchers> all;
   std::vector<uint32_t> free;  // numbers

   uint32_t numberOfNew() {
      if( free.empty() ) {
         all.emplace_back();
         return static_cast<uint32_t>( all.size() );
      }
      uint32_t const number = free.back();
      free.pop_back();
      return number;
   }
};

static AllWatchers & allWatchers() {
   static auto & all = *new AllWatchers;
   return all;
}

TypeInfo const & Entity::kelType() {
   static TypeInfo const type( kelTypeName(), nullptr );
   return type;
}

Entity::Watchers & Entity::watchers() const { return allWatchers().all[( watched_ & ~passingHeard ) - 1]; }

void Entity::watcherIs( Watcher & w ) const {
   if( watched_ == 0 ) watched_ = allWatchers().numberOfNew();
   watchers().list.append( w );
   w.hearsPassing_ = false;
   watcherHearsPassingIs( w, true );
}

// The list stays when its last watcher goes: it may be in the middle of a delivery.
void Entity::watcherDel( Watcher & w ) const {
   watcherHearsPassingIs( w, false );
   watchers().list.remove( w );
}

void Entity::watcherHearsPassingIs( Watcher & w, bool hears ) const {
   if( w.hearsPassing_ == hears ) return;
   w.hearsPassing_ = hears;
   uint32_t & count = watchers().hearPassing;
   hears ? ++count : --count;
   watched_ = count > 0 ? watched_ | passingHeard : watched_ & ~passingHeard;
}

void Entity::kelTellWatchers( AttributeInfo const & attribute, std::string const * key ) const {
   // Of its own, because changes of attributes that notify no reactor open none.
   Dispatch const dispatch;
   NotifieeList::Delivery delivery( watchers().list );
   while( NotifieeBase * const n = delivery.next() ) {
      auto & watcher = static_cast<Watcher &>( *n );
      bool const hears = watcher.hearsPassing() || !attribute.passing();
      if( hears && watcher.deliverable() ) watcher.onAttribute( *this, attribute, key );
   }
}

// The next entity that gets the list must not inherit these watchers.
void Entity::kelWatchersForget() const {
   watchers() = {};
   allWatchers().free.push_back( watched_ & ~passingHeard );
}

}  // namespace Kel

// The operations of keyed attributes, one class per form: values by key, a set of keys, child entities by key.
//
// The attribute macros (kel/Attributes.h) give each a member and named forwarders; nothing here is used directly by
// records or machines, save iterators. A change is made, then told; deleting all deletes one by one, so reactors see
// every removal. `Tell` is the owner's callback: it delivers the change of one key. A child that leaves is out of
// service before anything else, then taken apart, then told of.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "kel/Entity.h"
#include "kel/HashMap.h"

namespace Kel {

template<class V, class K>
class ValueCollection {
 public:
   using Map = HashMap<V, K>;

   [[nodiscard]] Map const & map() const { return map_; }

   template<class Tell>
   void is( K const & key, V const & value, Tell const & tell ) {
      if( V * const present = map_.find( key ) ) {
         if( *present == value ) return;
         *present = value;
      } else {
         map_.insert( key, value );
      }
      tell( K( key ) );  // a copy: the caller's key may live in an entry that a handler removes
   }

   template<class Tell>
   void del( K const & key, Tell const & tell ) {
      K const gone = key;  // the caller's key may live in the entry
      if( !map_.find( gone ) ) return;
      map_.take( gone );
      tell( gone );
   }

   template<class Tell>
   void delAll( Tell const & tell ) {
      Dispatch const dispatch;  // the handlers of one removal may drop the owner of this collection before the next
      // Always the first that is left, not a walk: handlers may add and remove entries, and nothing may remain.
      while( !map_.empty() ) del( map_.firstKey(), tell );
   }

 private:
   Map map_;
};

template<class Child, class K>
class ChildCollection {
 public:
   using Map = HashMap<Ptr<Child>, K>;

   [[nodiscard]] Map const & map() const { return map_; }
   [[nodiscard]] Ptr<Child> find( K const & key ) const {
      Ptr<Child> * const child = map_.find( key );
      return child ? *child : Ptr<Child>();
   }

   // Adds a prepared child, or puts it in the place of the one with its key, which is taken apart first.
   template<class Tell>
   Ptr<Child> is( K const & key, Ptr<Child> const & child, Tell const & tell ) {
      Ptr<Child> const kept = child;  // the caller's reference may be one that a handler changes
      Dispatch const dispatch;        // a teardown's handlers may drop the owner of this collection
      if( Ptr<Child> * const present = map_.find( key ) ) {
         if( *present == child ) return kept;
         // The new one is in its place before the old one is taken apart, so nobody finds a gap or the old one; and
         // there is one change to tell of, not two. `present` may dangle afterwards.
         takeApart( *std::exchange( *present, child ) );
      } else {
         map_.insert( key, child );
      }
      tell( K( key ) );
      return kept;
   }

   template<class Tell>
   void del( K const & key, Tell const & tell ) {
      K const gone = key;
      if( !map_.find( gone ) ) return;
      // Out of the collection first, so that nothing that the teardown causes can tear the child down a second time.
      Dispatch const dispatch;
      takeApart( *map_.take( gone ) );
      tell( gone );
   }

   template<class Tell>
   void delAll( Tell const & tell ) {
      Dispatch const dispatch;
      while( !map_.empty() ) del( map_.firstKey(), tell );
   }

 private:
   static void takeApart( Child & child ) {
      // Silent first: its own teardown makes writes, and its reactors would act on them half gone.
      child.kelDoZombieReactors( true );
      child.prepareToDie();
   }

   Map map_;
};

// The keys of a map as texts, in key order.
template<class Map, class K>
[[nodiscard]] std::vector<std::string> sortedKeyTexts( Map const & map ) {
   std::vector<K> keys;
   keys.reserve( map.size() );
   for( typename Map::Cursor i( map ); i; ++i ) keys.push_back( i.key() );
   // As keys and not as texts: number 10 comes after 9.
   std::sort( keys.begin(), keys.end() );
   std::vector<std::string> texts;
   texts.reserve( keys.size() );
   for( K const & key : keys ) texts.push_back( KeyTraits<K>::toText( key ) );
   return texts;
}

}  // namespace Kel

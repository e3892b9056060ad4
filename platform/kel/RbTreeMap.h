// An ordered keyed collection, walked in key order. A walk remembers the key it stands on and finds its position again
// by key, so entries may come and go during it and it can be resumed from a remembered key (a bookmark) at any time.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <utility>

namespace Kel {

template<class V, class K>
class RbTreeMap {
 public:
   [[nodiscard]] std::size_t size() const { return entries_.size(); }
   [[nodiscard]] bool empty() const { return entries_.empty(); }
   [[nodiscard]] V const * find( K const & key ) const {
      auto const i = entries_.find( key );
      return i == entries_.end() ? nullptr : &i->second;
   }

   // Adds or replaces; true when the collection changed.
   bool insert( K const & key, V value ) {
      // Copied here, for the value is still needed where the key is already there.
      auto const [i, added] = entries_.try_emplace( key, value );
      if( added ) return true;
      if( i->second == value ) return false;
      i->second = std::move( value );
      return true;
   }
   bool erase( K const & key ) { return entries_.erase( key ) != 0; }
   void clear() { entries_.clear(); }

   // The first key at or after the given one, or strictly after it; none when there is no such key.
   [[nodiscard]] std::optional<K> keyFrom( K const & key ) const { return keyAt( entries_.lower_bound( key ) ); }
   [[nodiscard]] std::optional<K> keyAfter( K const & key ) const { return keyAt( entries_.upper_bound( key ) ); }
   [[nodiscard]] std::optional<K> firstKey() const { return keyAt( entries_.begin() ); }

 private:
   [[nodiscard]] std::optional<K> keyAt( typename std::map<K, V>::const_iterator i ) const {
      return i == entries_.end() ? std::nullopt : std::optional<K>( i->first );
   }

   std::map<K, V> entries_;
};

}  // namespace Kel

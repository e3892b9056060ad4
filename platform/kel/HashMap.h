// An unordered keyed collection whose walks are stable: entries keep the order in which they came, and any entry may be
// added or removed while any number of walks are under way, also the one a walk stands on.
//
// Up to four entries are found by a linear search; more get a hash index. Keys are cheap to copy (an interned id or a
// counted string): a walk hands out copies, so what it hands out survives the entry. Entries added during a walk are
// visited by it. Not a store of its own: notification is the business of kel/Collections.h.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "kel/StablePlaces.h"

namespace Kel {

// What all walks have in common. A walk is registered as long as it lives, in one list for all maps rather than in each
// map: of the many maps there are, hardly any is being walked at a given time.
class MapWalk {
 public:
   MapWalk( MapWalk const & ) = delete;
   MapWalk & operator=( MapWalk const & ) = delete;

 protected:
   explicit MapWalk( void const * map ) : map_( map ), next_( std::exchange( newest_, this ) ) {}
   ~MapWalk() {
      MapWalk ** link = &newest_;
      // Walks nest, so this one is nearly always the newest.
      while( *link != this ) link = &( *link )->next_;
      *link = next_;
   }

   // Calls `handler` for each walk through `map`.
   template<class Handler>
   static void forEachThrough( void const * map, Handler const & handler ) {
      for( MapWalk * walk = newest_; walk; walk = walk->next_ ) {
         if( walk->map_ == map ) handler( *walk );
      }
   }

 private:
   static MapWalk * newest_;

   void const * const map_;
   MapWalk * next_;
};

template<class V, class K>
class HashMap {
   // Entries know each other by the numbers of their places; before the first comes the last, so that the many small
   // maps need not keep it. The value comes last: so the usual key, an interned id of four bytes, and the links fill
   // whole words.
   struct Node {
      K const key;
      uint32_t prev = none;
      uint32_t next = none;
      uint32_t sameBucket = none;
      V value;
   };
   using Nodes = StablePlaces<Node>;
   static constexpr uint32_t none = StablePlaces<int>::none;

 public:
   template<class View>
   struct Entry {
      K key;
      View value;
   };
   struct End {};

   // The position of one walk.
   class Cursor : private MapWalk {
    public:
      explicit Cursor( HashMap const & map ) : MapWalk( &map ), nodes_( map.nodes_ ), node_( map.at( map.first_ ) ) {}

      explicit operator bool() const { return node_ != nullptr; }
      [[nodiscard]] K const & key() const { return node_->key; }
      [[nodiscard]] V const & value() const { return node_->value; }
      // Once the entry under the cursor is removed, the cursor already stands on the successor, which must not be
      // skipped; that may also be an entry that came later.
      Cursor & operator++() {
         if( !moved_ ) node_ = node_->next == none ? nullptr : &nodes_[node_->next];
         moved_ = false;
         return *this;
      }

    private:
      friend class HashMap;

      // A walk that lost the last entry from under it has not ended yet: it goes on with the one that comes now.
      static void arrive( HashMap const & map, Node * n ) {
         MapWalk::forEachThrough( &map, [n]( MapWalk & walk ) {
            auto & cursor = static_cast<Cursor &>( walk );
            if( !cursor.node_ && cursor.moved_ ) cursor.node_ = n;
         } );
      }
      static void leave( HashMap const & map, Node const & n ) {
         MapWalk::forEachThrough( &map, [&]( MapWalk & walk ) {
            auto & cursor = static_cast<Cursor &>( walk );
            if( cursor.node_ != &n ) return;
            cursor.node_ = map.at( n.next );
            cursor.moved_ = true;
         } );
      }

      Nodes const & nodes_;
      Node * node_;
      bool moved_ = false;
   };

   // A cursor for range-for loops: `for( auto [ key, value ] : dir->statusIterator() )`. View is the form in which
   // values are handed out, for example Ptr<T const> for a walk that only reads.
   template<class View = V>
   class Iterator : public Cursor {
    public:
      using Cursor::Cursor;

      struct Step {
         Iterator & walk;
         bool operator!=( End ) const { return static_cast<bool>( walk ); }
         Entry<View> operator*() const { return { walk.key(), View( walk.value() ) }; }
         Step & operator++() {
            ++walk;
            return *this;
         }
      };
      Step begin() { return Step{ *this }; }
      End end() { return {}; }
   };

   HashMap() = default;
   HashMap( HashMap const & ) = delete;
   HashMap & operator=( HashMap const & ) = delete;
   ~HashMap() {
      while( first_ != none ) {
         uint32_t const i = first_;
         first_ = nodes_[i].next;  // before the value ends, which may ask what is left
         nodes_.end( i );
      }
   }

   [[nodiscard]] std::size_t size() const { return size_; }
   [[nodiscard]] bool empty() const { return size_ == 0; }
   [[nodiscard]] V * find( K const & key ) const {
      uint32_t const i = number( key );
      return i == none ? nullptr : &nodes_[i].value;
   }
   [[nodiscard]] K firstKey() const { return nodes_[first_].key; }

   // Adds an entry that is not there yet.
   V & insert( K const & key, V value ) {
      uint32_t const last = first_ == none ? none : nodes_[first_].prev;
      uint32_t const i = nodes_.make( key, last, none, none, std::move( value ) );
      ( last == none ? first_ : nodes_[last].next ) = i;
      nodes_[first_].prev = i;
      // Counted and in the list already: an index that grows is built from the whole list.
      ++size_;
      index( i );
      Cursor::arrive( *this, &nodes_[i] );
      return nodes_[i].value;
   }

   // Removes an entry and returns its value; the entry must be there.
   V take( K const & key ) {
      uint32_t const i = number( key );
      Node & n = nodes_[i];
      // Before it is unlinked: cursors step on to its successor.
      Cursor::leave( *this, n );
      unindex( i );
      unlink( i );
      --size_;
      V value = std::move( n.value );
      nodes_.end( i );
      if( size_ == 0 ) nodes_.release();
      return value;
   }

 private:
   static constexpr uint32_t linearMax = 4;
   static constexpr uint32_t firstBucketBits = 4;

   [[nodiscard]] std::size_t bucketCount() const { return std::size_t{ 1 } << bucketBits_; }
   [[nodiscard]] std::size_t bucket( K const & key ) const {
      // Fibonacci hashing: strings come well mixed, but interned ids are small consecutive numbers. The product mixes
      // upwards, so the bucket is taken from its upper end.
      return static_cast<std::size_t>( ( uint64_t{ std::hash<K>{}( key ) } * 0x9e3779b97f4a7c15u ) >>
                                       ( 64 - bucketBits_ ) );
   }

   [[nodiscard]] Node * at( uint32_t number ) const { return number == none ? nullptr : &nodes_[number]; }

   [[nodiscard]] uint32_t number( K const & key ) const {
      uint32_t i = buckets_ ? buckets_[bucket( key )] : first_;
      while( i != none ) {
         Node const & n = nodes_[i];
         if( n.key == key ) break;
         i = buckets_ ? n.sameBucket : n.next;
      }
      return i;
   }

   void index( uint32_t i ) {
      // An index stays once it is there, also when few entries are left: a map that was large may grow again.
      if( size_ <= linearMax && !buckets_ ) return;
      if( !buckets_ || size_ > bucketCount() ) {
         uint32_t const bits = buckets_ ? bucketBits_ + 1u : firstBucketBits;
         buckets_ = std::make_unique<uint32_t[]>( std::size_t{ 1 } << bits );
         bucketBits_ = bits & 31u;
         std::fill_n( buckets_.get(), bucketCount(), none );
         // All anew, for the buckets differ by their count; this includes the entry that has just come.
         for( uint32_t n = first_; n != none; n = nodes_[n].next ) link( n );
      } else {
         link( i );
      }
   }

   void unlink( uint32_t i ) {
      Node const & n = nodes_[i];
      uint32_t const last = nodes_[first_].prev;
      ( i == first_ ? first_ : nodes_[n.prev].next ) = n.next;
      // Who follows takes over its predecessor; when the last one goes, the first does.
      uint32_t const follower = i == last ? first_ : n.next;
      if( follower != none ) nodes_[follower].prev = n.prev;
   }

   void link( uint32_t i ) {
      uint32_t & head = buckets_[bucket( nodes_[i].key )];
      nodes_[i].sameBucket = head;
      head = i;
   }

   void unindex( uint32_t gone ) {
      if( !buckets_ ) return;
      uint32_t * i = &buckets_[bucket( nodes_[gone].key )];
      while( *i != gone ) i = &nodes_[*i].sameBucket;
      *i = nodes_[gone].sameBucket;
   }

   Nodes nodes_;
   std::unique_ptr<uint32_t[]> buckets_;
   uint32_t first_ = none;
   uint32_t size_ : 27 = 0;       // more than there are places
   uint32_t bucketBits_ : 5 = 0;  // log2 of how many there are, once there are any
};

}  // namespace Kel

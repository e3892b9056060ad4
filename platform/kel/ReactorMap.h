// A reactor per entry of a keyed collection of records, for as long as the entry is there.
//
// A member of a machine that watches every record of a directory. The machine's reactor on the directory keeps it in
// step, one key at a time and, at its attachment, as a whole:
//
//    void onStatus( Kel::String8 unit ) override { owner_.status_.sync( unit, notifier()->status( unit ) ); }
//    void onStatuskelImmediate() override { owner_.status_.syncAll( notifier()->statusIteratorConst() ); }
//
// R is made from the owner alone, takes its place in the map and only then watches its record, because what it is
// handed at its attachment may already take it away again. After that its handleInitialized() runs, if it has one. When
// its entry goes, the reactor is out of service first; then its handleDel() runs, if it has one. A record that takes
// the place of another gets a reactor of its own, and the former's handleDel() does not run. A handler that is running
// meanwhile may finish: it still has its notifier().
#pragma once

#include <unordered_map>
#include <utility>

#include "kel/Dispatch.h"
#include "kel/Entity.h"

namespace Kel {

template<class R, class K, class Owner>
class ReactorMap {
 public:
   // `owner` outlives the map.
   explicit ReactorMap( Owner & owner ) : owner_( owner ) {}

   // Null when the entry has none.
   [[nodiscard]] R * find( K const & key ) const {
      auto const i = reactors_.find( key );
      return i == reactors_.end() ? nullptr : i->second.get();
   }

   // The entry's reactor watches `record`, which is not null.
   template<class Record>
   void is( K const & key, Ptr<Record> const & record ) {
      Dispatch const dispatch;
      // A map of nodes: this stays where it is while handlers add and remove other entries.
      Ptr<R> & place = reactors_[key];
      // A walk through the directory finds most entries as they were.
      if( place && place->notifier() == record ) return;
      Ptr<R> const made( new R( owner_ ) );
      retire( std::exchange( place, made ) );
      made->notifierIs( record );
      if constexpr( requires { made->handleInitialized(); } ) {
         // What it was handed by its attachment may have removed the entry again.
         if( made->inService() ) made->handleInitialized();
      }
   }

   void del( K const & key ) {
      Dispatch const dispatch;
      // Out of the map first, so that what handleDel() causes finds no reactor here and ends nothing a second time.
      auto const gone = reactors_.extract( key );
      if( !gone ) return;
      retire( gone.mapped() );
      if constexpr( requires { gone.mapped()->handleDel(); } ) gone.mapped()->handleDel();
   }

   // What the directory says of one entry: its record, null when there is none.
   template<class Record>
   void sync( K const & key, Ptr<Record> const & record ) {
      if( record ) {
         is( key, record );
      } else {
         del( key );
      }
   }

   // What the directory says of all entries: a walk through it.
   template<class Walk>
   void syncAll( Walk && records ) {
      // Noted before anything is called: handlers change the map.
      auto former = reactors_;
      for( auto [key, record] : records ) {
         former.erase( key );
         is( key, record );
      }
      for( auto const & [key, reactor] : former ) {
         // An entry that came back while others were let go has a reactor of its own by now.
         if( find( key ) == reactor.get() ) del( key );
      }
   }

   // Nothing is heard any more, and nobody is told.
   void clear() {
      // All are silent before the first is freed, which may free its record and run handlers.
      auto const all = std::exchange( reactors_, {} );
      for( auto const & [key, reactor] : all ) retire( reactor );
   }

 private:
   // Silent, but not detached: a handler of it that runs just now still needs its notifier(). It detaches as it is
   // freed.
   static void retire( Ptr<R> const & reactor ) {
      if( reactor ) reactor->kelDoZombieReactors( true );
   }

   Owner & owner_;
   std::unordered_map<K, Ptr<R>> reactors_;
};

}  // namespace Kel

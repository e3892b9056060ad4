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

#include <utility>
#include <vector>

#include "kel/Dispatch.h"
#include "kel/Entity.h"
#include "kel/HashMap.h"

namespace Kel {

template<class R, class K, class Owner>
class ReactorMap {
 public:
   // `owner` outlives the map.
   explicit ReactorMap( Owner & owner ) : owner_( owner ) {}

   // Null when the entry has none.
   [[nodiscard]] R * find( K const & key ) const {
      Ptr<R> const * const reactor = reactors_.find( key );
      return reactor ? reactor->get() : nullptr;
   }

   // The entry's reactor watches `record`, which is not null.
   template<class Record>
   void is( K const & key, Ptr<Record> const & record ) {
      Dispatch const dispatch;
      Ptr<R> * const present = reactors_.find( key );
      // A walk through the directory finds most entries as they were.
      if( present && ( *present )->notifier() == record ) return;
      Ptr<R> const made( new R( owner_ ) );
      if( present ) {
         retire( std::exchange( *present, made ) );
      } else {
         reactors_.insert( key, made );
      }
      made->notifierIs( record );
      if constexpr( requires { made->handleInitialized(); } ) {
         // What it was handed by its attachment may have removed the entry again.
         if( made->inService() ) made->handleInitialized();
      }
   }

   void del( K const & key ) {
      Dispatch const dispatch;
      // Out of the map first, so that what handleDel() causes finds no reactor here and ends nothing a second time.
      if( !reactors_.find( key ) ) return;
      Ptr<R> const gone = reactors_.take( key );
      retire( gone );
      if constexpr( requires { gone->handleDel(); } ) gone->handleDel();
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
   template<class Records>
   void syncAll( Records && records ) {
      // Noted before anything is called: handlers change the map.
      Reactors former;
      for( auto [key, reactor] : Walk( reactors_ ) ) former.insert( key, reactor );
      for( auto [key, record] : records ) {
         if( former.find( key ) ) former.take( key );
         is( key, record );
      }
      for( auto [key, reactor] : Walk( former ) ) {
         // An entry that came back while others were let go has a reactor of its own by now.
         if( find( key ) == reactor.get() ) del( key );
      }
   }

   // Nothing is heard any more, and nobody is told.
   void clear() {
      // All are silent before the first is freed, which may free its record and run handlers.
      std::vector<Ptr<R>> all;
      while( !reactors_.empty() ) all.push_back( reactors_.take( reactors_.firstKey() ) );
      for( Ptr<R> const & reactor : all ) retire( reactor );
   }

 private:
   // Silent, but not detached: a handler of it that runs just now still needs its notifier(). It detaches as it is
   // freed.
   static void retire( Ptr<R> const & reactor ) { reactor->kelDoZombieReactors( true ); }

   using Reactors = HashMap<Ptr<R>, K>;
   using Walk = typename Reactors::template Iterator<>;

   Owner & owner_;
   Reactors reactors_;
};

}  // namespace Kel

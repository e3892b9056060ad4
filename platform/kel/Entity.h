// An entity: a named object with reflected attributes that tells its reactors what changes.
//
// Records, directories and machines are entities. An entity is owned by the references to it (usually one, held by the
// collection that it is in) and keeps a list of the reactors that watch it. The rule of delivery stands in
// kel/Notifiee.h. Watchers see every change of every attribute by name, before the reactors do: they are how the store,
// the API and the simulator follow records without knowing their types. One that keeps books, and has noted that an
// entity changes with every sample, stops its ears to that until it looks again: then such a write asks one word of the
// entity, which it has at hand, and goes on.
#pragma once

#include <string>

#include "kel/Dispatch.h"
#include "kel/Notifiee.h"
#include "kel/TypeInfo.h"

namespace Kel {

// Hears of every change of one entity, whatever the attribute, from watcherIs() to watcherDel(). Holds no reference: at
// the entity's end it is forgotten, and watcherDel() is then not to be called.
class Watcher : public NotifieeBase {
 public:
   // `key` is the text of the changed entry's key, null when the attribute is not keyed.
   virtual void onAttribute( Entity const & e, AttributeInfo const & attribute, std::string const * key ) = 0;

   // Whether it hears of attributes that change with every sample (AttributeInfo::passing()).
   [[nodiscard]] bool hearsPassing() const { return hearsPassing_; }

 private:
   friend class Entity;

   bool hearsPassing_ = true;
};

class Entity : public PtrInterface {
 public:
   ~Entity() override {
      if( watched_ != 0 ) [[unlikely]]
         kelWatchersForget();
   }

   [[nodiscard]] virtual std::string name() const = 0;
   [[nodiscard]] virtual TypeInfo const & kelTypeInfo() const = 0;

   // What collections of entities of any type use; a type declared with the attribute macros hides these by its own.
   using KelKey = Name;
   [[nodiscard]] Name kelKey() const { return Name( name() ); }
   static char const * kelTypeName() { return "Kel::Entity"; }
   static TypeInfo const & kelType();

   // Detaches reactors, stops timers and clears what points back, before the last reference is dropped.
   virtual void prepareToDie() {}

   void watcherIs( Watcher & w ) const;
   void watcherDel( Watcher & w ) const;
   // For one that watches this, which hears of everything at first.
   void watcherHearsPassingIs( Watcher & w, bool hears ) const;

   [[nodiscard]] bool hasReactors() const { return !notifiees_.empty(); }
   // Lets go of every reactor without telling them: for records whose readers ended with a simulated process. The
   // reactors must never be destroyed afterwards: that would unlink them here. Watchers stay. Not during a delivery.
   void reactorsForget() const { notifiees_.forgetAll(); }

   // For reactors and the attribute macros only.
   void kelAttach( NotifieeBase & n ) const { notifiees_.append( n ); }
   void kelDetach( NotifieeBase & n ) const { notifiees_.remove( n ); }
   [[nodiscard]] NotifieeList & kelNotifiees() const { return notifiees_; }

 protected:
   // Calls `handler` for every reactor that is to hear of a change; LINK is the reactor base that declares the handler.
   template<class Link, class Handler>
   void kelDeliver( Handler const & handler ) const {
      if( notifiees_.empty() ) return;
      // Most entities that are watched have one reactor. Nothing of the list is read after its call, so it needs no
      // position for the list to correct.
      if( NotifieeBase * const only = notifiees_.only() ) {
         if( only->deliverable() ) handler( static_cast<Link &>( *only ) );
         return;
      }
      NotifieeList::Delivery delivery( notifiees_ );
      while( NotifieeBase * const n = delivery.next() ) {
         if( n->deliverable() ) handler( static_cast<Link &>( *n ) );
      }
   }

   // Tells of a change already made: watchers first, then the reactors. What these drop, this entity included, lives
   // until all have heard.
   template<class Link, bool passing, class Handler>
   void kelChanged( Handler const & handler ) const {
      Dispatch const dispatch;
      if( watchersHear( passing ) ) [[unlikely]]
         kelTellWatchers( kelAttribute<Link>(), nullptr );
      kelDeliver<Link>( handler );
   }
   // Of an attribute that no reactor hears of. Opens no dispatch: only watchers run, and kelTellWatchers() has its own.
   template<class Link, bool passing>
   void kelChangedQuietly() const {
      if( watchersHear( passing ) ) [[unlikely]]
         kelTellWatchers( kelAttribute<Link>(), nullptr );
   }
   template<class Link, class K, class Handler>
   void kelKeyChanged( K const & key, Handler const & handler ) const {
      Dispatch const dispatch;
      if( watchersHear( false ) ) [[unlikely]] {
         std::string const text = KeyTraits<K>::toText( key );
         kelTellWatchers( kelAttribute<Link>(), &text );
      }
      kelDeliver<Link>( handler );
   }

 private:
   friend struct AllWatchers;

   struct Watchers {
      NotifieeList list;
      uint32_t hearPassing = 0;  // how many of them
   };
   // In `watched_`, above the number of its watchers.
   static constexpr uint32_t passingHeard = 1u << 31;

   [[nodiscard]] bool watchersHear( bool passing ) const {
      return ( watched_ & ( passing ? passingHeard : ~0u ) ) != 0;
   }
   template<class Link>
   [[nodiscard]] AttributeInfo const & kelAttribute() const {
      // Ranks count from 1, in the order in which the chain described its attributes; 0 is the chain's end.
      return *kelTypeInfo().attributes()[Link::kelRank - 1];
   }
   void kelTellWatchers( AttributeInfo const & attribute, std::string const * key ) const;
   void kelWatchersForget() const;
   [[nodiscard]] Watchers & watchers() const;

   // 0: there never was a watcher. Otherwise the number of its watchers, which are kept apart as few entities have any,
   // and whether one of them hears of passing attributes. It takes room that the word before it leaves.
   mutable uint32_t watched_ = 0;
   mutable NotifieeList notifiees_;
};

// The end of an entity type's attribute chain and the root of its reactor class.
class AttributeChainEnd : public NotifieeBase {
 public:
   using NotifieeBase::NotifieeBase;
   static constexpr int kelRank = 0;
   static void kelDescribe( TypeInfo & ) {}
   template<class Self>
   static void kelAttached( Self const &, NotifieeList::HandOver const & ) {}
};

// The typed reactor: Link is the last link of the watched type's chain, Self the type, const for read-only observation.
// Holds a reference to what it watches; detaches itself when it goes.
template<class Link, class Self>
class Reactor : public Link {
 public:
   using Link::Link;
   ~Reactor() override { detach(); }

   [[nodiscard]] Ptr<Self> const & notifier() const { return notifier_; }

   // Attaches to what is to be watched; null detaches. Collections that already have entries are handed over as a
   // whole, unless the reactor is silent. Call it from the body of the most derived constructor, so that handlers are
   // its own.
   void notifierIs( Ptr<Self> entity ) {
      if( notifier_ == entity ) return;  // it has its place in the order, and was handed everything
      Dispatch const dispatch;
      detach();
      notifier_ = entity;
      if( !entity ) return;
      entity->kelAttach( *this );
      // Nothing of this reactor is touched afterwards: what is handed over may have destroyed it.
      Link::kelAttached( *entity, NotifieeList::HandOver( entity->kelNotifiees(), *this ) );
   }

 private:
   void detach() {
      // In this order: the reference may be the last one, and the list goes with its entity.
      if( notifier_ ) notifier_->kelDetach( *this );
      notifier_ = nullptr;
   }

   Ptr<Self> notifier_;
};

}  // namespace Kel

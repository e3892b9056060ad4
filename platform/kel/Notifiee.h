// Reactors and the list in which an entity keeps them.
//
// The rule of delivery, with one test per clause in tests/platform/notification_test.cpp:
// - A change is delivered synchronously, after it is made, to the reactors in their order of registration.
// - A change made inside a handler is delivered at once, nested in the outer delivery, which then goes on.
// - A reactor registered during a delivery is not called for that change.
// - A reactor that is detached, switched off, made a zombie or destroyed during a delivery is never called afterwards,
//   also later in the same delivery.
// - A handler may drop the last reference to anything, the entity, the reactor and its owner included: it is freed when
//   the outermost dispatch ends (kel/Dispatch.h), and the delivery goes on to those after it.
// - Attachment hands over the entity's collections that have entries, one after the other, by the same rule: to a
//   reactor that an earlier one detached, moved, silenced or destroyed no further one is handed.
// - A reactor whose owner is switched off or a zombie is as silent as if it were so itself.
#pragma once

#include "kel/Assert.h"
#include "kel/Ptr.h"

namespace Kel {

class NotifieeList;

// Base of every reactor, on changes and on time.
class ReactorBase : public PtrInterface {
 public:
   // A reactor that only its own switches silence.
   ReactorBase() : owner_( this ) {}
   // A reactor that is silent whenever `owner`, the machine it belongs to, is. The owner outlives it.
   explicit ReactorBase( PtrInterface const & owner ) : owner_( &owner ) {}

   [[nodiscard, gnu::always_inline]] bool deliverable() const { return kelDeliverable() && owner_->kelDeliverable(); }

 protected:
   [[nodiscard]] PtrInterface const & kelOwner() const { return *owner_; }

 private:
   PtrInterface const * owner_;
};

// A reactor of one machine, silent whenever that is, and called on its behalf: `owner()` in place of a member for it,
// as there are reactors for each interface. Base is what it reacts to; further arguments are the Base's and come first
// there.
template<class Owner, class Base>
class OwnedBy : public Base {
 public:
   template<class... Args>
   explicit OwnedBy( Owner & owner, Args const &... args ) : Base( args..., owner ) {}

 protected:
   // Taken from this as it was handed over, so neither the type nor the right to change it is a guess.
   [[nodiscard]] Owner & owner() const {
      return const_cast<Owner &>( static_cast<Owner const &>( ReactorBase::kelOwner() ) );
   }
};

// A reactor on the changes of an entity: a link in that entity's list, in one list at a time.
class NotifieeBase : public ReactorBase {
 public:
   using ReactorBase::ReactorBase;

 private:
   friend class NotifieeList;

   NotifieeBase * prev_ = nullptr;
   NotifieeBase * next_ = nullptr;
};

// Reactors in order of registration, intrusive: attaching and detaching allocate nothing. They stand in a ring, so that
// each of the many entities keeps one pointer.
class NotifieeList {
 public:
   [[nodiscard]] bool empty() const { return !last_; }
   // Null unless there is just one.
   [[nodiscard]] NotifieeBase * only() const { return first() == last_ ? last_ : nullptr; }

   void append( NotifieeBase & n ) {
      NotifieeBase & before = last_ ? *last_ : n;
      n.next_ = last_ ? first() : &n;
      n.prev_ = &before;
      n.next_->prev_ = &n;
      before.next_ = &n;
      last_ = &n;
   }

   void remove( NotifieeBase & n ) {
      // Before it is unlinked: deliveries step over it to its neighbours.
      for( Delivery * d = Delivery::innermost_; d; d = d->outer_ ) {
         if( &d->list_ == this ) d->forget( n );
      }
      n.prev_->next_ = n.next_;
      n.next_->prev_ = n.prev_;
      if( last_ == &n ) last_ = n.prev_ == &n ? nullptr : n.prev_;
   }

   // The reactors are not told and keep their links, so none of them may be detached or destroyed any more.
   void forgetAll() {
      for( Delivery const * d = Delivery::innermost_; d; d = d->outer_ ) KEL_ASSERT( &d->list_ != this );
      last_ = nullptr;
   }

   // One delivery under way. Stands on the mutator's stack, nested in those that are under way around it; a list
   // corrects the positions of its deliveries as reactors go.
   class Delivery {
    public:
      explicit Delivery( NotifieeList & list ) : Delivery( list, list.first(), list.last_ ) {}
      Delivery( Delivery const & ) = delete;
      Delivery & operator=( Delivery const & ) = delete;
      ~Delivery() { innermost_ = outer_; }

      // The next reactor that is to hear this change, null when all have.
      NotifieeBase * next() {
         NotifieeBase * const n = next_;
         // Stops at what was last when the change was made: who was registered since has seen the new state.
         if( n ) next_ = n == last_ ? nullptr : n->next_;
         return n;
      }

    protected:
      Delivery( NotifieeList & list, NotifieeBase * first, NotifieeBase * last )
         : list_( list ), next_( first ), last_( last ), outer_( innermost_ ) {
         innermost_ = this;
      }
      [[nodiscard]] NotifieeBase * upcoming() const { return next_; }

    private:
      friend class NotifieeList;

      void forget( NotifieeBase const & n ) {
         // In this order: the second line moves the end that the first one asks for.
         if( next_ == &n ) next_ = &n == last_ ? nullptr : n.next_;
         if( last_ == &n ) last_ = n.prev_;
      }

      // One for all threads, unlike the state of Dispatch: any thread may drop references, one runs handlers.
      static Delivery * innermost_;

      NotifieeList const & list_;
      NotifieeBase * next_;
      NotifieeBase * last_;
      Delivery * outer_;
   };

   // The hand-over of collections to a reactor that has just been attached: a delivery to it alone, so that the list
   // corrects it as any other when a handler takes the reactor away.
   class HandOver : private Delivery {
    public:
      HandOver( NotifieeList & list, NotifieeBase & n ) : Delivery( list, &n, &n ) {}
      // Null once nothing more is to be handed to it.
      [[nodiscard]] NotifieeBase * reactor() const {
         NotifieeBase * const n = upcoming();
         return n && n->deliverable() ? n : nullptr;
      }
   };

 private:
   [[nodiscard]] NotifieeBase * first() const { return last_ ? last_->next_ : nullptr; }

   NotifieeBase * last_ = nullptr;
};

}  // namespace Kel

// Intrusive reference counting, the base of every entity, machine and reactor.
//
// The count lives in the low 29 bits of one word; the upper three bits are the platform's, which uses two. An object
// is freed when its last Ptr goes, or at the end of the dispatch in which that happens (kel/Dispatch.h). Counts are
// changed with plain increments, or with atomic read-modify-write operations when the host has set
// enableThreadSafePointers before it made any object; the plug-in honours the choice and never makes it.
//
// A new object starts with a count of 0 and belongs to the first Ptr that takes it.
#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "kel/Exception.h"

namespace Kel {

class VFPtrInterface {
 public:
   // Selects how counts change. The host sets it once at start-up. Defined in one source and visible, so that there is
   // one in the process: an inline one would be a separate copy in every shared object that hides its symbols.
   [[gnu::visibility( "default" )]] static constinit bool enableThreadSafePointers;
};

class PtrInterface : public VFPtrInterface {
 public:
   PtrInterface() = default;
   PtrInterface( PtrInterface const & ) = delete;
   PtrInterface & operator=( PtrInterface const & ) = delete;
   virtual ~PtrInterface() = default;

   static constexpr uint32_t refCountMask = 0x1fffffff;

   // The number of references; the upper three bits of the word are not part of it.
   [[nodiscard]] uint32_t getRefCount() const { return word_.load( std::memory_order_relaxed ) & refCountMask; }

   // Whether reactors of this object, and the object itself when it is a reactor, are delivered to at all.
   [[nodiscard]] bool hasNotificationActive() const { return ( word() & inactiveFlag ) == 0; }
   void hasNotificationActiveIs( bool active ) { flagIs( inactiveFlag, !active ); }

   // A zombie's reactors hear nothing while the object is being taken apart.
   [[nodiscard]] bool kelZombieReactors() const { return ( word() & zombieFlag ) != 0; }
   void kelDoZombieReactors( bool zombie ) { flagIs( zombieFlag, zombie ); }
   // False once the object's end has begun. What has more to do after a write that runs handlers asks this first.
   [[nodiscard]] bool inService() const { return !kelZombieReactors(); }

   // True when neither a switch-off nor zombie state silences this object: one load, used on every delivery.
   [[nodiscard]] bool kelDeliverable() const { return ( word() & ( inactiveFlag | zombieFlag ) ) == 0; }

   [[gnu::always_inline]] void kelRefInc() const {
      if( enableThreadSafePointers ) [[unlikely]] {
         // Relaxed: a new reference comes from one that is there, so the object cannot go meanwhile.
         word_.fetch_add( 1, std::memory_order_relaxed );
      } else {
         // A load and a store, which become a plain increment: an atomic one costs several times as much, and where one
         // thread counts nobody else writes the word in between.
         word_.store( word() + 1, std::memory_order_relaxed );
      }
   }

   [[gnu::always_inline]] void kelRefDec() const {
      if( dropped() == 0 ) [[unlikely]]
         die();
   }

 private:
   // Out of the way of the many drops that are not the last.
   [[gnu::cold]] void die() const;

   // The top bit of the count. Set at the object's end, it keeps the count from reaching 0 again and ending it twice.
   static constexpr uint32_t dyingCount = 1u << 28;
   static constexpr uint32_t inactiveFlag = 1u << 29;
   static constexpr uint32_t zombieFlag = 1u << 30;

   [[nodiscard]] uint32_t word() const { return word_.load( std::memory_order_relaxed ); }

   // Atomic in either mode: flags change seldom, and where several threads count, no count may get lost.
   void flagIs( uint32_t flag, bool on ) const {
      if( on ) {
         word_.fetch_or( flag, std::memory_order_relaxed );
      } else {
         word_.fetch_and( ~flag, std::memory_order_relaxed );
      }
   }

   // Takes one reference off and returns what is left.
   uint32_t dropped() const {
      if( enableThreadSafePointers ) [[unlikely]] {
         // Whoever frees the object must see all that other threads wrote to it before they let go.
         return ( word_.fetch_sub( 1, std::memory_order_acq_rel ) - 1 ) & refCountMask;
      }
      uint32_t const left = word() - 1;
      word_.store( left, std::memory_order_relaxed );
      return left & refCountMask;
   }

   mutable std::atomic<uint32_t> word_{ 0 };
};

// One reference to a T. Ptr<T const> is the read-only view, used for everything that is only read.
template<class T>
class Ptr {
 public:
   Ptr() = default;
   Ptr( std::nullptr_t ) {}
   Ptr( T * object ) : object_( object ) { acquire(); }
   Ptr( Ptr const & other ) : Ptr( other.object_ ) {}
   Ptr( Ptr && other ) noexcept : object_( std::exchange( other.object_, nullptr ) ) {}
   template<class U>
   requires std::convertible_to<U *, T *> Ptr( Ptr<U> const & other ) : Ptr( other.get() ) {}
   ~Ptr() { release(); }

   // The old object is released last: its destructor may come back here.
   Ptr & operator=( Ptr other ) noexcept {
      std::swap( object_, other.object_ );
      return *this;
   }

   [[nodiscard]] T * get() const { return object_; }
   T * operator->() const { return object_; }
   T & operator*() const { return *object_; }
   explicit operator bool() const { return object_ != nullptr; }

   template<class U>
   bool operator==( Ptr<U> const & other ) const {
      return object_ == other.get();
   }
   bool operator==( std::nullptr_t ) const { return object_ == nullptr; }

 private:
   void acquire() const {
      if( object_ ) object_->kelRefInc();
   }
   void release() const {
      if( object_ ) object_->kelRefDec();
   }

   T * object_ = nullptr;
};

// Views the object as a U, null when it is none.
template<class U, class T>
[[nodiscard]] Ptr<U> dynamicPtrCast( Ptr<T> const & p ) {
   return Ptr<U>( dynamic_cast<U *>( p.get() ) );
}

// The object of a factory; a factory that yields none is a range error.
template<class T>
[[nodiscard]] Ptr<T> validPtr( T * object ) {
   if( !object ) throw RangeError( "null ValidPtr" );
   return Ptr<T>( object );
}

}  // namespace Kel

// One dispatch under way: a change that is being delivered, or a piece of the activity loop's work.
//
// A handler may do anything to anyone, down to dropping the machine on whose behalf it was called. So nothing that is
// counted by references is freed while a dispatch is under way: what loses its last reference meanwhile falls silent at
// once, as do its reactors, and is freed when the outermost dispatch ends. Whoever made a write, and every reactor,
// owner and record on the stack below, can therefore finish what it was doing; all that it still has to ask is whether
// it is in service (PtrInterface::inService).
//
// Stands on the stack of whoever calls handlers: the mutators of attributes, the attachment of a reactor, the activity
// loop around each piece of work (timers of a wheel are such work of the loop). Costs a counter up and down, which
// bench/notification_bench measures. What is not counted (a reactor that is a member, or on somebody's stack) lives as
// long as whatever holds it.
#pragma once

#include <cstdint>

namespace Kel {

class PtrInterface;

class Dispatch {
 public:
   Dispatch() { ++state_.underWay; }
   Dispatch( Dispatch const & ) = delete;
   Dispatch & operator=( Dispatch const & ) = delete;
   [[gnu::always_inline]] ~Dispatch() {
      if( --state_.underWay == 0 && state_.dropped > 0 ) [[unlikely]]
         freeDropped();
   }

   // The end of a simulated process: what has lost its last reference and would be freed later is never freed.
   static void forgetDropped();

 private:
   friend class PtrInterface;

   // Per thread, for hosts that count references in several: only the thread that runs handlers must put off freeing.
   // `dropped` repeats the length of the list, which is out of line, so that the end of a dispatch costs no call.
   struct State {
      uint32_t underWay = 0;
      uint32_t dropped = 0;
   };

   static void freeOrKeep( PtrInterface const * object );
   static void freeDropped();

   // Defined in what is loaded at start-up, never in a plug-in. So its place is fixed, and reaching it takes no call of
   // the loader, as it otherwise would from a shared object.
   [[gnu::tls_model( "initial-exec" )]] static constinit thread_local State state_;
};

}  // namespace Kel

#include "kel/Ptr.h"

#include <vector>

#include "kel/Dispatch.h"

namespace Kel {

constinit bool VFPtrInterface::enableThreadSafePointers = false;
constinit thread_local Dispatch::State Dispatch::state_;

namespace {

using Objects = std::vector<PtrInterface const *>;

// Never destroyed: static objects drop references until the very end of the process.
Objects & dropped() {
   thread_local auto & objects = *new Objects;
   return objects;
}

// What is never to be freed stays reachable from here, so that a leak checker does not count it as lost.
Objects & forgotten() {
   static auto & objects = *new Objects;
   return objects;
}

}  // namespace

void PtrInterface::die() const {
   // A destructor may take and drop references to its own object, as may whoever is still at work in it; the high count
   // keeps them from freeing it a second time. It is a zombie because a handler would find it half gone.
   word_.fetch_or( dyingCount | zombieFlag, std::memory_order_relaxed );
   Dispatch::freeOrKeep( this );
}

void Dispatch::freeOrKeep( PtrInterface const * object ) {
   if( state_.underWay == 0 ) {
      delete object;
      return;
   }
   dropped().push_back( object );
   ++state_.dropped;
}

// No dispatch is under way any more, so what a destructor drops is freed at once. Where a destructor makes a write,
// what the handlers drop is freed as that write's own dispatch ends, by a nested call of this.
void Dispatch::freeDropped() {
   // Taken over first: nested calls add to the list and empty it, and would do so under this loop.
   Objects const objects = std::exchange( dropped(), {} );
   state_.dropped = 0;
   for( PtrInterface const * const object : objects ) delete object;
}

void Dispatch::forgetDropped() {
   // Kept, not freed: their destructors belong to a process that, in the simulation, is dead.
   forgotten().insert( forgotten().end(), dropped().begin(), dropped().end() );
   dropped().clear();
   state_.dropped = 0;
}

}  // namespace Kel

#include "kel/Ptr.h"

#include <vector>

#include "kel/Dispatch.h"

namespace Kel {

constinit bool VFPtrInterface::enableThreadSafePointers = false;
constinit thread_local Dispatch::State Dispatch::state_;

namespace {

using Objects = std::vector<PtrInterface const *>;

// Never destroyed: objects are dropped to the very end of a process.
Objects & dropped() {
   thread_local auto & objects = *new Objects;
   return objects;
}

Objects & forgotten() {
   static auto & objects = *new Objects;
   return objects;
}

}  // namespace

void PtrInterface::die() const {
   // A destructor may take and drop references to its own object, as may whoever is still at work in it: none of them
   // frees it a second time. Whatever it hears from now on would find it half gone.
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

// What a destructor drops in turn is freed within it, unless a handler that it runs drops it: that one's dispatch ends
// here again.
void Dispatch::freeDropped() {
   Objects const objects = std::exchange( dropped(), {} );
   state_.dropped = 0;
   for( PtrInterface const * const object : objects ) delete object;
}

void Dispatch::forgetDropped() {
   forgotten().insert( forgotten().end(), dropped().begin(), dropped().end() );
   dropped().clear();
   state_.dropped = 0;
}

}  // namespace Kel

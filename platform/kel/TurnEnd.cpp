#include "kel/TurnEnd.h"

#include <algorithm>

#include "kel/ActivityLoop.h"

namespace Kel {

TurnEnd::TurnEnd( int rank ) : loop_( activityLoop() ), rank_( rank ) {
   auto const place =
      std::ranges::lower_bound( loop_.turnEnds_, rank, {}, []( TurnEnd const * t ) { return t->rank_; } );
   KEL_ASSERT( place == loop_.turnEnds_.end() || ( *place )->rank_ != rank );
   loop_.turnEnds_.insert( place, this );
}

TurnEnd::~TurnEnd() { std::erase( loop_.turnEnds_, this ); }

}  // namespace Kel

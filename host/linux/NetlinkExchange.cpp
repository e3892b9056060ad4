#include "linux/NetlinkExchange.h"

namespace Host::Linux {

NetlinkExchange::NetlinkExchange( std::chrono::milliseconds longestWait, Parts parts )
   : longestWait_( longestWait ), parts_( parts ), socket_( std::in_place, longestWait, parts ) {}

std::span<std::byte const> NetlinkExchange::receive( char const * doing ) {
   Received const received = socket_->receive( doing );
   switch( received.outcome ) {
      case Received::Outcome::messages: return received.messages;
      case Received::Outcome::nothing: throw NetlinkError( ETIMEDOUT, doing );
      // Nothing but the answer comes here, so that is what has a gap.
      case Received::Outcome::lost: throw NetlinkError( ENOBUFS, doing );
   }
   return {};
}

}  // namespace Host::Linux

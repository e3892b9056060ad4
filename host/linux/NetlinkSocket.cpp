#include "linux/NetlinkSocket.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace Host::Linux {
namespace {

// The kernel puts up to 32 KiB of a dump into one datagram when the reader offers as much. Most links need a KiB or
// two; one with many names or virtual functions can need more than this.
constexpr std::size_t bufferBytes = 32768;

mnl_socket * open( std::chrono::milliseconds longestWait ) {
   // A longest wait of 0 cannot be left to SO_RCVTIMEO, where it means for ever (socket(7)).
   mnl_socket * socket = mnl_socket_open2( NETLINK_ROUTE, SOCK_CLOEXEC | ( longestWait.count() ? 0 : SOCK_NONBLOCK ) );
   if( !socket ) throw NetlinkError( errno, "opening a netlink socket" );
   return socket;
}

}  // namespace

NetlinkSocket::NetlinkSocket( std::chrono::milliseconds longestWait, Parts parts )
   : socket_( open( longestWait ) ), parts_( parts ), buffer_( bufferBytes ) {
   auto const seconds = std::chrono::duration_cast<std::chrono::seconds>( longestWait );
   timeval const wait{ seconds.count(), std::chrono::microseconds( longestWait - seconds ).count() };
   // The kernel chooses the address (AUTOPID): a process can have its own id as the address of one socket only, and has
   // several (netlink(7)).
   if( setsockopt( fd(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait ) < 0 ||
       mnl_socket_bind( socket_.get(), 0, MNL_SOCKET_AUTOPID ) < 0 ) {
      throw NetlinkError( errno, "preparing a netlink socket" );
   }
}

void NetlinkSocket::subscribe( int group ) {
   if( mnl_socket_setsockopt( socket_.get(), NETLINK_ADD_MEMBERSHIP, &group, sizeof group ) < 0 ) {
      throw NetlinkError( errno, "joining rtnetlink group " + std::to_string( group ) );
   }
}

void NetlinkSocket::send( nlmsghdr const & request, char const * doing ) {
   if( mnl_socket_sendto( socket_.get(), &request, request.nlmsg_len ) < 0 ) throw NetlinkError( errno, doing );
}

Received NetlinkSocket::receive( char const * doing ) {
   for( ;; ) {
      // How long the next datagram is. A buffer that is too short would cost the rest of it.
      auto const wanted = parts_ == Parts::fit ? 0 : recv( fd(), nullptr, 0, MSG_PEEK | MSG_TRUNC );
      if( wanted > static_cast<ssize_t>( buffer_.size() ) ) buffer_.resize( static_cast<std::size_t>( wanted ) );
      auto const bytes = wanted < 0 ? wanted : mnl_socket_recvfrom( socket_.get(), buffer_.data(), buffer_.size() );
      if( bytes >= 0 ) {
         return { Received::Outcome::messages, std::span( buffer_ ).first( static_cast<std::size_t>( bytes ) ) };
      }
      // EAGAIN is the answer of a socket that does not wait, and that of one that has waited long enough (socket(7)).
      if( errno == EAGAIN ) return { Received::Outcome::nothing, {} };
      if( errno == ENOBUFS ) return { Received::Outcome::lost, {} };
      if( errno != EINTR ) throw NetlinkError( errno, doing );
   }
}

int errorOf( nlmsghdr const & message ) {
   // The errno comes negated (netlink(7)). A message too short for one reports no failure.
   int negated = 0;
   if( mnl_nlmsg_get_payload_len( &message ) >= sizeof negated ) {
      std::memcpy( &negated, mnl_nlmsg_get_payload( &message ), sizeof negated );
   }
   return -std::max( negated, -INT_MAX );  // of no errno, but a number that has a negative
}

}  // namespace Host::Linux

#include "linux/NetlinkSocket.h"

#include <linux/rtnetlink.h>
#include <poll.h>

#include <cerrno>
#include <system_error>

namespace Host::Linux {

namespace {

constexpr std::size_t bufferBytes = 256 * 1024;  // the kernel fills as much of a dump into one read as fits
constexpr int answerTimeoutMs = 5000;

}  // namespace

NetlinkError::NetlinkError( std::string const & doing, int error )
   : std::runtime_error( doing + ": " + std::generic_category().message( error ) ), error_( error ) {}

bool NetlinkError::messagesLost() const { return error_ == ENOBUFS; }

NetlinkSocket::NetlinkSocket( unsigned groups )
   : socket_( mnl_socket_open2( NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK ) ), buffer_( bufferBytes ) {
   if( !socket_ ) throw NetlinkError( "opening a netlink socket", errno );
   if( mnl_socket_bind( socket_.get(), groups, MNL_SOCKET_AUTOPID ) < 0 ) {
      throw NetlinkError( "binding a netlink socket", errno );
   }
}

uint32_t NetlinkSocket::requestDump( nlmsghdr * message ) {
   message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
   message->nlmsg_seq = ++sequence_;
   if( mnl_socket_sendto( socket_.get(), message, message->nlmsg_len ) < 0 ) {
      throw NetlinkError( "sending a netlink request", errno );
   }
   return sequence_;
}

NetlinkSocket::Messages NetlinkSocket::receive( bool wait ) {
   while( true ) {
      ssize_t const size = mnl_socket_recvfrom( socket_.get(), buffer_.data(), buffer_.size() );
      if( size >= 0 ) return { buffer_.data(), static_cast<std::size_t>( size ) };
      if( errno == EINTR ) continue;
      if( errno != EAGAIN ) throw NetlinkError( "receiving from the kernel", errno );
      if( !wait ) return {};
      pollfd readable{ .fd = fd(), .events = POLLIN, .revents = 0 };
      if( ::poll( &readable, 1, answerTimeoutMs ) == 0 ) throw NetlinkError( "waiting for the kernel", ETIMEDOUT );
   }
}

}  // namespace Host::Linux

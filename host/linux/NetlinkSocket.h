// One rtnetlink socket: sends requests, receives batches of messages, joins multicast groups.
//
// Owned by LinkMonitor and by each NetlinkExchange: the notices that the one subscribes to would get in the way of the
// answers that the others wait for. It belongs to the network namespace that its process was in when it was made. Knows
// nothing of links or counters: what a message means is its owner's business. Never waits longer than it was told to
// when it was made.
#pragma once

#include <libmnl/libmnl.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <system_error>
#include <vector>

namespace Host::Linux {

// The kernel refused or failed. what() reads "<what was being done>: <the error's text>", code() is the errno.
class NetlinkError : public std::system_error {
 public:
   NetlinkError( int errorNumber, std::string const & doing )
      : std::system_error( errorNumber, std::generic_category(), doing ) {}
};

// Room for a small request. With NLM_F_ACK the kernel says when it is done, and whether it could.
class Request {
 public:
   explicit Request( std::uint16_t type, std::uint16_t flags = NLM_F_ACK )
      : header_( *mnl_nlmsg_put_header( bytes_.data() ) ) {
      header_.nlmsg_type = type;
      header_.nlmsg_flags = static_cast<std::uint16_t>( NLM_F_REQUEST | flags );
   }
   Request( Request const & ) = delete;
   Request & operator=( Request const & ) = delete;

   // Appends the fixed part that belongs to the type, zeroed. Once, before any attribute.
   template<typename Body>
   Body & putBody() {
      return *static_cast<Body *>( mnl_nlmsg_put_extra_header( &header_, sizeof( Body ) ) );
   }

   [[nodiscard]] nlmsghdr & header() { return header_; }

 private:
   alignas( nlmsghdr ) std::array<std::byte, 128> bytes_{};
   nlmsghdr & header_;
};

// One that makes the kernel list everything of one type.
class DumpRequest : public Request {
 public:
   explicit DumpRequest( std::uint16_t type ) : Request( type, NLM_F_DUMP ) {}
};

// What one call of receive() brought.
struct Received {
   enum class Outcome {
      messages,  // at least one
      nothing,   // none is pending, or none came within the longest wait
      lost       // the kernel had to throw messages away; those still queued follow
   };
   Outcome outcome;
   std::span<std::byte const> messages;  // the socket's buffer, valid until its next receive()
};

// How long a datagram can be that comes.
enum class Parts {
   ofAnyLength,
   fit  // as long as the socket's buffer at most; saves asking for the length of each
};

class NetlinkSocket {
 public:
   // longestWait: for one receive(); 0 makes a socket that never waits. Throws NetlinkError.
   explicit NetlinkSocket( std::chrono::milliseconds longestWait, Parts parts = Parts::ofAnyLength );

   [[nodiscard]] int fd() const { return mnl_socket_get_fd( socket_.get() ); }

   // From now on notices of this rtnetlink group (RTNLGRP_...) arrive. Throws NetlinkError.
   void subscribe( int group );

   // `doing` is what an error says. Both throw NetlinkError.
   void send( nlmsghdr const & request, char const * doing );
   // The buffer grows to the message, and stays so. One that does not fit where it was said to is an error.
   [[nodiscard]] Received receive( char const * doing );

 private:
   struct Close {
      void operator()( mnl_socket * socket ) const { mnl_socket_close( socket ); }
   };

   std::unique_ptr<mnl_socket, Close> const socket_;
   Parts const parts_;
   std::vector<std::byte> buffer_;
};

// Ends before the first that is not there as a whole, with the padding that the kernel never leaves out.
template<typename Visit>
void forEachMessage( std::span<std::byte const> messages, Visit && visit ) {
   std::size_t left = messages.size();
   // Allocated memory, in which the kernel begins each message at a multiple of 4 bytes (NLMSG_ALIGN).
   auto const * message = reinterpret_cast<nlmsghdr const *>( messages.data() );
   while( NLMSG_OK( message, left ) && NLMSG_ALIGN( message->nlmsg_len ) <= left ) {
      visit( *message );
      message = NLMSG_NEXT( message, left );
   }
}

// The errno that an NLMSG_DONE or NLMSG_ERROR message carries, 0 for success.
[[nodiscard]] int errorOf( nlmsghdr const & message );

}  // namespace Host::Linux

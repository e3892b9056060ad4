// A netlink route socket: sends requests, receives messages, closes itself.
#pragma once

#include <libmnl/libmnl.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Host::Linux {

// The kernel or the socket failed. what() says what was being done and why it failed.
class NetlinkError : public std::runtime_error {
 public:
   NetlinkError( std::string const & doing, int error );

   [[nodiscard]] int error() const { return error_; }  // errno
   // The socket's buffer ran over: messages were lost, and what is known may be wrong.
   [[nodiscard]] bool messagesLost() const;

 private:
   int error_;
};

class NetlinkSocket {
 public:
   // `groups` are the rtnetlink multicast groups to hear, as a bit mask of RTMGRP_*.
   explicit NetlinkSocket( unsigned groups );

   [[nodiscard]] int fd() const { return mnl_socket_get_fd( socket_.get() ); }

   // Sends a request that the kernel answers with many messages. Returns its sequence number.
   uint32_t requestDump( nlmsghdr * message );

   // What one read brought. Valid until the next.
   class Messages {
    public:
      Messages() = default;
      Messages( void const * data, std::size_t size ) : data_( data ), size_( size ) {}

      [[nodiscard]] bool empty() const { return size_ == 0; }
      template<class Handle>
      void forEach( Handle const & handle ) const {
         auto const * message = static_cast<nlmsghdr const *>( data_ );
         int left = static_cast<int>( size_ );
         for( ; mnl_nlmsg_ok( message, left ); message = mnl_nlmsg_next( message, &left ) ) handle( *message );
      }

    private:
      void const * data_ = nullptr;
      std::size_t size_ = 0;
   };
   // The next messages; none where nothing is there and waiting is not wanted. Throws NetlinkError.
   [[nodiscard]] Messages receive( bool wait );

 private:
   struct Close {
      void operator()( mnl_socket * socket ) const { mnl_socket_close( socket ); }
   };

   std::unique_ptr<mnl_socket, Close> socket_;
   std::vector<char> buffer_;
   uint32_t sequence_ = 0;
};

}  // namespace Host::Linux

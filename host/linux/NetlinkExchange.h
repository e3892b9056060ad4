// Questions to the kernel, each with its answer: what is asked is answered, or has failed, before the call returns.
//
// Owned by whoever asks (StatsReader, LinkSetter, Routes), one each. The kernel answers rtnetlink within the system
// calls of the one who asks, so the longest wait is for a kernel that is in trouble. Keeps nothing of an answer.
#pragma once

#include <cerrno>
#include <chrono>
#include <optional>

#include "linux/NetlinkSocket.h"

namespace Host::Linux {

class NetlinkExchange {
 public:
   // longestWait: for one part of an answer, above 0. Throws NetlinkError.
   explicit NetlinkExchange( std::chrono::milliseconds longestWait = std::chrono::seconds( 1 ),
                             Parts parts = Parts::ofAnyLength );

   // Sends the request, and calls `visit` with each message of the answer, without allocating. False when things came
   // or went meanwhile, so that the answer may lack some. Throws NetlinkError, also after part of the answer; the next
   // one starts afresh. `doing` is what an error says.
   template<typename Visit>
   bool ask( Request & request, char const * doing, Visit && visit );

 private:
   // The part of the answer that is next. Throws where none comes.
   [[nodiscard]] std::span<std::byte const> receive( char const * doing );

   std::chrono::milliseconds const longestWait_;
   Parts const parts_;
   // None after a failure, whose late answer must not pass for that of the next.
   std::optional<NetlinkSocket> socket_;
};

template<typename Visit>
bool NetlinkExchange::ask( Request & request, char const * doing, Visit && visit ) {
   bool whole = true;
   try {
      if( !socket_ ) socket_.emplace( longestWait_, parts_ );
      socket_->send( request.header(), doing );
      bool ended = false;
      while( !ended ) {
         forEachMessage( receive( doing ), [&]( nlmsghdr const & message ) {
            if( message.nlmsg_flags & NLM_F_DUMP_INTR ) whole = false;
            if( message.nlmsg_type == NLMSG_DONE || message.nlmsg_type == NLMSG_ERROR ) {
               if( int const error = errorOf( message ) ) throw NetlinkError( error, doing );
               ended = true;
            } else {
               visit( message );
            }
         } );
      }
   } catch( ... ) {
      // Whatever failed, the rest of the answer may still come to this socket.
      socket_.reset();
      throw;
   }
   return whole;
}

}  // namespace Host::Linux

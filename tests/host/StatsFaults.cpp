#include "StatsFaults.h"

#include <dlfcn.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

namespace Faults {

StatsFaults & statsFaults() {
   static StatsFaults faults;
   return faults;
}

namespace {

// The socket on which statistics were asked for last, and how far its answer is.
struct Answer {
   mnl_socket const * socket = nullptr;
   bool interrupted = false;
   int parts = 0;
};
Answer answer;

ssize_t refuse( int error ) {
   errno = error;
   return -1;
}

void interrupt( void * buffer, ssize_t bytes ) {
   int left = static_cast<int>( bytes );
   for( auto * message = static_cast<nlmsghdr *>( buffer ); mnl_nlmsg_ok( message, left );
        message = mnl_nlmsg_next( message, &left ) ) {
      message->nlmsg_flags |= NLM_F_DUMP_INTR;
      if( message->nlmsg_type != RTM_NEWSTATS ) continue;
      auto const & stats = *static_cast<if_stats_msg const *>( mnl_nlmsg_get_payload( message ) );
      if( static_cast<int>( stats.ifindex ) == statsFaults().passedBy ) message->nlmsg_type = NLMSG_NOOP;
   }
}

void count( void * buffer, ssize_t bytes ) {
   int left = static_cast<int>( bytes );
   for( auto * message = static_cast<nlmsghdr *>( buffer ); mnl_nlmsg_ok( message, left );
        message = mnl_nlmsg_next( message, &left ) ) {
      if( message->nlmsg_type != RTM_NEWSTATS ) continue;
      auto const & body = *static_cast<if_stats_msg const *>( mnl_nlmsg_get_payload( message ) );
      auto const * const stats = static_cast<nlattr const *>( mnl_nlmsg_get_payload_offset( message, sizeof body ) );
      char * const octets =
         static_cast<char *>( mnl_attr_get_payload( stats ) ) + offsetof( rtnl_link_stats64, rx_bytes );
      std::uint64_t inAndOut[2];
      std::memcpy( inAndOut, octets, sizeof inAndOut );
      statsFaults().counts( static_cast<int>( body.ifindex ), inAndOut[0], inAndOut[1] );
      std::memcpy( octets, inAndOut, sizeof inAndOut );
   }
}

bool asksForLinks( void const * request ) {
   auto const & header = *static_cast<nlmsghdr const *>( request );
   return header.nlmsg_type == RTM_GETLINK && ( header.nlmsg_flags & NLM_F_DUMP ) == NLM_F_DUMP;
}

// The socket on which the kernel is to refuse the links: the first part of its answer says so.
mnl_socket const * refusedOn = nullptr;

ssize_t refusal( void * buffer ) {
   refusedOn = nullptr;
   nlmsghdr * const message = mnl_nlmsg_put_header( buffer );
   message->nlmsg_type = NLMSG_ERROR;
   static_cast<nlmsgerr *>( mnl_nlmsg_put_extra_header( message, sizeof( nlmsgerr ) ) )->error =
      statsFaults().linkRequestError;
   return message->nlmsg_len;
}

}  // namespace
}  // namespace Faults

// These are called in place of libmnl's, which come next in the order in which the program's symbols are looked up.

extern "C" ssize_t mnl_socket_sendto( mnl_socket const * socket, void const * request, size_t bytes ) {
   static auto const real = reinterpret_cast<decltype( &mnl_socket_sendto )>( dlsym( RTLD_NEXT, "mnl_socket_sendto" ) );
   if( static_cast<nlmsghdr const *>( request )->nlmsg_type == RTM_GETSTATS ) {
      auto & faults = Faults::statsFaults();
      if( faults.requestFails && faults.requestFails() ) return Faults::refuse( EIO );
      Faults::answer = { socket, faults.interruptedAnswers > 0, 0 };
      if( Faults::answer.interrupted ) --faults.interruptedAnswers;
   }
   int const linkError = Faults::statsFaults().linkRequestError;
   if( Faults::asksForLinks( request ) && linkError > 0 ) return Faults::refuse( linkError );
   if( Faults::asksForLinks( request ) && linkError < 0 ) Faults::refusedOn = socket;
   return real( socket, request, bytes );
}

extern "C" ssize_t mnl_socket_recvfrom( mnl_socket const * socket, void * buffer, size_t room ) {
   static auto const real =
      reinterpret_cast<decltype( &mnl_socket_recvfrom )>( dlsym( RTLD_NEXT, "mnl_socket_recvfrom" ) );
   if( socket == Faults::refusedOn ) return real( socket, buffer, room ) < 0 ? -1 : Faults::refusal( buffer );
   if( socket != Faults::answer.socket ) return real( socket, buffer, room );
   if( ++Faults::answer.parts == Faults::statsFaults().failingPart ) return Faults::refuse( EIO );
   ssize_t const bytes = real( socket, buffer, room );
   if( Faults::statsFaults().counts ) Faults::count( buffer, bytes );
   if( Faults::answer.interrupted ) Faults::interrupt( buffer, bytes );
   return bytes;
}

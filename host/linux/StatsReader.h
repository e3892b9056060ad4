// The octet counters of all links of this box, in one bulk read of the kernel's 64-bit link statistics (RTM_GETSTATS).
//
// Owned by the counter feed, which calls read() at most once in a turn of the loop and only while something is
// monitored. The answer is there before the call returns: the kernel gives it within the reader's own system calls, and
// the wait is bounded all the same. Keeps no history: a device that starts again from 0 is MonotonicCounter's business.
#pragma once

#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "linux/MonotonicCounter.h"
#include "linux/NetlinkExchange.h"

namespace Host::Linux {

// What an RTM_NEWSTATS message says.
struct LinkOctets {
   int index;
   Octets octets;
};

// None for a message that says nothing. Nothing beyond the message is read, nor of the counters but these two, which
// the kernel has had in this place for ever, however many there are behind them.
[[nodiscard]] inline std::optional<LinkOctets> parseStats( nlmsghdr const & message ) {
   constexpr std::size_t octetsAt = offsetof( rtnl_link_stats64, rx_bytes );
   LinkOctets link{};
   static_assert( offsetof( rtnl_link_stats64, tx_bytes ) == octetsAt + sizeof link.octets.in );
   // The kernel's macros, which come down to a few instructions where a call for each of these steps would be most of
   // what a link costs.
   auto const * const body = static_cast<if_stats_msg const *>( NLMSG_DATA( &message ) );
   if( message.nlmsg_len < NLMSG_LENGTH( sizeof *body ) ) return std::nullopt;
   auto left = static_cast<int>( NLMSG_PAYLOAD( &message, sizeof *body ) );
   for( auto const * attribute = reinterpret_cast<rtattr const *>( body + 1 ); RTA_OK( attribute, left );
        attribute = RTA_NEXT( attribute, left ) ) {
      if( ( attribute->rta_type & NLA_TYPE_MASK ) != IFLA_STATS_LINK_64 ) continue;
      if( attribute->rta_len < RTA_LENGTH( octetsAt + sizeof link.octets ) ) return std::nullopt;
      link.index = static_cast<int>( body->ifindex );  // unsigned here, an int in all other messages
      // Copied, because the attribute is aligned to 4 bytes only.
      std::memcpy( &link.octets, static_cast<std::byte const *>( RTA_DATA( attribute ) ) + octetsAt,
                   sizeof link.octets );
      return link;
   }
   return std::nullopt;
}

class StatsReader {
 public:
   // Calls `row` with every link's index and octets, in the kernel's order, without allocating. When links come or go
   // meanwhile the kernel is asked again, and a link can have a second, later row; on a box that never comes to rest it
   // may have none. Throws NetlinkError, also after some of the rows; the next call starts afresh.
   template<typename Row>
   void read( Row && row );

   // How often the kernel was asked.
   [[nodiscard]] std::uint64_t reads() const { return reads_; }

 private:
   // Links that come or go during an answer can make the kernel skip another one. It is asked again then, but not for
   // ever: on a box that never comes to rest a link without a row just has no fresh sample this time.
   static constexpr int attempts = 4;

   // The kernel makes the parts of this answer as long as the reader's buffer, or shorter.
   NetlinkExchange kernel_{ std::chrono::seconds( 1 ), Parts::fit };
   std::uint64_t reads_ = 0;
};

template<typename Row>
void StatsReader::read( Row && row ) {
   bool whole = false;
   for( int attempt = 0; attempt < attempts && !whole; ++attempt ) {
      DumpRequest request( RTM_GETSTATS );
      request.putBody<if_stats_msg>().filter_mask = IFLA_STATS_FILTER_BIT( IFLA_STATS_LINK_64 );
      ++reads_;
      whole = kernel_.ask( request, "reading the link counters", [&row]( nlmsghdr const & message ) {
         if( message.nlmsg_type != RTM_NEWSTATS ) return;
         if( auto const link = parseStats( message ) ) row( link->index, link->octets );
      } );
   }
}

}  // namespace Host::Linux

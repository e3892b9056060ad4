#include "linux/StatsReader.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstring>

#include "linux/NetlinkAttributes.h"

namespace Host::Linux {
namespace {

constexpr char readingCounters[] = "reading the link counters";

// Links that come or go during an answer can make the kernel skip another one. It is asked again then, but not for
// ever: on a box that never comes to rest a link without a row just has no fresh sample this time.
constexpr int attempts = 4;

}  // namespace

void parseStats( nlmsghdr const & message, StatsReader::Row const & row ) {
   auto const * const body = bodyOf<if_stats_msg>( message );
   if( !body ) return;
   NetlinkAttributes<IFLA_STATS_MAX> const attributes( message, sizeof *body );
   nlattr const * const attribute = attributes[IFLA_STATS_LINK_64];
   if( !attribute ) return;
   // Copied, because the attribute is aligned to 4 bytes only, and because a newer kernel has more counters than are
   // known here and an older one fewer.
   rtnl_link_stats64 stats{};
   std::memcpy( &stats, mnl_attr_get_payload( attribute ),
                std::min<std::size_t>( sizeof stats, mnl_attr_get_payload_len( attribute ) ) );
   row( static_cast<int>( body->ifindex ), stats );  // unsigned here, an int in all other messages
}

void StatsReader::read( Row const & row ) {
   bool whole = false;
   for( int attempt = 0; attempt < attempts && !whole; ++attempt ) {
      DumpRequest request( RTM_GETSTATS );
      request.putBody<if_stats_msg>().filter_mask = IFLA_STATS_FILTER_BIT( IFLA_STATS_LINK_64 );
      ++reads_;
      whole = kernel_.ask( request, readingCounters, [&row]( nlmsghdr const & message ) {
         if( message.nlmsg_type == RTM_NEWSTATS ) parseStats( message, row );
      } );
   }
}

}  // namespace Host::Linux

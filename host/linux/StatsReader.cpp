#include "linux/StatsReader.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "linux/NetlinkAttributes.h"

namespace Host::Linux {

namespace {

void handleRow( nlmsghdr const & message, StatsReader::Row const & row ) {
   auto const * const header = static_cast<if_stats_msg const *>( mnl_nlmsg_get_payload( &message ) );
   NetlinkAttributes<IFLA_STATS_LINK_64> const attributes( message, sizeof *header );
   nlattr const * const attribute = attributes[IFLA_STATS_LINK_64];
   if( !attribute ) return;
   // Attributes are aligned to 4 bytes only, and older kernels have fewer counters than this header knows.
   rtnl_link_stats64 stats{};
   std::size_t const size = mnl_attr_get_payload_len( attribute );
   std::memcpy( &stats, mnl_attr_get_payload( attribute ), std::min( size, sizeof stats ) );
   row( static_cast<int>( header->ifindex ), stats );
}

}  // namespace

void StatsReader::read( Row const & row ) {
   ++reads_;
   alignas( nlmsghdr ) std::array<char, 256> buffer{};
   nlmsghdr * const request = mnl_nlmsg_put_header( buffer.data() );
   request->nlmsg_type = RTM_GETSTATS;
   auto * const filter = static_cast<if_stats_msg *>( mnl_nlmsg_put_extra_header( request, sizeof( if_stats_msg ) ) );
   filter->filter_mask = IFLA_STATS_FILTER_BIT( IFLA_STATS_LINK_64 );
   uint32_t const sequence = socket_.requestDump( request );
   bool done = false;
   while( !done ) {
      socket_.receive( true ).forEach( [&]( nlmsghdr const & message ) {
         if( message.nlmsg_seq != sequence ) return;  // of a read that was given up
         if( message.nlmsg_type == NLMSG_DONE ) done = true;
         if( message.nlmsg_type == NLMSG_ERROR ) {
            auto const * const error = static_cast<nlmsgerr const *>( mnl_nlmsg_get_payload( &message ) );
            throw NetlinkError( "reading the links' statistics", -error->error );
         }
         if( message.nlmsg_type == RTM_NEWSTATS ) handleRow( message, row );
      } );
   }
}

}  // namespace Host::Linux

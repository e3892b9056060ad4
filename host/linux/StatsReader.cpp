#include "linux/StatsReader.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "linux/NetlinkAttributes.h"

namespace Host::Linux {
namespace {

constexpr char readingCounters[] = "reading the link counters";

// Links that come or go during an answer can make the kernel skip another one. It is asked again then, but not for
// ever: on a box that never comes to rest a link without a row just has no fresh sample this time.
constexpr int attempts = 4;

void handleStats( nlmsghdr const & message, StatsReader::Row const & row ) {
   auto const & body = *static_cast<if_stats_msg const *>( mnl_nlmsg_get_payload( &message ) );
   NetlinkAttributes<IFLA_STATS_MAX> const attributes( message, sizeof body );
   nlattr const * const attribute = attributes[IFLA_STATS_LINK_64];
   if( !attribute ) return;
   // Copied, because the attribute is aligned to 4 bytes only, and because a newer kernel has more counters than are
   // known here and an older one fewer.
   rtnl_link_stats64 stats{};
   std::memcpy( &stats, mnl_attr_get_payload( attribute ),
                std::min<std::size_t>( sizeof stats, mnl_attr_get_payload_len( attribute ) ) );
   row( static_cast<int>( body.ifindex ), stats );  // unsigned here, an int in all other messages
}

}  // namespace

StatsReader::StatsReader( std::chrono::milliseconds longestWait )
   : longestWait_( longestWait ), socket_( longestWait ) {}

void StatsReader::read( Row const & row ) {
   if( !socket_ ) socket_.emplace( longestWait_ );
   try {
      bool whole = false;
      for( int attempt = 0; attempt < attempts && !whole; ++attempt ) {
         request();
         whole = takeAnswer( row );
      }
   } catch( ... ) {
      // Whatever failed, the rest of the answer may still come to this socket.
      socket_.reset();
      throw;
   }
}

void StatsReader::request() {
   DumpRequest request( RTM_GETSTATS );
   request.putBody<if_stats_msg>().filter_mask = IFLA_STATS_FILTER_BIT( IFLA_STATS_LINK_64 );
   socket_->send( request.header(), "asking for the link counters" );
   ++reads_;
}

// Returns whether no link came or went meanwhile.
bool StatsReader::takeAnswer( Row const & row ) {
   bool whole = true;
   for( bool ended = false; !ended; ) {
      Received const received = socket_->receive( readingCounters );
      if( received.outcome == Received::Outcome::nothing ) throw NetlinkError( ETIMEDOUT, readingCounters );
      // Nothing but the answer comes here, so that is what has a gap.
      if( received.outcome == Received::Outcome::lost ) throw NetlinkError( ENOBUFS, readingCounters );
      forEachMessage( received.messages, [&]( nlmsghdr const & message ) {
         if( message.nlmsg_flags & NLM_F_DUMP_INTR ) whole = false;
         if( message.nlmsg_type == RTM_NEWSTATS ) handleStats( message, row );
         if( message.nlmsg_type != NLMSG_DONE && message.nlmsg_type != NLMSG_ERROR ) return;
         if( int const error = errorOf( message ) ) throw NetlinkError( error, readingCounters );
         ended = true;
      } );
   }
   return whole;
}

}  // namespace Host::Linux

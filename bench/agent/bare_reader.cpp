// The limit for a program that samples links: it asks the kernel for the counters of all links once a second, adds up
// their octets, and keeps nothing of a link.
//
// The question and the size of the buffer are those of maintd (host/linux/StatsReader.cpp, NetlinkSocket.cpp). Ends
// with SIGTERM and says then how often it has asked, and how many links it has read in all.
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

namespace {

constexpr std::size_t bufferBytes = 65536;
constexpr std::size_t usedBytes = offsetof( rtnl_link_stats64, rx_errors );  // of the counters of a link

struct Sums {
   uint64_t dumps = 0;
   uint64_t links = 0;   // of all dumps
   uint64_t octets = 0;  // both directions
};

int addCounters( nlattr const * attribute, void * sums ) {
   if( mnl_attr_get_type( attribute ) != IFLA_STATS_LINK_64 ) return MNL_CB_OK;
   rtnl_link_stats64 stats;
   if( mnl_attr_get_payload_len( attribute ) < usedBytes ) return MNL_CB_ERROR;
   std::memcpy( &stats, mnl_attr_get_payload( attribute ), usedBytes );  // aligned to 4 bytes only
   static_cast<Sums *>( sums )->links += 1;
   static_cast<Sums *>( sums )->octets += stats.rx_bytes + stats.tx_bytes;
   return MNL_CB_OK;
}

int addLink( nlmsghdr const * message, void * sums ) {
   return mnl_attr_parse( message, sizeof( if_stats_msg ), addCounters, sums );
}

// One dump; false when the kernel refuses or the answer has a gap.
bool dump( mnl_socket * kernel, std::vector<char> & buffer, Sums & sums ) {
   alignas( nlmsghdr ) char room[NLMSG_LENGTH( sizeof( if_stats_msg ) )];
   nlmsghdr * const request = mnl_nlmsg_put_header( room );
   request->nlmsg_type = RTM_GETSTATS;
   request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
   auto * const body = static_cast<if_stats_msg *>( mnl_nlmsg_put_extra_header( request, sizeof( if_stats_msg ) ) );
   body->filter_mask = IFLA_STATS_FILTER_BIT( IFLA_STATS_LINK_64 );
   if( mnl_socket_sendto( kernel, request, request->nlmsg_len ) < 0 ) return false;
   int more = MNL_CB_OK;
   while( more == MNL_CB_OK ) {
      ssize_t const bytes = mnl_socket_recvfrom( kernel, buffer.data(), buffer.size() );
      if( bytes < 0 ) return false;
      more = mnl_cb_run( buffer.data(), static_cast<std::size_t>( bytes ), 0, 0, addLink, &sums );
   }
   sums.dumps += 1;
   return more == MNL_CB_STOP;
}

// False when it is time to end instead.
bool waitUntil( timespec const & due, sigset_t const & end ) {
   timespec now{};
   clock_gettime( CLOCK_MONOTONIC, &now );
   timespec left{ due.tv_sec - now.tv_sec, due.tv_nsec - now.tv_nsec };
   if( left.tv_nsec < 0 ) left = { left.tv_sec - 1, left.tv_nsec + 1'000'000'000 };
   if( left.tv_sec < 0 ) left = {};
   return sigtimedwait( &end, nullptr, &left ) < 0;
}

}  // namespace

int main() {
   sigset_t end;
   sigemptyset( &end );
   sigaddset( &end, SIGTERM );
   sigprocmask( SIG_BLOCK, &end, nullptr );
   std::unique_ptr<mnl_socket, int ( * )( mnl_socket * )> const kernel( mnl_socket_open( NETLINK_ROUTE ),
                                                                        mnl_socket_close );
   if( !kernel || mnl_socket_bind( kernel.get(), 0, MNL_SOCKET_AUTOPID ) < 0 ) {
      std::perror( "bare_reader: opening a netlink socket" );
      return 1;
   }
   std::vector<char> buffer( bufferBytes );
   Sums sums;
   timespec due{};
   clock_gettime( CLOCK_MONOTONIC, &due );
   do {
      if( !dump( kernel.get(), buffer, sums ) ) {
         std::perror( "bare_reader: reading the link counters" );
         return 1;
      }
      due.tv_sec += 1;
   } while( waitUntil( due, end ) );
   std::printf( "%ju dumps, %ju links, %ju octets\n", uintmax_t{ sums.dumps }, uintmax_t{ sums.links },
                uintmax_t{ sums.octets } );
}

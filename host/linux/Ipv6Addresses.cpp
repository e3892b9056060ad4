#include "linux/Ipv6Addresses.h"

#include <linux/if_addr.h>
#include <linux/rtnetlink.h>

#include <fstream>

#include "linux/NetlinkAttributes.h"

namespace Host::Linux {

int linkOfStaticIpv6( nlmsghdr const & message ) {
   auto const * const body = bodyOf<ifaddrmsg>( message );
   if( message.nlmsg_type != RTM_NEWADDR || !body ) return 0;
   if( body->ifa_family != AF_INET6 || body->ifa_scope != RT_SCOPE_UNIVERSE ) return 0;
   NetlinkAttributes<IFA_MAX> const attributes( message, sizeof *body );
   auto const flags = valueOf<std::uint32_t>( attributes[IFA_FLAGS] ).value_or( body->ifa_flags );
   return flags & IFA_F_PERMANENT ? static_cast<int>( body->ifa_index ) : 0;
}

std::set<int> Ipv6Addresses::linksThatLose() {
   int ofAll = 0;
   std::ifstream( "/proc/sys/net/ipv6/conf/all/keep_addr_on_down" ) >> ofAll;
   if( ofAll > 0 ) return {};
   DumpRequest request( RTM_GETADDR );
   request.putBody<ifaddrmsg>().ifa_family = AF_INET6;
   std::set<int> links;
   kernel_.ask( request, "asking for IPv6 addresses", [&links]( nlmsghdr const & message ) {
      if( int const link = linkOfStaticIpv6( message ) ) links.insert( link );
   } );
   // Below 0 for all, no link's own setting counts.
   if( ofAll == 0 )
      std::erase_if( links, [this]( int link ) { return links_.keepAddrOnDown( link ).value_or( 0 ) > 0; } );
   return links;
}

}  // namespace Host::Linux

// Which links would lose static IPv6 addresses of global scope if they were taken down.
//
// The kernel flushes a link's IPv6 addresses when the link goes down, unless keep_addr_on_down says otherwise: that of
// all links where it is not 0, else the link's own (addrconf_ifdown() in net/ipv6/addrconf.c). Addresses that a router
// announces come back by themselves; those that somebody set do not. Asks the kernel each time and keeps nothing.
#pragma once

#include <set>

#include "linux/LinkSetter.h"

namespace Host::Linux {

// The index in an RTM_NEWADDR message that tells of such an address; 0 for any other message.
[[nodiscard]] int linkOfStaticIpv6( nlmsghdr const & message );

class Ipv6Addresses {
 public:
   // Indices. Throws NetlinkError.
   [[nodiscard]] std::set<int> linksThatLose();

 private:
   NetlinkExchange kernel_;
   LinkSetter links_;
};

}  // namespace Host::Linux

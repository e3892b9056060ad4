// By which links this box's packets leave: the default routes', and those towards one address.
//
// Owned by the link guard. Asks the kernel each time and keeps nothing. Needs no rights.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "linux/NetlinkExchange.h"

namespace Host::Linux {

// What an RTM_NEWROUTE message says of where its packets go.
struct Route {
   bool isDefault = false;      // to everywhere, in the main table
   std::set<int> links;         // indices; several of a multipath route
   std::uint32_t nextHops = 0;  // id of the kernel's next-hop object that says it instead; 0: none
};

// None for a message that is no route of packets that leave: one for the box itself, or one that drops them.
[[nodiscard]] std::optional<Route> parseRoute( nlmsghdr const & message );

class Routes {
 public:
   // Indices of the links of the IPv4 and IPv6 default routes, in the main table. Throw NetlinkError.
   [[nodiscard]] std::set<int> defaultLinks();
   // Of those by which packets to this address, IPv4 or IPv6, may leave. Empty when there is no way, when it is the
   // box's own address, and for a text that is no address. The link of a link-local one stands behind its '%'.
   [[nodiscard]] std::set<int> linksTowards( std::string const & address );

 private:
   [[nodiscard]] std::set<int> linksOf( Route const & route );
   void addNextHop( std::uint32_t id, std::set<int> & links );

   NetlinkExchange kernel_;
};

}  // namespace Host::Linux

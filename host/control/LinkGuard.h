// What taking a link down would cost beyond its own traffic: the way to this box, and addresses that do not come back.
//
// Owned by the host's agent, for its guards, and by whoever checks a configuration. Routes and addresses are the
// kernel's as they stand when they are asked for; which link carries which is the link monitor's picture.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "linux/Ipv6Addresses.h"
#include "linux/LinkTable.h"
#include "linux/Routes.h"
#include "records/IntfId.h"

namespace Host {

class LinkGuard {
 public:
   // `links` outlives this. Throws Linux::NetlinkError.
   explicit LinkGuard( Linux::LinkTable const & links ) : links_( links ) {}

   // Why an operator should think twice: a default route leaves by the interface or by a link that it carries, or the
   // session does from which he asks; sessionAddress is where that comes from, empty for a session of the box itself.
   // Reads as "the default route leaves by it". Empty when nothing speaks against it; when the kernel does not tell,
   // that does.
   [[nodiscard]] std::string protectedBy( Lumo::IntfId intf, std::string const & sessionAddress );

   // By interface the links that lose static IPv6 addresses when it is taken down: itself, and the VLAN links above it,
   // which the kernel takes down with it. Throws Linux::NetlinkError.
   [[nodiscard]] std::map<Lumo::IntfId, std::vector<std::string>> ipv6Losses();

 private:
   // One that packets go out by, and the VLAN that their tags name by then; 0: none.
   struct Carrier {
      Linux::Link const * link;
      int vlanId;
   };

   // The first of `leaving` that the link carries, or is; null when it has nothing to do with them.
   [[nodiscard]] Linux::Link const * carriedOf( std::set<int> const & leaving, Lumo::IntfId intf ) const;
   [[nodiscard]] bool carries( Lumo::IntfId intf, Linux::Link const & carried ) const;
   [[nodiscard]] std::vector<Carrier> carriersOf( Carrier const & upper ) const;

   Linux::LinkTable const & links_;
   Linux::Routes routes_;
   Linux::Ipv6Addresses addresses_;
};

}  // namespace Host

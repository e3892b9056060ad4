// What a link of this box is to the service: its kind, its VLAN and its members.
//
//    Ethernet      whatever counts its own octets: physical links, veth, tunnels, macvlan, ...
//    port-channel  bonds and teams; the members are the links whose master they are
//    VLAN          VLAN links. Above a bridge the members are its ports that carry the VLAN: by their VLAN tables where
//                  the bridge is VLAN-aware, else all of them. Any other has one member, the link below
//    sub-interface a VLAN link named after the Ethernet link or port-channel below, as eth0.100 is above eth0; and
//                  whatever is named as the platform names its own, as Ethernet1.100. The plug-in samples none
//    other         a bridge, whose counters leave out all that it forwards: its ports are what can be watched; and a
//                  VLAN link whose link below is in another network namespace, where nobody here counts
//
// So an operator who wants eth0's VLAN 100 watched, by all that eth0 carries, gives that link a name of its own. Pure
// functions of the kernel's picture; LinkFeed calls them again whenever a link that they look at has changed.
#pragma once

#include <set>
#include <string_view>

#include "links/LinkRecords.h"
#include "linux/LinkTable.h"

namespace Host {

[[nodiscard]] bool isPortChannel( Linux::Link const & link );
[[nodiscard]] bool isVlan( Linux::Link const & link );

// `belonging`: indices of the links whose master this one is. `ports`: of those whose master is the link below.
[[nodiscard]] Service::LinkReport reportOf( Linux::Link const & link, Linux::LinkTable const & table,
                                            std::set<int> const & belonging, std::set<int> const & ports );

}  // namespace Host

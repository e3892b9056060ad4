// The VLANs that a bridge's message says one of its ports carries, or carries no longer.
//
// These messages (RTM_NEWVLAN and RTM_DELVLAN, Linux 5.6 and later) are the one source that hears of every change: a
// table that is set by them is not told of by link messages.
#pragma once

#include <bitset>
#include <optional>

struct nlmsghdr;

namespace Host::Linux {

using VlanSet = std::bitset<4096>;  // by VLAN id, from 1 to 4094

struct PortVlans {
   int port = 0;  // the kernel's index; the bridge's own, where it speaks of itself
   VlanSet vlans;
};

// None for a message that is too short to name a port. What is not well-formed in it names no VLAN.
[[nodiscard]] std::optional<PortVlans> parseVlans( nlmsghdr const & message );

}  // namespace Host::Linux

// One network link of this box as the kernel describes it, and its reading from an rtnetlink message.
//
// A plain value: made here, kept and handed out by LinkMonitor, compared to tell a change from a repetition.
#pragma once

#include <optional>
#include <string>

struct nlmsghdr;

namespace Host::Linux {

// Whether packets can pass. Of the kernel's states (its Documentation/networking/operstates.rst) "up" is up, and so is
// "unknown", where many virtual devices (loopback, dummy, tun) stay for ever, while the link is administratively up and
// has a carrier. All others are down: dormant and testing links, too, do not carry traffic.
enum class Oper {
   unknown,  // only a Link that no message has filled
   up,
   down
};

struct Link {
   int index = 0;     // the kernel's number, above 0; a device that is deleted and made again has another
   std::string name;  // may move from one index to another
   Oper oper = Oper::unknown;
   bool adminUp = false;
   bool loopback = false;
   std::string kind;        // "veth", "bond", "vlan", ...; empty for physical links and the loopback
   int master = 0;          // index of the bond or bridge it belongs to; 0: none
   int parent = 0;          // index of the link below, of a veth that of its peer; 0: none, or in another namespace
   int vlanId = 0;          // of a VLAN link; 0: none
   bool vlanAware = false;  // a bridge that forwards by VLAN tags and the VLAN tables of its ports

   bool operator==( Link const & ) const = default;
};

// The link that an RTM_NEWLINK message describes. None for a message that describes no link: a bridge's view of one of
// its ports and the events of a wireless driver come under the same type, and lack most of it.
[[nodiscard]] std::optional<Link> parseLink( nlmsghdr const & message );

// The index of the link that an RTM_DELLINK message says is gone. None when it is not: a link that leaves a bridge is
// announced under the same type.
[[nodiscard]] std::optional<int> parseRemoval( nlmsghdr const & message );

}  // namespace Host::Linux

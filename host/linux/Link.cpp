#include "linux/Link.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "linux/NetlinkAttributes.h"

namespace Host::Linux {
namespace {

ifinfomsg const & bodyOf( nlmsghdr const & message ) {
   return *static_cast<ifinfomsg const *>( mnl_nlmsg_get_payload( &message ) );
}

Oper operOf( unsigned flags, std::uint8_t operState ) {
   constexpr unsigned carrying = IFF_UP | IFF_LOWER_UP;
   if( operState == IF_OPER_UP ) return Oper::up;
   return operState == IF_OPER_UNKNOWN && ( flags & carrying ) == carrying ? Oper::up : Oper::down;
}

void readKind( nlattr const * linkInfo, Link & into ) {
   NetlinkAttributes<IFLA_INFO_MAX> const info( linkInfo );
   into.kind = info.text( IFLA_INFO_KIND );
   if( into.kind != "vlan" ) return;
   NetlinkAttributes<IFLA_VLAN_MAX> const vlan( info[IFLA_INFO_DATA] );
   // Two bytes, unlike the numbers that number() reads.
   if( vlan[IFLA_VLAN_ID] ) into.vlanId = mnl_attr_get_u16( vlan[IFLA_VLAN_ID] );
}

}  // namespace

std::optional<Link> parseLink( nlmsghdr const & message ) {
   ifinfomsg const & body = bodyOf( message );
   NetlinkAttributes<IFLA_MAX> const attributes( message, sizeof body );
   if( body.ifi_family != AF_UNSPEC || !attributes[IFLA_IFNAME] || !attributes[IFLA_OPERSTATE] ) return std::nullopt;

   Link link;
   link.index = body.ifi_index;
   link.name = attributes.text( IFLA_IFNAME );
   link.oper = operOf( body.ifi_flags, mnl_attr_get_u8( attributes[IFLA_OPERSTATE] ) );
   link.adminUp = ( body.ifi_flags & IFF_UP ) != 0;
   link.master = attributes.number( IFLA_MASTER );
   // An index means something in its own namespace only; this one could be that of an unrelated link here.
   if( !attributes[IFLA_LINK_NETNSID] ) link.parent = attributes.number( IFLA_LINK );
   readKind( attributes[IFLA_LINKINFO], link );
   return link;
}

std::optional<int> parseRemoval( nlmsghdr const & message ) {
   ifinfomsg const & body = bodyOf( message );
   if( body.ifi_family != AF_UNSPEC ) return std::nullopt;
   return body.ifi_index;
}

}  // namespace Host::Linux

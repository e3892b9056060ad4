#include "linux/Link.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "linux/NetlinkAttributes.h"

namespace Host::Linux {
namespace {

Oper operOf( unsigned flags, std::uint8_t operState ) {
   constexpr unsigned carrying = IFF_UP | IFF_LOWER_UP;
   if( operState == IF_OPER_UP ) return Oper::up;
   return operState == IF_OPER_UNKNOWN && ( flags & carrying ) == carrying ? Oper::up : Oper::down;
}

void readKind( nlattr const * linkInfo, Link & into ) {
   NetlinkAttributes<IFLA_INFO_MAX> const info( linkInfo );
   into.kind = info.text( IFLA_INFO_KIND );
   // Each kind numbers its own attributes.
   if( into.kind == "vlan" ) {
      NetlinkAttributes<IFLA_VLAN_MAX> const vlan( info[IFLA_INFO_DATA] );
      into.vlanId = valueOf<std::uint16_t>( vlan[IFLA_VLAN_ID] ).value_or( 0 );
   } else if( into.kind == "bridge" ) {
      NetlinkAttributes<IFLA_BR_MAX> const bridge( info[IFLA_INFO_DATA] );
      into.vlanAware = valueOf<std::uint8_t>( bridge[IFLA_BR_VLAN_FILTERING] ).value_or( 0 ) != 0;
   }
}

}  // namespace

std::optional<Link> parseLink( nlmsghdr const & message ) {
   auto const * const body = bodyOf<ifinfomsg>( message );
   if( !body || body->ifi_family != AF_UNSPEC || body->ifi_index <= 0 ) return std::nullopt;
   NetlinkAttributes<IFLA_MAX> const attributes( message, sizeof *body );
   auto const operState = valueOf<std::uint8_t>( attributes[IFLA_OPERSTATE] );
   auto const name = attributes.text( IFLA_IFNAME );
   if( name.empty() || !operState ) return std::nullopt;

   Link link;
   link.index = body->ifi_index;
   link.name = name;
   link.oper = operOf( body->ifi_flags, *operState );
   link.adminUp = ( body->ifi_flags & IFF_UP ) != 0;
   link.loopback = ( body->ifi_flags & IFF_LOOPBACK ) != 0;
   link.master = attributes.number( IFLA_MASTER );
   // An index means something in its own namespace only; this one could be that of an unrelated link here.
   if( !attributes[IFLA_LINK_NETNSID] ) link.parent = attributes.number( IFLA_LINK );
   readKind( attributes[IFLA_LINKINFO], link );
   return link;
}

std::optional<int> parseRemoval( nlmsghdr const & message ) {
   auto const * const body = bodyOf<ifinfomsg>( message );
   if( !body || body->ifi_family != AF_UNSPEC ) return std::nullopt;
   return body->ifi_index;
}

}  // namespace Host::Linux

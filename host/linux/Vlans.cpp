#include "linux/Vlans.h"

#include <linux/if_bridge.h>

#include <algorithm>

#include "linux/NetlinkAttributes.h"

namespace Host::Linux {
namespace {

// One entry names a VLAN or a range of them, by its first and its last.
int addEntry( nlattr const * attribute, void * vlans ) {
   if( mnl_attr_get_type( attribute ) != BRIDGE_VLANDB_ENTRY ) return MNL_CB_OK;
   NetlinkAttributes<BRIDGE_VLANDB_ENTRY_MAX> const entry( attribute );
   auto const first = valueOf<bridge_vlan_info>( entry[BRIDGE_VLANDB_ENTRY_INFO] );
   if( !first ) return MNL_CB_OK;
   int const last = valueOf<std::uint16_t>( entry[BRIDGE_VLANDB_ENTRY_RANGE] ).value_or( first->vid );
   for( int id = std::max<int>( first->vid, 1 ); id <= std::min( last, 4094 ); ++id ) {
      static_cast<VlanSet *>( vlans )->set( static_cast<std::size_t>( id ) );
   }
   return MNL_CB_OK;
}

}  // namespace

std::optional<PortVlans> parseVlans( nlmsghdr const & message ) {
   auto const * const body = bodyOf<br_vlan_msg>( message );
   if( !body ) return std::nullopt;
   PortVlans found;
   found.port = static_cast<int>( body->ifindex );
   mnl_attr_parse( &message, sizeof *body, addEntry, &found.vlans );
   return found;
}

}  // namespace Host::Linux

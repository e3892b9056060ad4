#include "control/LinkGuard.h"

#include <algorithm>

namespace Host {

using Linux::Link;
using Lumo::IntfId;

namespace {

// The kernel lets no more links be stacked (MAX_NEST_DEV in include/linux/netdevice.h).
constexpr int deepestStack = 8;

// "the default route leaves by" what `intf` carries, which may be itself.
std::string sentence( std::string const & what, Link const & carried, IntfId intf ) {
   return what + ( carried.name == intf.name() ? "it" : carried.name + ", which it carries" );
}

}  // namespace

std::string LinkGuard::protectedBy( IntfId intf, std::string const & sessionAddress ) {
   try {
      if( Link const * const carried = carriedOf( routes_.defaultLinks(), intf ) ) {
         return sentence( "the default route leaves by ", *carried, intf );
      }
      if( Link const * const carried = carriedOf( routes_.linksTowards( sessionAddress ), intf ) ) {
         return sentence( "the session from " + sessionAddress + " comes by ", *carried, intf );
      }
   } catch( Linux::NetlinkError const & error ) {
      return std::string( "it cannot be told what leaves by it: " ) + error.what();
   }
   return {};
}

Link const * LinkGuard::carriedOf( std::set<int> const & leaving, IntfId intf ) const {
   for( int const index : leaving ) {
      Link const * const carried = links_.link( index );
      if( carried && carries( intf, *carried ) ) return carried;
   }
   return nullptr;
}

bool LinkGuard::carries( IntfId intf, Link const & carried ) const {
   // From the top down.
   std::vector<Carrier> carriers{ { &carried, 0 } };
   for( std::size_t i = 0; i < carriers.size(); ++i ) {
      if( carriers[i].link->name == intf.name() ) return true;
      for( Carrier const & lower : carriersOf( carriers[i] ) ) {
         if( std::ranges::find( carriers, lower.link, &Carrier::link ) == carriers.end() ) carriers.push_back( lower );
      }
   }
   return false;
}

// The link below, and those that belong to it; of a VLAN-aware bridge's, the ports that carry the VLAN.
std::vector<LinkGuard::Carrier> LinkGuard::carriersOf( Carrier const & upper ) const {
   Link const & link = *upper.link;
   std::vector<Carrier> carriers;
   // A veth link's peer is no link below.
   Link const * const below = link.kind == "veth" ? nullptr : links_.link( link.parent );
   if( below ) carriers.push_back( { below, link.vlanId } );
   for( auto const & [index, member] : links_.links() ) {
      if( member.master != link.index ) continue;
      bool const passedBy = link.vlanAware && upper.vlanId && !links_.carries( index, upper.vlanId );
      if( !passedBy ) carriers.push_back( { &member, upper.vlanId } );
   }
   return carriers;
}

std::map<IntfId, std::vector<std::string>> LinkGuard::ipv6Losses() {
   std::map<IntfId, std::vector<std::string>> losses;
   for( int const index : addresses_.linksThatLose() ) {
      Link const * const losing = links_.link( index );
      Link const * down = losing;
      for( int depth = 0; down && depth < deepestStack; ++depth ) {
         losses[IntfId( down->name )].push_back( losing->name );
         down = down->kind == "vlan" ? links_.link( down->parent ) : nullptr;
      }
   }
   return losses;
}

}  // namespace Host

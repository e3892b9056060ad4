#include "Kernel.h"

#include <algorithm>

namespace Kills {

namespace {

constexpr char const * noLink = "No such device";

}  // namespace

Kills::Link * Kernel::find( int index ) const {
   auto const found = std::ranges::find( world_.links, index, &Kills::Link::index );
   return found == world_.links.end() ? nullptr : &*found;
}

std::optional<Service::LinkSwitch::Link> Kernel::link( Lumo::IntfId intf ) const {
   Kills::Link const * const found = world_.link( intf.name() );
   return found ? std::optional( Link{ found->index, found->adminUp } ) : std::nullopt;
}

std::optional<Service::LinkSwitch::Link> Kernel::link( int index ) const {
   Kills::Link const * const found = find( index );
   return found ? std::optional( Link{ found->index, found->adminUp } ) : std::nullopt;
}

std::string Kernel::adminUpIs( int index, bool up ) {
   Kills::Link * const link = find( index );
   if( !link ) return noLink;
   std::string const name = link->name.data();
   if( name == "lo" || name == "other" ) world_.faultIs( name + " is in no unit and was touched" );
   if( up && !link->takenDown ) world_.faultIs( name + " was set up, and it was not the agent who took it down" );
   if( link->adminUp == up ) world_.faultIs( name + " was set " + ( up ? "up" : "down" ) + " where it was so already" );
   world_.pass( setOf( up ? Point::beforeLinkUp : Point::beforeLinkDown ) );
   link->adminUp = up;
   link->takenDown = !up;
   ++( up ? link->ups : link->downs );
   changed_.insert( name );
   world_.pass( setOf( up ? Point::afterLinkUp : Point::afterLinkDown ) );
   return {};
}

std::optional<int> Kernel::keepAddrOnDown( int index ) const {
   Kills::Link const * const link = find( index );
   return link ? std::optional( link->keepAddr ) : std::nullopt;
}

std::string Kernel::keepAddrOnDownIs( int index, int value ) {
   Kills::Link * const link = find( index );
   if( !link ) return noLink;
   world_.pass( setOf( value == 1 ? Point::beforeKeepAddrSet : Point::beforeKeepAddrPutBack ) );
   link->keepAddr = value;
   world_.pass( setOf( value == 1 ? Point::afterKeepAddrSet : Point::afterKeepAddrPutBack ) );
   return {};
}

}  // namespace Kills

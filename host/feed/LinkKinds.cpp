#include "feed/LinkKinds.h"

#include <algorithm>

namespace Host {

namespace {

using Linux::Link;
using Linux::LinkTable;
using Lumo::IntfKind;

bool isNumber( std::string_view text ) {
   return !text.empty() && std::ranges::all_of( text, []( char c ) { return c >= '0' && c <= '9'; } );
}

bool isNumbered( std::string_view name, std::string_view prefix ) {
   return name.starts_with( prefix ) && isNumber( name.substr( prefix.size() ) );
}

// By the name's form alone. What was declared of it before says nothing of the link that bears it now.
bool isNamedSubIntf( std::string_view name ) {
   auto const dot = name.rfind( '.' );
   if( dot == name.npos || !isNumber( name.substr( dot + 1 ) ) ) return false;
   auto const base = name.substr( 0, dot );
   return isNumbered( base, "Ethernet" ) || isNumbered( base, "Port-Channel" );
}

bool isNamedAfter( std::string_view name, std::string_view below ) {
   return name.starts_with( below ) && name.substr( below.size() ).starts_with( '.' ) &&
          isNumber( name.substr( below.size() + 1 ) );
}

bool isBridge( Link const & link ) { return link.kind == "bridge"; }

IntfKind kindOf( Link const & link, LinkTable const & table ) {
   if( isNamedSubIntf( link.name ) ) return IntfKind::subIntf;
   if( isPortChannel( link ) ) return IntfKind::portChannel;
   if( isBridge( link ) ) return IntfKind::other;
   if( !isVlan( link ) ) return IntfKind::ethernet;
   Link const * const below = table.link( link.parent );
   if( !below ) return IntfKind::other;
   bool const divides = !isBridge( *below ) && !isVlan( *below );
   return divides && isNamedAfter( link.name, below->name ) ? IntfKind::subIntf : IntfKind::vlan;
}

std::vector<std::string> namesOf( std::set<int> const & indices, LinkTable const & table, auto const & chosen ) {
   std::vector<std::string> names;
   for( int const index : indices ) {
      Link const * const link = table.link( index );
      if( link && chosen( index ) ) names.push_back( link->name );
   }
   return names;
}

}  // namespace

bool isPortChannel( Link const & link ) { return link.kind == "bond" || link.kind == "team"; }
bool isVlan( Link const & link ) { return link.kind == "vlan"; }

Service::LinkReport reportOf( Link const & link, LinkTable const & table, std::set<int> const & belonging,
                              std::set<int> const & ports ) {
   Service::LinkReport report;
   report.up = link.oper == Linux::Oper::up;
   report.kind = kindOf( link, table );
   if( report.kind == IntfKind::portChannel ) {
      report.members = namesOf( belonging, table, []( int ) { return true; } );
   } else if( report.kind == IntfKind::vlan ) {
      report.vlanId = static_cast<uint16_t>( link.vlanId );
      Link const & below = *table.link( link.parent );
      if( isBridge( below ) ) {
         report.members =
            namesOf( ports, table, [&]( int port ) { return !below.vlanAware || table.carries( port, link.vlanId ); } );
      } else {
         report.members = { below.name };
      }
   }
   return report;
}

}  // namespace Host

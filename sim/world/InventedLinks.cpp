#include "world/InventedLinks.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace Sim {

using Lumo::IntfKind;

namespace {

// Takes the prefix and the number behind it off the front of `rest`; false when they are not there.
bool take( std::string_view & rest, std::string_view prefix ) {
   if( !rest.starts_with( prefix ) ) return false;
   auto const end = std::min( rest.find_first_not_of( "0123456789", prefix.size() ), rest.size() );
   if( end == prefix.size() ) return false;
   rest.remove_prefix( end );
   return true;
}

// The kind that the form of a name says. Not asked of the id, which tells what an earlier link of that name was.
IntfKind kindByName( std::string_view name ) {
   if( name == "Cpu" ) return IntfKind::cpu;
   IntfKind kind = IntfKind::ethernet;
   if( take( name, "Port-Channel" ) ) {
      kind = IntfKind::portChannel;
   } else if( take( name, "Vlan" ) ) {
      return name.empty() ? IntfKind::vlan : IntfKind::ethernet;
   } else if( take( name, "Ethernet" ) ) {
      while( take( name, "/" ) ) {
      }
   } else {
      return IntfKind::ethernet;
   }
   if( name.empty() ) return kind;
   return take( name, "." ) && name.empty() ? IntfKind::subIntf : IntfKind::ethernet;
}

Service::LinkReport asItsNameTells( Lumo::IntfId intf ) {
   // Members it has none, and which VLAN a name tells is known where the records are written.
   return { true, kindByName( intf.name() ), 0, {} };
}

}  // namespace

Service::LinkReport InventedLinks::after( Lumo::IntfId intf, Said const & said ) const {
   auto const link = links_.find( intf );
   auto report = link == links_.end() ? asItsNameTells( intf ) : link->second.said;
   if( said.kind && *said.kind != report.kind ) {
      // Members and id belonged to what it was before.
      report = { report.up, *said.kind, 0, {} };
   }
   if( said.up ) report.up = *said.up;
   if( said.vlanId ) report.vlanId = *said.vlanId;
   if( said.members ) report.members = *said.members;
   return report;
}

void InventedLinks::linkIs( Lumo::IntfId intf, Said const & said ) {
   auto const report = after( intf, said );
   auto const present = links_.find( intf );
   bool const counted = present != links_.end() && present->second.said.kind == IntfKind::ethernet;
   bool const counts = report.kind == IntfKind::ethernet;
   // Row before record: whoever hears of the link finds its counters.
   if( counts && !counted ) counters_.linkIs( intf );
   if( present == links_.end() ) links_.emplace( intf, State{ ++lastIndex_, {} } );
   State & link = links_.at( intf );
   link.said = report;
   if( said.up == true ) link.held = false;
   if( said.up ) link.late = false;
   if( said.late ) link.late = *said.late && link.held;
   this->report( intf );
   if( counted && !counts ) counters_.linkDel( intf );
}

void InventedLinks::linkDel( Lumo::IntfId intf ) {
   if( links_.erase( intf ) == 0 ) return;
   report( intf );
   // After the record, as it came before it.
   counters_.linkDel( intf );
}

std::optional<Service::LinkSwitch::Link> InventedLinks::link( Lumo::IntfId intf ) const {
   auto const found = links_.find( intf );
   if( found == links_.end() ) return std::nullopt;
   return Link{ found->second.index, !found->second.held };
}

std::optional<Service::LinkSwitch::Link> InventedLinks::link( int index ) const { return link( intfOf( index ) ); }

std::string InventedLinks::adminUpIs( int index, bool up ) {
   Lumo::IntfId const intf = intfOf( index );
   auto const found = links_.find( intf );
   if( found == links_.end() ) return "there is no such link";
   if( found->second.held == up ) {
      found->second.held = !up;
      report( intf );
   }
   return {};
}

Lumo::IntfId InventedLinks::intfOf( int index ) const {
   auto const found = std::ranges::find( links_, index, []( auto const & entry ) { return entry.second.index; } );
   return found == links_.end() ? Lumo::IntfId() : found->first;
}

void InventedLinks::recordsFollow( bool follow ) {
   follow_ = follow;
   if( !follow ) return;
   for( Lumo::IntfId const intf : std::exchange( unreported_, {} ) ) report( intf );
}

void InventedLinks::report( Lumo::IntfId intf ) {
   if( !follow_ ) {
      unreported_.insert( intf );
      return;
   }
   auto const link = links_.find( intf );
   if( link == links_.end() ) {
      records_.linkDel( intf );
   } else {
      auto reported = link->second.said;
      reported.up = reported.up && !link->second.held && !link->second.late;
      records_.linkIs( intf, reported );
   }
   if( onLink_ ) onLink_( intf );
}

}  // namespace Sim

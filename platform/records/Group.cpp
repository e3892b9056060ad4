#include "records/Group.h"

KEL_TYPE( IntfGroup::Status )
KEL_TYPE( IntfGroup::StatusDir )
KEL_TYPE( Maintenance::MaintenanceGroup::Config )
KEL_TYPE( Maintenance::MaintenanceGroup::ConfigDir )
KEL_TYPE( Maintenance::GroupToUnit )
KEL_TYPE( Maintenance::GroupToUnitDir )
KEL_TYPE( IntfMaintenance::IntfToGroup )
KEL_TYPE( IntfMaintenance::IntfToGroupDir )

namespace Group {

GroupKey GroupKey::fromText( std::string_view text ) {
   // The first colon ends the type, so that a group's name may have colons of its own.
   std::size_t const colon = text.find( ':' );
   std::string_view const typeName = text.substr( 0, colon );
   // Not unknown: no group is of that type, so such a text is a mistake.
   for( GroupType const type : { GroupType::intf, GroupType::bgp } ) {
      if( colon != std::string_view::npos && typeName == enumName( type ) ) {
         return { type, Kel::String8( text.substr( colon + 1 ) ) };
      }
   }
   Kel::wrongKey( "a group such as \"intf:uplinks\" or \"bgp:peers\"", text );
}

}  // namespace Group

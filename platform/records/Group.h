// Groups: what they hold, which units they belong to, and the same seen from the interface. Written by the host.
#pragma once

#include <compare>
#include <string>

#include "kel/Attributes.h"
#include "records/IntfId.h"
#include "records/Profile.h"

namespace Group {

enum class GroupType : uint8_t { unknown = 0, intf = 1, bgp = 2 };

constexpr char const * enumName( GroupType t ) {
   switch( t ) {
      case GroupType::unknown: return "unknown";
      case GroupType::intf: return "intf";
      case GroupType::bgp: return "bgp";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( GroupType )

// A group's type and name; as text "intf:uplinks".
struct GroupKey {
   GroupType type = GroupType::unknown;
   Kel::String8 name;

   bool operator==( GroupKey const & ) const = default;
   auto operator<=>( GroupKey const & ) const = default;
   [[nodiscard]] std::string text() const { return Kel::printValue( type ) + ":" + name.str(); }
   [[nodiscard]] static GroupKey fromText( std::string_view text );
   friend std::ostream & operator<<( std::ostream & out, GroupKey const & k ) { return out << k.text(); }
};

}  // namespace Group

template<>
struct std::hash<Group::GroupKey> {
   std::size_t operator()( Group::GroupKey const & k ) const noexcept {
      return k.name.hash() * 31 + static_cast<std::size_t>( k.type );
   }
};

template<>
struct Kel::KeyTraits<Group::GroupKey> {
   static std::string toText( Group::GroupKey const & k ) { return k.text(); }
   static Group::GroupKey fromText( std::string_view text ) { return Group::GroupKey::fromText( text ); }
};

namespace IntfGroup {

// The member interfaces of one interface group.
class Status final : public Kel::Entity {
   KEL_ENTITY( Status, "IntfGroup::Status", Kel::String8, groupName )
   KEL_SET( Lumo::IntfId, intf, onIntf )
   KEL_ENTITY_END
};

class StatusDir final : public Kel::Entity {
   KEL_ENTITY( StatusDir, "IntfGroup::StatusDir", Kel::Name, dirName )
   KEL_CHILDREN( Status, Kel::String8, status, onStatus )
   KEL_ENTITY_END
};

}  // namespace IntfGroup

namespace Maintenance {

namespace MaintenanceGroup {

// One configured group, whatever its type. All that it says is that the group is there.
class Config final : public Kel::Entity {
   KEL_ENTITY( Config, "Maintenance::MaintenanceGroup::Config", Kel::String8, groupName )
   KEL_ENTITY_END
};

class ConfigDir final : public Kel::Entity {
   KEL_ENTITY( ConfigDir, "Maintenance::MaintenanceGroup::ConfigDir", Kel::Name, dirName )
   KEL_CHILDREN( Config, Kel::String8, config, onConfig )
   KEL_ENTITY_END
};

}  // namespace MaintenanceGroup

// The units that a group belongs to.
class GroupToUnit final : public Kel::Entity {
   KEL_ENTITY( GroupToUnit, "Maintenance::GroupToUnit", Group::GroupKey, groupKey )
   KEL_MAP( bool, Kel::Name, unitName, onUnitName )  // false is as good as absent
   KEL_ENTITY_END
};

class GroupToUnitDir final : public Kel::Entity {
   KEL_ENTITY( GroupToUnitDir, "Maintenance::GroupToUnitDir", Kel::Name, dirName )
   KEL_CHILDREN( GroupToUnit, Group::GroupKey, groupToUnit, onGroupToUnit )
   KEL_ENTITY_END
};

}  // namespace Maintenance

namespace IntfMaintenance {

// The groups of one interface, and the profile that the precedence among their units selects.
class IntfToGroup final : public Kel::Entity {
   KEL_ENTITY( IntfToGroup, "IntfMaintenance::IntfToGroup", Lumo::IntfId, intfId )
   KEL_MAP( bool, Group::GroupKey, group, onGroup )
   KEL_ATTR( Maintenance::ProfileChangeCause, profileChangeCause )  // of the selection made last; set before it
   KEL_MAP( Maintenance::Profile::ProfileKey, Maintenance::Profile::ProfileType, selectedProfile, onSelectedProfile )
   KEL_ENTITY_END
};

class IntfToGroupDir final : public Kel::Entity {
   KEL_ENTITY( IntfToGroupDir, "IntfMaintenance::IntfToGroupDir", Kel::Name, dirName )
   KEL_CHILDREN( IntfToGroup, Lumo::IntfId, intfToGroup, onIntfToGroup )
   KEL_ENTITY_END
};

}  // namespace IntfMaintenance

namespace Maintenance {

// The name of such a mapping for any kind of member; interfaces are the only kind there is.
using MemberToGroup = IntfMaintenance::IntfToGroup;

}  // namespace Maintenance

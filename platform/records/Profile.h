// Maintenance profiles of interfaces: how quiet, for how long, sampled how often, and whether to shut down. Written by
// the host from its configuration.
#pragma once

#include "kel/Attributes.h"

namespace IntfMaintenanceProfile {

class Config final : public Kel::Entity {
   KEL_ENTITY( Config, "IntfMaintenanceProfile::Config", Kel::String8, profileName )
   KEL_ATTR_NOTIFY( bool, shutdown, onShutdown )  // take a drained interface down
   KEL_ATTR( double, rateMonThresholdInKbps )     // kbps; a rate must be below it, so 0 is never met
   KEL_ATTR( double, sampleInterval )             // s between samples
   KEL_ATTR( uint32_t, rateMonLoadInterval )      // s that traffic must stay below the threshold
   KEL_ATTR( double, shutdownMaxDelay )           // s until the interface goes down all the same; 0: at once
   KEL_ENTITY_END

   [[nodiscard]] double thresholdBitsRate() const { return 1000 * rateMonThresholdInKbps(); }  // bit/s
};

class ConfigDir final : public Kel::Entity {
   KEL_ENTITY( ConfigDir, "IntfMaintenanceProfile::ConfigDir", Kel::Name, dirName )
   KEL_CHILDREN( Config, Kel::String8, config, onConfig )
   KEL_ENTITY_END
};

}  // namespace IntfMaintenanceProfile

namespace Maintenance {

// Why an interface's selected profile is what it is.
enum class ProfileChangeCause : uint8_t { unknown = 0, configuration = 1, precedence = 2 };

constexpr char const * enumName( ProfileChangeCause c ) {
   switch( c ) {
      case ProfileChangeCause::unknown: return "unknown";
      case ProfileChangeCause::configuration: return "configuration";
      case ProfileChangeCause::precedence: return "precedence";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( ProfileChangeCause )

namespace Profile {

enum class ProfileType : uint8_t { unknown = 0, interface = 2 };

constexpr char const * enumName( ProfileType t ) {
   switch( t ) {
      case ProfileType::unknown: return "unknown";
      case ProfileType::interface: return "interface";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( ProfileType )

// Which profile is selected: its name, or nothing.
struct ProfileKey {
   Kel::String8 name;

   [[nodiscard]] bool empty() const { return name.empty(); }
   bool operator==( ProfileKey const & ) const = default;
   friend std::ostream & operator<<( std::ostream & out, ProfileKey const & k ) {
      return k.empty() ? out << "-" : out << k.name;
   }
};

// The name that stands for the default profile wherever a profile is selected, and under which its copy is configured.
[[nodiscard]] inline Kel::String8 const & defaultProfileName() {
   static Kel::String8 const name( "#DEFAULTPROFILE" );
   return name;
}

class DefaultProfile final : public Kel::Entity {
   KEL_ENTITY( DefaultProfile, "Maintenance::Profile::DefaultProfile", Kel::Name, dirName )
   KEL_ATTR_NOTIFY( Kel::String8, profileName, onProfileName )
   KEL_ENTITY_END
};

}  // namespace Profile
}  // namespace Maintenance

template<>
struct Kel::ValueTraits<Maintenance::Profile::ProfileKey> {
   static std::string typeName() { return "Maintenance::Profile::ProfileKey"; }
   static Value toValue( Maintenance::Profile::ProfileKey const & k ) {
      return ValueTraits<String8>::toValue( k.name );
   }
   static Maintenance::Profile::ProfileKey fromValue( Value const & v ) {
      return { ValueTraits<String8>::fromValue( v ) };
   }
};

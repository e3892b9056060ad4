// The configuration as the records that the plug-in reads: profiles, default profile, groups, units, and which profile
// is selected for each interface.
//
// Owned by the agent. Writes the records once from a configuration that holds, and selects profiles anew whenever a
// unit enters or leaves maintenance: units entering or in maintenance come first, then the order of the configuration;
// a group's profile comes before the default.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "config/Config.h"
#include "records/IntfId.h"
#include "state/MaintenanceState.h"

namespace Service {

class ConfigRecords {
 public:
   // `state` and `config` outlive this.
   ConfigRecords( Maintenance::MaintenanceState & state, Config::Config const & config );

   // Every interface that some group names, once, in the order of the configuration.
   [[nodiscard]] std::vector<Lumo::IntfId> const & interfaces() const { return interfaces_; }
   // Those of one unit, once each, in the order of its groups. Empty for an unknown unit.
   [[nodiscard]] std::vector<Lumo::IntfId> interfacesOf( std::string const & unit ) const;
   // The units that an interface belongs to.
   [[nodiscard]] std::vector<std::string> unitsOf( Lumo::IntfId intf ) const;

   // Chooses each interface's profile by the present states of the units.
   void selectProfiles();

 private:
   void writeProfiles();
   void writeGroups();
   void writeUnits();
   void collectInterfaces();
   [[nodiscard]] Config::Group const * group( std::string const & name ) const;
   [[nodiscard]] Kel::String8 selectedProfile( Lumo::IntfId intf ) const;
   [[nodiscard]] std::vector<Config::Unit const *> unitsByPrecedence() const;

   Maintenance::MaintenanceState & state_;
   Config::Config const & config_;
   std::vector<Lumo::IntfId> interfaces_;
};

}  // namespace Service

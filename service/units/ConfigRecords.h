// The configuration as records: groups, units, profiles, and the profile that each interface is watched by.
//
// Owned by the maintenance service. Writes the records from a configuration that holds, and brings them into step with
// another one: what is there and still wanted stays as it is, also what an earlier service left in the database, and
// what is not wanted goes, whoever wrote it. It selects profiles anew whenever a unit enters or leaves maintenance: the
// profile is that of the first of the interface's groups that names one, those of units entering or in maintenance
// before all others, otherwise in the order of the configuration; the default profile where none does.
//
// A unit from which interfaces are left out has private copies of the groups that hold them, "GROUP/UNIT", without
// them, so that its stages do not wait for these either. No configured group has such a name.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "config/Config.h"
#include "records/IntfId.h"
#include "state/MaintenanceState.h"

namespace Service {

// How a profile record says that there is no max-delay, seconds. Longer than any clock runs, and unlike infinity a
// number that JSON has.
inline constexpr double noMaxDelay = 1e300;

class ConfigRecords {
 public:
   // `state` outlives this.
   ConfigRecords( Maintenance::MaintenanceState & state, Config::Config config );

   [[nodiscard]] Config::Config const & config() const { return config_; }
   // Takes the place of the present one: what is new is written before what is gone is removed, so that no interface
   // that stays in a unit is out of it in between. What is left out stays left out where it is still of the unit.
   void configIs( Config::Config config );

   // Every interface that some group names, once, in the order of the configuration.
   [[nodiscard]] std::vector<Lumo::IntfId> const & interfaces() const { return interfaces_; }
   // Those of one unit, once each, in the order of its groups, also those left out. Empty for an unknown unit.
   [[nodiscard]] std::vector<Lumo::IntfId> interfacesOf( std::string const & unit ) const;
   // The units that an interface belongs to, in the order of the configuration, also those that it is left out of.
   [[nodiscard]] std::vector<std::string> unitsOf( Lumo::IntfId intf ) const;

   // From now on the unit is without these; empty: it has all its interfaces. What is not of the unit is passed over.
   void leftOutIs( std::string const & unit, std::set<Lumo::IntfId> const & intfs );

   // Chooses each interface's profile by the present states of the units.
   void selectProfiles();
   // The interfaces that a unit would have shut down by their profiles if it entered now, without these.
   [[nodiscard]] std::vector<Lumo::IntfId> shutBy( std::string const & unit,
                                                   std::set<Lumo::IntfId> const & without ) const;

 private:
   struct Wanted;

   // Places in the configuration, in its order.
   using Places = std::vector<std::size_t>;

   void configHasChanged();
   void collectInterfaces();
   void collectUnits();
   [[nodiscard]] Places const & groupsOf( Lumo::IntfId intf ) const;
   [[nodiscard]] Lumo::IntfId named( std::string const & name ) const;
   void keepLeftOut( std::string const & unit, std::set<Lumo::IntfId> const & intfs );

   void bringIntoStep();
   [[nodiscard]] Wanted wanted() const;
   [[nodiscard]] bool withoutSome( Config::Unit const & unit, std::size_t group ) const;
   [[nodiscard]] bool isLeftOut( std::string const & unit, Lumo::IntfId intf ) const;
   void writeProfiles();
   void writeGroups( Wanted const & wanted );
   void writeUnits( Wanted const & wanted );
   void removeInstances( Wanted const & wanted );
   void removeMappings( Wanted const & wanted );
   void removeMembers( Wanted const & wanted );
   void removeGroups( Wanted const & wanted );
   void removeProfiles();

   [[nodiscard]] std::vector<bool> unitsUnderWay() const;
   // `entering`: place of a unit that has all its interfaces, and counts as under way whatever its state.
   [[nodiscard]] Kel::String8 selectedProfile( Lumo::IntfId intf, std::vector<bool> const & underWay,
                                               std::optional<std::size_t> entering = std::nullopt ) const;

   Maintenance::MaintenanceState & state_;
   Config::Config config_;
   std::map<std::string, std::set<Lumo::IntfId>> leftOut_;  // by unit, never empty

   // What the configuration says, by what is asked for.
   std::vector<Lumo::IntfId> interfaces_;
   // Most interfaces are in the same groups as others, so these are kept once for all who are.
   std::vector<Places> together_;                         // first that of no group
   std::unordered_map<Lumo::IntfId, uint32_t> inGroups_;  // by place in together_
   std::vector<std::vector<Lumo::IntfId>> groupIntfs_;    // by place of the group
   std::vector<Places> groupUnits_;                       // by place of the group
   std::vector<Places> unitGroups_;                       // by place of the unit, in the order of its own list
   std::map<std::string, std::vector<Lumo::IntfId>> unitIntfs_;
};

}  // namespace Service

// What metrics say of the box, as plain values of one moment.
//
// Taken at once when a scrape begins and told piece by piece afterwards, so that all of its lines belong together, and
// nobody has to care for records that change or go while a client reads. What is not known has no value, never 0: a
// program that scrapes is to see no series then.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "evidence/Accounts.h"
#include "links/HeldLinks.h"
#include "maintenance/MaintenanceService.h"
#include "records/Unit.h"
#include "views/Answers.h"

namespace Host {

struct Snapshot {
   struct Account {
      std::string interface;
      Evidence::Verdict verdict = Evidence::Verdict::missing;
      bool settled = false;
      std::optional<double> stillNeeded;  // s
      uint32_t breaks = 0;
      uint32_t spikes = 0;
   };
   struct Unit {
      std::string name;
      Maintenance::Unit::State state = Maintenance::Unit::State::unknown;
      std::optional<double> stateAge;  // s
      uint32_t generation = 0;
      bool ready = false;
      bool disturbed = false;
      std::optional<double> proofAge;     // s, since the time up to which readiness is proven
      std::optional<double> stillNeeded;  // s, until all accounts are settled if nothing happens
      uint32_t violations = 0;
      std::size_t interfaces = 0;  // by the configuration
      bool underWay = false;       // it has accounts, also where it has no interface
      std::vector<Account> accounts;
   };
   static constexpr std::size_t holdStates = static_cast<std::size_t>( Service::HoldState::released ) + 1;

   std::vector<Unit> units;                           // in the order of the configuration
   std::vector<Service::InterfaceAnswer> interfaces;  // of all units, in that order
   std::array<std::size_t, holdStates> held{};        // links with such a record
   std::size_t heldInTrouble = 0;
   bool storeTrouble = false;

   // `storeTrouble` is the host's to know.
   [[nodiscard]] static Snapshot of( Service::MaintenanceService & service, Maintenance::MaintenanceState const & state,
                                     Service::HeldLinkDir const & held, bool storeTrouble );
};

}  // namespace Host

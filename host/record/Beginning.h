// With what a recording begins: what it is, for people, then where and when, and what the agent has kept of units that
// are known.
#pragma once

#include <deque>
#include <string>

#include "dovra/EntityManager.h"
#include "kel/Value.h"
#include "state/MaintenanceState.h"

namespace Host {

struct RecordBeginning {
   Maintenance::MaintenanceState const & state;
   Dovra::EntityManager const & database;
   std::string host;
   std::string version;
   double clock;     // s, at which the replay begins
   double unixTime;  // s, then

   [[nodiscard]] std::deque<std::string> head() const;

 private:
   [[nodiscard]] std::deque<std::string> comments() const;
   [[nodiscard]] std::string unitsUnderWay() const;
   [[nodiscard]] Kel::Value kept() const;
};

}  // namespace Host

// The programs that a stage list names, as the stage manager asks for them to be run.
//
// Implemented by the host. maintsim's print and succeed at once.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "records/Unit.h"

namespace Service {

struct HookRequest {
   std::string stage;
   std::vector<std::string> run;  // program and arguments
   std::string unit;
   Maintenance::Unit::MaintenanceOp op;
   uint32_t generation;
};

class Hooks {
 public:
   // Called once, with the reason when it failed and an empty text when it succeeded; may be called from within run().
   using Done = std::function<void( std::string const & failure )>;

   virtual ~Hooks() = default;

   virtual void run( HookRequest const & request, Done done ) = 0;
   // Nobody waits for the unit's hook any more: it is ended, and its Done never called.
   virtual void giveUp( std::string const & unit ) = 0;
};

}  // namespace Service

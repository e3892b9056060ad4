// What the store of a stopped agent would have kept of the plug-in's records, so that its teardown does not reach them.
//
// Taken before the teardown and put back after it. It covers every directory that the plug-in writes, and makes each
// exactly what it was: what the teardown deleted is there again, and what it added is gone.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "dovra/StatePath.h"

namespace Sim {

class KeptState {
 public:
   // The database outlives this.
   explicit KeptState( Dovra::EntityManager const & database );

   void putBack() const;

 private:
   Dovra::EntityManager const & database_;
   std::vector<std::pair<std::string, Kel::Value>> kept_;  // by path
};

}  // namespace Sim

// One box of a simulated fleet: the agent as it is on a real one, on a connection that takes no thread, before a maintd
// that there is not. What the agent keeps outlives its deaths.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "box/BoxAgent.h"
#include "simulate/LightConnection.h"
#include "simulate/MadeUpMaintd.h"
#include "simulate/Script.h"

namespace Fleet {

class SimulatedBox {
 public:
   struct Plan {
      std::string name;
      std::vector<std::string> units;
      std::optional<NKey> key;
      double heartbeatSeconds = 15;
   };
   // What a whole fleet has done since it began.
   struct Counts {
      uint64_t statuses = 0;
      uint64_t orders = 0;  // documents that came, also the same again
   };

   // `network` outlives it; `now` is Unix time, as everywhere here.
   SimulatedBox( Plan plan, LightNetwork const & network, double now );
   SimulatedBox( SimulatedBox const & ) = delete;
   SimulatedBox & operator=( SimulatedBox const & ) = delete;

   // Once a second.
   void turn( double now, Counts & counts );
   // Of several of a kind it has the fault until all are over.
   void faultBegins( Fault fault );
   void faultEnds( Fault fault, double now );

   [[nodiscard]] bool connected() const { return connection_ && connection_->connected(); }
   [[nodiscard]] std::string trouble() const { return connection_ ? connection_->trouble() : "its agent has died"; }
   [[nodiscard]] bool faulty() const;

 private:
   // In memory, which for a simulation is durable enough.
   struct Kept final : Memory {
      [[nodiscard]] Rows rows() const override { return kept; }
      void commit( Changes const & changes ) override;

      Rows kept;
   };

   void live( double now );
   void handleFaults( double now );
   [[nodiscard]] bool has( Fault fault ) const;
   void take( Counts & counts );

   Plan const plan_;
   LightNetwork const & network_;
   std::map<Fault, int> faults_;
   Kept memory_;
   MadeUpMaintd maintd_;
   std::unique_ptr<LightConnection> connection_;  // null while the agent is dead
   std::optional<BoxAgent> agent_;
   uint64_t connects_ = 0;  // of the connection, as of the last turn
   double readAt_ = 0;      // s
};

}  // namespace Fleet

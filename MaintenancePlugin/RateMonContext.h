// What machines may ask of the root without knowing it: its inputs, the debug counters, the members of port-channels.
//
// The root is one (RateMonSm), and the only one in a running plug-in. A machine that needs no more than this, such as a
// sampler, depends on this header and not on everything that the root owns. What a context hands out lives as long as
// it does.
#pragma once

#include "LagMembers.h"
#include "RateMonSmDebugCounters.h"
#include "quill/IntfCounters.h"
#include "records/Bridging.h"
#include "records/Errdisable.h"
#include "records/Group.h"
#include "records/Interface.h"
#include "records/Lag.h"
#include "records/MonIntfStatus.h"
#include "records/Profile.h"
#include "records/Stage.h"
#include "records/Unit.h"

namespace MaintenanceMode {

// Everything that the root is given, in the order in which it takes it. Null where the state database has no such
// record.
struct RateMonSmInputs {
   Kel::Ptr<Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir const> phyCounterDir;
   Kel::Ptr<Lag::Config const> lagConfigDir;
   Kel::Ptr<Bridging::VlanStatusDir const> vlanStatusDir;
   Kel::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir;
   Kel::Ptr<Maintenance::Unit::StatusDir> unitStatusDir;
   Kel::Ptr<Maintenance::MaintenanceGroup::ConfigDir const> maintenanceGroupDir;
   Kel::Ptr<IntfGroup::StatusDir const> intfGroupStatusDir;
   Kel::Ptr<IntfMaintenanceProfile::ConfigDir const> intfProfileConfigDir;
   Kel::Ptr<IntfMaintenance::IntfToGroupDir const> intfToGroupDir;
   Kel::Ptr<Maintenance::GroupToUnitDir const> groupToUnitDir;
   Kel::Ptr<Errdisable::CauseStatus> errDisableCauseStatus;
   Kel::Ptr<Maintenance::MonIntfStatusDir> monIntfStatusDir;
   Kel::Ptr<Maintenance::Profile::DefaultProfile const> defaultIntfProfile;
   Kel::Ptr<Stage::CompletionStatusDir const> maintEnterCompletionStatus;
   Kel::Ptr<Stage::CompletionStatusDir const> maintExitCompletionStatus;
   Kel::Ptr<Stage::AgentConfig> maintEnterAgentConfig;
   Kel::Ptr<Stage::AgentConfig> maintExitAgentConfig;
   Kel::Ptr<Stage::AgentStatus> maintEnterAgentStatus;
   Kel::Ptr<Stage::AgentStatus> maintExitAgentStatus;
   Kel::Ptr<Stage::ProgressDir const> maintEnterProgressDir;
   Kel::Ptr<Stage::ProgressDir const> maintExitProgressDir;
};

class RateMonContext {
 public:
   explicit RateMonContext( RateMonSmInputs const & inputs );
   RateMonContext( RateMonContext const & ) = delete;
   RateMonContext & operator=( RateMonContext const & ) = delete;

   // The inputs, by name. Where the root was given none there is an empty record that nobody else sees: to a machine it
   // is all the same whether a directory is missing or has nothing in it, so no machine has to ask.
   [[nodiscard]] RateMonSmInputs const & in() const { return in_; }
   [[nodiscard]] LagMembers const & lagMembers() const { return lagMembers_; }
   [[nodiscard]] Kel::Ptr<RateMonSmDebugCounters> const & counters() const { return counters_; }

 protected:
   ~RateMonContext() = default;

 private:
   RateMonSmInputs const in_;
   LagMembers const lagMembers_;
   Kel::Ptr<RateMonSmDebugCounters> const counters_;
};

}  // namespace MaintenanceMode

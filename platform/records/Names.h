// The fixed names on which host, simulator and plug-in agree: where each directory of the state database stands, and
// what stages, causes and traces are called.
//
// They are part of the interface to scripts and stored state, so none of them changes. What an operator names (units,
// groups, profiles) is configuration and stands elsewhere.
#pragma once

#include <string>
#include <string_view>

#include "records/Cell.h"

namespace Maintenance {

// A unit goes into maintenance by an instance of the first stage class and comes out by an instance of the second.
inline constexpr std::string_view enterStageClass = "maintEnter";
inline constexpr std::string_view exitStageClass = "maintExit";
// The one stage that the rate monitor serves, in both classes.
inline constexpr std::string_view rateMonStage = "ratemon";
// The service's own stage, after it: ends when every interface of the unit is proven quiet at the same moment.
inline constexpr std::string_view verifyStage = "verify";
// The error-disable cause of an interface that its profile shut down.
inline constexpr std::string_view shutdownCause = "maintenance-shutdown";
// The rate monitor's framework trace.
inline constexpr char const * rateMonTraceHandle = "MaintenanceModeRateMonSm";

// What type of directory stands at each: state/MaintenanceState.h.
namespace Path {

inline constexpr std::string_view counterWriterStatus = "interface/ethIntfCounter/writerStatus";
inline constexpr std::string_view ethLagConfig = "interface/config/eth/lag";
inline constexpr std::string_view lagConfig = "lag/config";
inline constexpr std::string_view lagInput = "lag/input/config";
inline constexpr std::string_view vlanStatus = "bridging/vlan/status";
inline constexpr std::string_view intfStatus = "interface/status/all";
inline constexpr std::string_view unitStatus = "maintenance/unit/status";
inline constexpr std::string_view groupConfig = "maintenance/group/config";
inline constexpr std::string_view groupStatus = "group/status/interface";
inline constexpr std::string_view profiles = "maintenance/profile/config/interface";
inline constexpr std::string_view defaultProfile = "maintenance/profile/config/default/interface";
inline constexpr std::string_view intfToGroup = "maintenance/mapping/member/interface";
inline constexpr std::string_view groupToUnit = "maintenance/mapping/group";
inline constexpr std::string_view errdisableCauses = "interface/errdisable/cause";
inline constexpr std::string_view errdisableCauseGroups = "interface/errdisable/causegroup";
inline constexpr std::string_view monIntfStatus = "maintenance/interface/status/ratemon";
// The service's own: what it knows of the interfaces of units under way, and what it keeps of each stay.
inline constexpr std::string_view accounts = "maintenance/evidence/account";
inline constexpr std::string_view windows = "maintenance/evidence/window";

// The directories of a stage class exist once per cell; the service runs in cell 0.
[[nodiscard]] inline std::string ofStageClass( std::string_view before, std::string_view cls, std::string_view after ) {
   return Cell::path( std::string( before ).append( cls ).append( after ), 0 );
}
[[nodiscard]] inline std::string stageAgentConfig( std::string_view cls ) {
   return ofStageClass( "stageInput/", cls, "/MaintenanceMode" );
}
[[nodiscard]] inline std::string stageAgentStatus( std::string_view cls ) {
   return ofStageClass( "stageAgentStatus/", cls, "/MaintenanceMode" );
}
[[nodiscard]] inline std::string stageProgress( std::string_view cls ) {
   return ofStageClass( "stage/", cls, "/progress" );
}
[[nodiscard]] inline std::string stageCompletion( std::string_view cls ) {
   return ofStageClass( "stage/", cls, "/completionstatus" );
}

}  // namespace Path
}  // namespace Maintenance

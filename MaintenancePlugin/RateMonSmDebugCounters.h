// How often each noteworthy branch of the logic was taken, mostly the branches that skip or refuse work. Owned by the
// root; nothing reads them back but the info dump. All start at 0 and are only added to.
#pragma once

#include "kel/Attributes.h"

namespace MaintenanceMode {

class RateMonSmDebugCounters final : public Kel::Entity {
   KEL_ENTITY( RateMonSmDebugCounters, "MaintenanceMode::RateMonSmDebugCounters", Kel::Name, countersName )
   KEL_COUNTER( uint32_t, numMaintEnter )                     // units seen entering maintenance
   KEL_COUNTER( uint32_t, numMaintExit )                      // units seen exiting maintenance
   KEL_COUNTER( uint32_t, numMaintExitNoUnitMon )             // exits for a unit that had no unit monitor
   KEL_COUNTER( uint32_t, numMaintEnterUnitMonPresent )       // enters for a unit that already had a unit monitor
   KEL_COUNTER( uint32_t, numMaintExitInMaintModeEnter )      // exits while the unit was still entering maintenance
   KEL_COUNTER( uint32_t, numNotifyStageCompletion )          // stage completions reported
   KEL_COUNTER( uint32_t, numUnitStatusDel )                  // unit status entries removed
   KEL_COUNTER( uint32_t, numNoVlanStatus )                   // samples of a VLAN interface without VLAN status
   KEL_COUNTER( uint32_t, numNoIntfCounter )                  // samples of an interface without a counter entry
   KEL_COUNTER( uint32_t, numNoNotifyNoStageInput )           // completions not reported: no stage input
   KEL_COUNTER( uint32_t, numNoNotifyActiveStageMismatch )    // completions not reported: our stage is not active
   KEL_COUNTER( uint32_t, numNoNotifyAlreadyNotified )        // kept for the dump's readers; repeated reports are made
   KEL_COUNTER( uint32_t, numNoNotifyNoUnitStatus )           // completions not reported: no unit status
   KEL_COUNTER( uint32_t, numIntfMonInitialStatePassive )     // monitors started directly in passive monitoring
   KEL_COUNTER( uint32_t, numStartIntfMonInUnits )            // calls to start monitoring an interface in its units
   KEL_COUNTER( uint32_t, numStopIntfMonInUnits )             // calls to stop monitoring an interface in its units
   KEL_COUNTER( uint32_t, numIntfMonProfileChange )           // profile changes applied to interface monitors
   KEL_COUNTER( uint32_t, numIntfMonProfileDelete )           // profile deletions seen by interface monitors
   KEL_COUNTER( uint32_t, numIntfMonPendingProfileResolved )  // interface monitors whose missing profile appeared
   KEL_COUNTER( uint32_t, numIntfMonDefProfileUpdate )        // default-profile updates applied
   KEL_COUNTER( uint32_t, numIntfMonIntfNotSupported )        // interfaces skipped: unsupported kind
   KEL_COUNTER( uint32_t, numIntfMonNoIntfStatus )            // interfaces skipped: no interface status
   KEL_COUNTER( uint32_t, numIntfMonIntfOperNotUp )           // interfaces skipped: not operationally up
   KEL_ENTITY_END
};

}  // namespace MaintenanceMode

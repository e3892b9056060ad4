// What the rate monitor publishes per interface. The plug-in is the only writer.
#pragma once

#include "kel/Attributes.h"
#include "records/Interface.h"
#include "records/IntfId.h"
#include "records/Profile.h"

namespace Maintenance {

enum class MonIntfState : uint8_t {
   notMonitoring = 0,
   thresholdMonitoring = 1,  // waiting for the traffic to go
   passiveMonitoring = 2,    // drained or shut down, watched for traffic that comes back
   monitoringStopped = 3,
};

constexpr char const * enumName( MonIntfState s ) {
   switch( s ) {
      case MonIntfState::notMonitoring: return "notMonitoring";
      case MonIntfState::thresholdMonitoring: return "thresholdMonitoring";
      case MonIntfState::passiveMonitoring: return "passiveMonitoring";
      case MonIntfState::monitoringStopped: return "monitoringStopped";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( MonIntfState )

// One monitored interface. Written by its sampler and its drain monitor, read by everyone else. No record means that
// nobody watches the interface; it never means "not drained". "Pre" and "post" are before and since it became passive.
class MonIntfStatus final : public Kel::Entity {
   KEL_ENTITY( MonIntfStatus, "Maintenance::MonIntfStatus", Lumo::IntfId, intfId )
   KEL_ATTR_NOTIFY( Kel::String8, profileName, onProfileName )  // of the profile in force
   KEL_ATTR( double, startTime )                                // s, when monitoring began
   KEL_ATTR_NOTIFY( MonIntfState, state, onState )
   KEL_ATTR( double, stateTime )                                     // s, when state changed last
   KEL_PASSING_NOTIFY( Interface::IntfRates, curRates, onCurRates )  // bit/s, latest sample
   KEL_PASSING( Interface::IntfRates, prevRates )                    // bit/s, the sample before
   KEL_PASSING( double, lastSampleTime )                             // s
   KEL_COUNTER( uint32_t, totalSamples )
   KEL_COUNTER( uint32_t, numConsecutiveDrainedSamples )  // in a row below the threshold
   KEL_COUNTER( uint32_t, numSamplesAboveThresholdPreMaint )
   KEL_COUNTER( uint32_t, numSamplesBelowThresholdPreMaint )
   KEL_COUNTER( uint32_t, numSamplesAboveThresholdPostMaint )
   KEL_COUNTER( uint32_t, numSamplesBelowThresholdPostMaint )
   KEL_ATTR( bool, spikeUnderMaint )  // traffic came back after it had drained
   KEL_ATTR( bool, stale )            // left from before a restart, not yet taken up again
   KEL_ENTITY_END

   MonIntfStatus( Lumo::IntfId intfId, Kel::String8 const & profileName, double startTime ) : MonIntfStatus( intfId ) {
      profileName_ = profileName;
      startTime_ = startTime;
   }

   // Side by side in memory (kel/InBlocks.h). Declared only, because plug-ins make them, too, and have copies of their
   // own of all that is inline.
   static void * operator new( std::size_t bytes );
   static void operator delete( void * object );

   // How long the traffic has been below the threshold without a break. Each sample of the run stands for the interval
   // of the profile in force, however late it came.
   [[nodiscard]] double quietSeconds( IntfMaintenanceProfile::Config const & profile ) const {
      return numConsecutiveDrainedSamples() * profile.sampleInterval();
   }
};

class MonIntfStatusDir final : public Kel::Entity {
   KEL_ENTITY( MonIntfStatusDir, "Maintenance::MonIntfStatusDir", Kel::Name, dirName )
   KEL_CHILDREN( MonIntfStatus, Lumo::IntfId, monIntfStatus, onMonIntfStatus )
   KEL_SET( Lumo::IntfId, monIntfEnterMaint, onMonIntfEnterMaint )            // waiting for their traffic to go
   KEL_SET( Lumo::IntfId, monIntfUnderMaint, onMonIntfUnderMaint )            // drained or shut down
   KEL_SET( Lumo::IntfId, monIntfSpikeUnderMaint, onMonIntfSpikeUnderMaint )  // traffic came back
   KEL_ENTITY_END
};

}  // namespace Maintenance

#include "RateMonContext.h"

namespace MaintenanceMode {

namespace {

template<class Record>
void orEmpty( Kel::Ptr<Record> & input ) {
   if( !input ) input = new std::remove_const_t<Record>( "absent" );
}

RateMonSmInputs complete( RateMonSmInputs in ) {
   orEmpty( in.phyCounterDir );
   orEmpty( in.lagConfigDir );
   orEmpty( in.vlanStatusDir );
   orEmpty( in.allIntfStatusDir );
   orEmpty( in.unitStatusDir );
   orEmpty( in.maintenanceGroupDir );
   orEmpty( in.intfGroupStatusDir );
   orEmpty( in.intfProfileConfigDir );
   orEmpty( in.intfToGroupDir );
   orEmpty( in.groupToUnitDir );
   orEmpty( in.errDisableCauseStatus );
   orEmpty( in.monIntfStatusDir );
   orEmpty( in.defaultIntfProfile );
   orEmpty( in.maintEnterCompletionStatus );
   orEmpty( in.maintExitCompletionStatus );
   orEmpty( in.maintEnterAgentConfig );
   orEmpty( in.maintExitAgentConfig );
   orEmpty( in.maintEnterAgentStatus );
   orEmpty( in.maintExitAgentStatus );
   orEmpty( in.maintEnterProgressDir );
   orEmpty( in.maintExitProgressDir );
   return in;
}

}  // namespace

RateMonContext::RateMonContext( RateMonSmInputs const & inputs )
   : in_( complete( inputs ) ),
     lagMembers_( in_.lagConfigDir ),
     counters_( new RateMonSmDebugCounters( "counters" ) ) {}

}  // namespace MaintenanceMode

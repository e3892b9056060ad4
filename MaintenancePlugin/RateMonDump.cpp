// The plug-in's whole state as text, for a person who has nothing else: each machine prints its own part, in key order.
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "RateMonPlugin.h"
#include "RateMonSm.h"
#include "kel/ActivityLoop.h"

namespace MaintenanceMode {

namespace {

// Lines that begin with the same number of blanks, written at once.
class Lines {
 public:
   Lines( int fd, int indent ) : fd_( fd ), prefix_( static_cast<std::size_t>( indent ), ' ' ) {}

   [[gnu::format( printf, 2, 3 )]] void operator()( char const * format, ... ) const {
      std::va_list args;
      va_start( args, format );
      // Line by line and unbuffered: what an agent that dies in its dump has written is there.
      ::dprintf( fd_, "%s", prefix_.c_str() );
      ::vdprintf( fd_, format, args );
      va_end( args );
   }

 private:
   int const fd_;
   std::string const prefix_;
};

char const * boolText( bool b ) { return b ? "true" : "false"; }
std::string text( Lumo::IntfId intf ) { return std::string( intf.name() ); }
unsigned count( std::size_t n ) { return static_cast<unsigned>( n ); }
double age( double time ) { return Kel::now() - time; }
// A counter without a value prints as 0, because the line has no room for a word.
unsigned long long octets( Brim::MaybeU63 counter ) { return counter.hasValue() ? counter.value() : 0; }

// The entries of a walk in the order of their keys.
template<class Walk>
auto inKeyOrder( Walk walk ) {
   std::vector<std::decay_t<decltype( ( *walk.begin() ).key )>> keys;
   for( auto [key, value] : walk ) keys.push_back( key );
   std::sort( keys.begin(), keys.end() );
   return keys;
}

// In the order that readers of dumps know, which is not quite that of the declarations.
void dumpCounters( Lines const & line, RateMonSmDebugCounters const & counters ) {
   for( char const * name : { "numMaintEnter",
                              "numMaintExit",
                              "numMaintExitInMaintModeEnter",
                              "numMaintExitNoUnitMon",
                              "numMaintEnterUnitMonPresent",
                              "numNotifyStageCompletion",
                              "numUnitStatusDel",
                              "numNoVlanStatus",
                              "numNoIntfCounter",
                              "numNoNotifyNoStageInput",
                              "numNoNotifyActiveStageMismatch",
                              "numNoNotifyAlreadyNotified",
                              "numNoNotifyNoUnitStatus",
                              "numIntfMonInitialStatePassive",
                              "numStartIntfMonInUnits",
                              "numStopIntfMonInUnits",
                              "numIntfMonProfileChange",
                              "numIntfMonProfileDelete",
                              "numIntfMonPendingProfileResolved",
                              "numIntfMonDefProfileUpdate",
                              "numIntfMonIntfNotSupported",
                              "numIntfMonNoIntfStatus",
                              "numIntfMonIntfOperNotUp" } ) {
      line( "%s: %s\n", name, counters.kelTypeInfo().attribute( name )->print( counters ).c_str() );
   }
}

void dumpStatusDir( int fd, int indent, Maintenance::MonIntfStatusDir const & dir ) {
   Lines( fd, 2 )( "MonIntfStatusDir:\n" );
   Lines const line( fd, indent + 4 );
   line( "Num monIntfStatus entries: %u\n", count( dir.monIntfStatuss() ) );
   line( "Num monIntfEnterMaint : %u\n", count( dir.monIntfEnterMaints() ) );
   line( "Num monIntfUnderMaint : %u\n", count( dir.monIntfUnderMaints() ) );
   line( "Num monIntfSpikeUnderMaint : %u\n", count( dir.monIntfSpikeUnderMaints() ) );
}

void dumpShutdowns( int fd, int indent, Errdisable::CauseStatus const & cause ) {
   Lines( fd, 2 )( "Interfaces shutdown for maintenance:\n" );
   Lines const line( fd, indent + 4 );
   line( "causeGroup: %s\n", cause.name().c_str() );
   line( "num intfs: %u\n", count( cause.intfStatuss() ) );
   for( Lumo::IntfId const intf : inKeyOrder( cause.intfStatusIteratorConst() ) ) {
      double const since = *cause.intfStatus( intf );
      Lines( fd, indent + 6 )( "%s at %f (%fs ago)\n", text( intf ).c_str(), since, age( since ) );
   }
}

void dumpRecord( Lines const & line, Maintenance::MonIntfStatus const & status ) {
   auto const & cur = status.curRates();
   auto const & prev = status.prevRates();
   line( "MonIntfStatus : %s\n", status.name().c_str() );
   line( "startTime: %f (%fs ago)\n", status.startTime(), age( status.startTime() ) );
   line( "lastSampleTime: %f (%fs ago)\n", status.lastSampleTime(), age( status.lastSampleTime() ) );
   line( "curRates: in/out (Mbps): %f / %f (updated %fs ago)\n", cur.inBitsRate / 1e6, cur.outBitsRate / 1e6,
         age( cur.updateTime ) );
   line( "prevRates: in/out (Mbps): %f / %f (updated %fs ago)\n", prev.inBitsRate / 1e6, prev.outBitsRate / 1e6,
         age( prev.updateTime ) );
   line( "numConsecutiveDrainedSamples: %u\n", status.numConsecutiveDrainedSamples() );
   line( "totalSamples: %u\n", status.totalSamples() );
   line( "numSamplesAboveThresholdPreMaint: %u\n", status.numSamplesAboveThresholdPreMaint() );
   line( "numSamplesBelowThresholdPreMaint: %u\n", status.numSamplesBelowThresholdPreMaint() );
   line( "numSamplesAboveThresholdPostMaint: %u\n", status.numSamplesAboveThresholdPostMaint() );
   line( "numSamplesBelowThresholdPostMaint: %u\n", status.numSamplesBelowThresholdPostMaint() );
   line( "state: %s\n", enumName( status.state() ) );
   line( "stateTime: %f (%fs ago)\n", status.stateTime(), age( status.stateTime() ) );
   line( "spikeUnderMaint: %s\n", boolText( status.spikeUnderMaint() ) );
   line( "stale: %s\n", boolText( status.stale() ) );
}

}  // namespace

void RateMonPluginInfoDumper::dump( int fd ) {
   Lines const line( fd, 0 );
   line( "Rate Monitoring information\n" );
   if( !context() ) {
      line( "RateMonSmLoader not initialized\n" );
   } else if( auto const & root = context()->rateMonSm() ) {
      root->dump( fd, 0 );
   }
}

// The root's own lines have two blanks whatever the indentation, which is for those below it.
void RateMonSm::dump( int fd, int indent ) const {
   Lines( fd, 0 )( "RateMonSm:\n" );
   Lines const line( fd, 2 );
   line( "initialized : %s\n", boolText( initialized() ) );
   dumpCounters( line, *counters() );
   line( "refCount: %u\n", getRefCount() );
   line( "Num unitMon entries: %u\n", count( unitMons() ) );
   line( "Num intfMon entries: %u\n", count( intfMons() ) );
   line( "Num unitMonIntfInput entries: %u\n", count( unitMonIntfInput()->unitIntfInputs() ) );
   line( "Num unitDrainedIntf entries: %u\n", count( unitDrainedIntf()->unitIntfInputs() ) );
   line( "Dumping UnitMonSms:\n" );
   for( auto const & unitName : inKeyOrder( unitMonIteratorConst() ) ) unitMon( unitName )->dump( fd, indent + 2 );
   line( "Dumping IntfMonSms:\n" );
   for( Lumo::IntfId const intf : inKeyOrder( intfMonIteratorConst() ) ) intfMon( intf )->dump( fd, indent + 2 );
   if( intfStatusSm() ) intfStatusSm()->dump( fd, indent + 2 );
   if( in().monIntfStatusDir ) dumpStatusDir( fd, indent, *in().monIntfStatusDir );
   if( in().errDisableCauseStatus ) dumpShutdowns( fd, indent, *in().errDisableCauseStatus );
}

void UnitMonSm::dump( int fd, int indent ) const {
   Lines const line( fd, indent );
   line( "Unit: %s\n", unitName().c_str() );
   line( "initialized: %s\n", boolText( initialized() ) );
   line( "genId: %u\n", genId() );
   line( "Num monIntf entries: %u\n", count( monIntf()->intfs() ) );
   line( "Num drainedIntf entries: %u\n", count( drainedIntf()->intfs() ) );
}

void IntfMonSm::dump( int fd, int indent ) const {
   Lines const line( fd, indent );
   line( "Interface: %s\n", text( intfId() ).c_str() );
   line( "initialState: %s\n", enumName( initialState() ) );
   line( "state: %s\n", enumName( state() ) );
   line( "num dependentUnits: %u\n", count( monitoredIntf()->dependentUnits() ) );
   std::string units;
   for( auto const & unitName : inKeyOrder( monitoredIntf()->dependentUnitIterator() ) )
      units += " " + unitName.str() + ",";
   line( "%s\n", units.c_str() );
   line( "oldProfileName: %s\n", oldProfileName().c_str() );
   line( "Profile: %s\n", intfProfile()->profileName().c_str() );
   monitoredIntf()->dump( fd, indent + 2 );
}

void MonitoredIntf::dump( int fd, int indent ) const {
   Lines const line( fd, indent );
   line( "Monitored interface: %s\n", text( intfId() ).c_str() );
   line( "profileName: %s\n", profileName().c_str() );
   line( "num memberTrafficCounters: %u\n", count( memberTrafficCounterss() ) );
   for( Lumo::IntfId const member : inKeyOrder( memberTrafficCountersIteratorConst() ) ) {
      auto const info = memberTrafficCounters( member );
      auto const & rates = info->rates();
      line( "interface: %s\n", text( member ).c_str() );
      line( "  prev in/out: %llu / %llu (updated %fs ago)\n", octets( info->prevStats().inOctets ),
            octets( info->prevStats().outOctets ), age( info->lastUpdateTime() ) );
      line( "  rates in/out (Mbps): %f / %f (updated %fs ago)\n", rates.inBitsRate / 1e6, rates.outBitsRate / 1e6,
            age( rates.updateTime ) );
   }
   if( monIntfStatus() ) dumpRecord( line, *monIntfStatus() );
}

void IntfStatusSm::dump( int fd, int indent ) const {
   Lines const line( fd, indent );
   line( "IntfStatusSm codef details:\n" );
   line( "bookmark: %s\n", text( bookmark() ).c_str() );
   line( "backlogSize: %llu\n", static_cast<unsigned long long>( backlogSize() ) );
   line( "backlogQuantum: %f\n", backlogQuantum() );
   line( "updatesSeen: %llu\n", static_cast<unsigned long long>( updatesSeen() ) );
   line( "updatesProcessed: %llu\n", static_cast<unsigned long long>( updatesProcessed() ) );
   line( "warm: %s\n", boolText( warm() ) );
   line( "updatesCoalesced: %llu\n", static_cast<unsigned long long>( updatesCoalesced() ) );
   line( "timeUsed: %f\n", timeUsed() );
   line( "dispatchCount: %llu\n", static_cast<unsigned long long>( dispatchCount() ) );
   line( "yieldBeforeFinishingCount: %llu\n", static_cast<unsigned long long>( yieldBeforeFinishingCount() ) );
}

}  // namespace MaintenanceMode

#include "MonitoredIntf.h"

#include <algorithm>

#include "RateMonContext.h"
#include "RateMonTrace.h"
#include "kel/ActivityLoop.h"

KEL_TYPE( MaintenanceMode::IntfCounterInfo )
KEL_TYPE( MaintenanceMode::MonitoredIntf )
KEL_TYPE( MaintenanceMode::MonitoredIntfDir )

namespace MaintenanceMode {

using Interface::IntfRates;
using Lumo::EthIntfId;
using Lumo::PortChannelIntfId;
using Lumo::VlanIntfId;

bool isSupportedIntf( Lumo::IntfId intfId ) {
   // Asked first: a sub-interface passes for the interface that it divides, and its traffic is in that one's counters.
   if( Lumo::SubIntfId::isSubIntfId( intfId ) ) return false;
   return EthIntfId::isEthIntfId( intfId ) || PortChannelIntfId::isPortChannelIntfId( intfId ) ||
          VlanIntfId::isVlanIntfId( intfId );
}

namespace {

// Octets to bits per second. The product is formed in 64 bits and only then becomes a double; a counter without a value
// in either sample makes no rate.
double bitsRate( Brim::MaybeU63 delta, double deltaTime ) {
   if( !delta.hasValue() ) return 0;
   return static_cast<double>( delta.value() * 8 ) / deltaTime;
}

}  // namespace

MonitoredIntf::MonitoredIntf( Lumo::IntfId id, RateMonContext * root, Kel::String8 const & profile )
   : intfId_( id ), rootSm_( root ), profileName_( profile ) {}

void MonitoredIntf::handleInitialized() {
   KEL_ASSERT( !initialized() );
   auto const & statusDir = rootSm()->in().monIntfStatusDir;
   // Known here before it can be seen, or changed, by anybody else: a unit that enters from within shares this sampler.
   monIntfStatusIs( statusDir->monIntfStatus( intfId() ) );
   if( monIntfStatus() ) {
      // Left by an agent before this one, and taken up with its counts: a restart does not make a link wait anew.
      monIntfStatus()->profileNameIs( profileName() );
   } else {
      monIntfStatusIs( new Maintenance::MonIntfStatus( intfId(), profileName(), Kel::now() ) );
      statusDir->monIntfStatusIs( monIntfStatus() );
      TRACE( 5, "Created new mon intf status for intf " << intfId() << ", profile " << profileName() );
      RING( 3, "created new mon intf status for intf {}, profile {}", intfId(), profileName() );
   }
   if( !inService() ) return;  // whoever saw the record come has ended the monitoring
   monIntfStatus()->staleIs( false );
   updateTrafficRates();
   // Only now: the sample just taken primes the counters and makes no rate.
   initializedIs( true );
}

void MonitoredIntf::handleProfileName() {
   TRACE_AS( 5, "void MaintenanceMode::MonitoredIntf::handleProfileName()",
             "intf " << intfId() << ", new profileName " << profileName() );
   if( monIntfStatus() ) monIntfStatus()->profileNameIs( profileName() );
}

void MonitoredIntf::updateTrafficRates() {
   if( EthIntfId::isEthIntfId( intfId() ) ) {
      getEthPhyIntfTrafficCounters( intfId() );
   } else if( PortChannelIntfId::isPortChannelIntfId( intfId() ) ) {
      getLagIntfTrafficCounters( intfId() );
   } else if( VlanIntfId::isVlanIntfId( intfId() ) ) {
      getVlanIntfTrafficCounters( intfId() );
   } else {
      KEL_ASSERT_TEXT( false, "0" );
   }
}

IntfCounterInfo * MonitoredIntf::counterInfo( Lumo::IntfId sampled ) {
   if( sampled != intfId() ) return memberTrafficCounters( sampled ).get();
   if( !ownInfo_ ) ownInfo_ = memberTrafficCounters( sampled ).get();
   return ownInfo_;
}

IntfRates MonitoredIntf::getEthPhyIntfTrafficCounters( Lumo::IntfId argIntfId ) {
   KEL_ASSERT_TEXT( EthIntfId::isEthIntfId( argIntfId ), "Lumo::EthIntfId::isEthIntfId( argIntfId )" );
   auto const & counters = *rootSm()->in().phyCounterDir;
   IntfCounterInfo * info = counterInfo( argIntfId );
   if( !( info ? info->hasCounters( counters ) : counters.currentStatistics( argIntfId ) != nullptr ) ) {
      // Nothing is published: the record keeps the rates of the last sample, which say more than a zero that nobody
      // measured.
      rootSm()->counters()->numNoIntfCounterInc( 1 );
      return {};
   }
   if( !info ) info = memberTrafficCountersIs( argIntfId ).get();
   // A member reached twice within one sample keeps the rates of its first read: no time passed, no rate to be had.
   double const now = Kel::now();
   if( initialized() && info->lastUpdateTime() == now ) return info->rates();
   // The old values before the new ones are stored, the counters before the time: a rate is their change over the time
   // between.
   auto const prev = info->prevStats();
   double const deltaTime = now - info->lastUpdateTime();
   auto const stats = info->statistics( counters );
   info->prevStatsIs( stats );
   info->lastUpdateTimeIs( now );
   // A sampler's first sample has nothing to compare with. A member that joins later has zeros, which are its start
   // here.
   if( initialized() ) {
      auto const deltaIn = stats.inOctets - prev.inOctets;
      auto const deltaOut = stats.outOctets - prev.outOctets;
      IntfRates const rates{ bitsRate( deltaIn, deltaTime ), bitsRate( deltaOut, deltaTime ), now };
      info->ratesIs( rates );
      TRACE( 9, "intf " << argIntfId << ": cur in/out " << stats.inOctets << " / " << stats.outOctets );
      TRACE( 9, "intf " << argIntfId << ": prev in/out " << prev.inOctets << " / " << prev.outOctets );
      TRACE( 9,
             "intf " << argIntfId << ": delta in/out " << deltaIn << " / " << deltaOut << ", deltaTime " << deltaTime );
      TRACE( 9, "intf " << argIntfId << ": rates in/out (bps) " << rates.inBitsRate << " / " << rates.outBitsRate );
   }
   publishIfOwn( argIntfId, info->rates() );
   return info->rates();
}

IntfRates MonitoredIntf::getLagIntfTrafficCounters( Lumo::IntfId argIntfId ) {
   KEL_ASSERT_TEXT( PortChannelIntfId::isPortChannelIntfId( argIntfId ),
                    "Lumo::PortChannelIntfId::isPortChannelIntfId( argIntfId )" );
   // Members that are no Ethernet interfaces have no counters of their own; what they carry is in those of their
   // members.
   IntfRates sum;
   auto const & lags = rootSm()->lagMembers();
   for( std::size_t i = 0; i < lags.count( argIntfId ); ++i ) {
      Lumo::IntfId const member = lags.member( argIntfId, i );
      if( !EthIntfId::isEthIntfId( member ) ) continue;
      IntfRates const rates = getEthPhyIntfTrafficCounters( member );
      sum.inBitsRate += rates.inBitsRate;
      sum.outBitsRate += rates.outBitsRate;
   }
   sum.updateTime = Kel::now();
   publishIfOwn( argIntfId, sum );
   return sum;
}

IntfRates MonitoredIntf::getVlanIntfTrafficCounters( Lumo::IntfId argIntfId ) {
   KEL_ASSERT_TEXT( VlanIntfId::isVlanIntfId( argIntfId ), "Lumo::VlanIntfId::isVlanIntfId( argIntfId )" );
   // The busiest member and not the sum: a frame that crosses the VLAN is counted by the member where it comes in and
   // by the one where it goes out.
   IntfRates busiest;
   auto const vlanId = VlanIntfId::vlanId( argIntfId );
   auto const & vlanStatusDir = rootSm()->in().vlanStatusDir;
   auto const vlan = vlanStatusDir ? vlanStatusDir->vlanStatus( vlanId ) : nullptr;
   if( vlan ) {
      for( auto [member, present] : vlan->intfIteratorConst() ) {
         if( Lumo::CpuIntfId::isCpuIntfId( member ) ) continue;  // the box's own end; no cable hangs on it
         KEL_ASSERT_TEXT( PortChannelIntfId::isPortChannelIntfId( member ) || EthIntfId::isEthIntfId( member ), "0" );
         IntfRates const rates = PortChannelIntfId::isPortChannelIntfId( member )
                                    ? getLagIntfTrafficCounters( member )
                                    : getEthPhyIntfTrafficCounters( member );
         busiest.inBitsRate = std::max( busiest.inBitsRate, rates.inBitsRate );
         busiest.outBitsRate = std::max( busiest.outBitsRate, rates.outBitsRate );
      }
   } else {
      // Here zero rates are published, unlike for missing counters: a VLAN that does not exist carries nothing.
      rootSm()->counters()->numNoVlanStatusInc( 1 );
      RING( 1, "getVlanIntfTrafficCounters: no vlan status for vlan {}, intf {}", vlanId, argIntfId );
   }
   busiest.updateTime = Kel::now();
   publishIfOwn( argIntfId, busiest );
   return busiest;
}

// A member that is read on behalf of a port-channel or VLAN may be monitored itself, by a sampler of its own: that one
// publishes.
void MonitoredIntf::publishIfOwn( Lumo::IntfId sampled, IntfRates const & rates ) {
   if( sampled == intfId() ) setCurRates( monIntfStatus(), rates );
}

void MonitoredIntf::setCurRates( Kel::Ptr<Maintenance::MonIntfStatus> const & status, IntfRates const & rates ) {
   KEL_ASSERT_TEXT( status, "monIntfStatus" );
   TRACE( 5, "IntfId:" << intfId() << " Prev[ inBitsRate:" << status->curRates().inBitsRate
                       << " outBitsRate:" << status->curRates().outBitsRate
                       << " lastSampleTime:" << status->lastSampleTime() << "] Cur[ inBitsRate:" << rates.inBitsRate
                       << " outBitsRate:" << rates.outBitsRate << " curSampleTime:" << Kel::now() );
   // In this order: the aggregates replace the previous rates by the current ones when they hear of the latter.
   status->prevRatesIs( status->curRates() );
   status->curRatesIs( rates );
   status->lastSampleTimeIs( Kel::now() );
}

void MonitoredIntf::prepareToDie() {
   TRACE( 5, "MonitoredIntf " << intfId() );
   auto const & statusDir = rootSm()->in().monIntfStatusDir;
   statusDir->monIntfStatusDel( intfId() );
   // Whoever heard of a removal may have begun to monitor the interface anew: the flags are the new record's then.
   auto const takenOver = [&] { return statusDir->monIntfStatus( intfId() ) != nullptr; };
   if( !takenOver() ) statusDir->monIntfEnterMaintDel( intfId() );
   if( !takenOver() ) statusDir->monIntfUnderMaintDel( intfId() );
   if( !takenOver() ) statusDir->monIntfSpikeUnderMaintDel( intfId() );
}

Kel::Ptr<MonitoredIntf> MonitoredIntfDir::monitoredIntfIs( Lumo::IntfId intfId, RateMonContext * rootSm,
                                                           Kel::String8 const & profileName ) {
   if( auto const present = monitoredIntf( intfId ) ) {
      if( present->rootSm() != rootSm ) {
         throw Kel::RangeError(
            "Reinstantiating the entity with name " + present->name() +
            " where constructor parameter attribute _rootSm has a different value of another root" );
      }
      return present;
   }
   // In the directory first: the aggregator looks it up there when the first sample tells of rates, and whoever ends
   // the monitoring from within its start must find it.
   auto const made = monitoredIntfIs( Kel::Ptr<MonitoredIntf>( new MonitoredIntf( intfId, rootSm, profileName ) ) );
   if( made->inService() ) made->handleInitialized();
   return made;
}

}  // namespace MaintenanceMode

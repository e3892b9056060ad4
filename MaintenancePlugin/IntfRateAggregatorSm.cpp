#include "IntfRateAggregatorSm.h"

#include "RateMonTrace.h"
#include "UnitStatusCache.h"
#include "kel/ActivityLoop.h"
#include "kel/InBlocks.h"
#include "kel/Whole.h"

KEL_TYPE( MaintenanceMode::IntfRateAggregatorSm )

namespace MaintenanceMode {

using Interface::IntfRates;
using Maintenance::Unit::TrafficRates;

// The rates of one interface, and which units have been told of the latest.
//
// A rate is in the record before anybody hears of it, and each unit's aggregate is a write that anybody may hear of. So
// there are moments in which some aggregates hold the current rates and some still the previous ones, and whoever makes
// the interface leave or join a unit in such a moment has to count what that very unit's aggregate holds.
class IntfRateAggregatorSm::KelMonIntfStatus final
   : public Kel::OwnedBy<IntfRateAggregatorSm, Maintenance::MonIntfStatus::NotifieeConst>,
     public Kel::InBlocks<KelMonIntfStatus> {
 public:
   using OwnedBy::OwnedBy;
   void handleInitialized() { toldOf_ = notifier()->curRates().updateTime; }
   void onCurRates() override {
      if( owner().initialized() ) handleMonIntfStatusRateChange();
   }

   // What the unit's aggregate holds of this interface, or would if it counted it.
   [[nodiscard]] IntfRates const & countedFor( UnitStatusCache::Status const & unit ) const {
      bool const told = toldOf_ == notifier()->curRates().updateTime && ( told_ == all || units_.holds( unit, told_ ) );
      return told ? notifier()->curRates() : notifier()->prevRates();
   }

 private:
   static constexpr uint32_t all = ~uint32_t{ 0 };

   void handleMonIntfStatusRateChange();
   [[nodiscard]] bool unitsKnown();
   [[noreturn, gnu::cold]] void failWithoutStatus() const;

   UnitStatusCache units_;
   double toldOf_ = 0;    // the update time of the rates that were told last, or are being told
   uint32_t told_ = all;  // how many of the units in order have been told of those, `all` when that is done
};

class IntfRateAggregatorSm::KelMonitoredIntf final
   : public Kel::OwnedBy<IntfRateAggregatorSm, MonitoredIntf::NotifieeConst>,
     public Kel::InBlocks<KelMonitoredIntf> {
 public:
   using OwnedBy::OwnedBy;
   void onDependentUnit( Kel::String8 unitName ) override {
      ++owner().unitsEpoch_;
      if( owner().initialized() ) handleMonitoredIntfConfigChange( unitName );
   }

 private:
   void handleMonitoredIntfConfigChange( Kel::String8 const & unitName );
};

class IntfRateAggregatorSm::KelMonIntfDir final : public MonitoredIntfDir::Notifiee {
 public:
   explicit KelMonIntfDir( IntfRateAggregatorSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.monIntfDir() );
   }
   void onMonitoredIntf( Lumo::IntfId intfId ) override {
      ++owner_.unitsEpoch_;
      owner_.monitoredIntf_.sync( intfId, notifier()->monitoredIntf( intfId ) );
   }
   void onMonitoredIntfkelImmediate() override { owner_.monitoredIntf_.syncAll( notifier()->monitoredIntfIterator() ); }

 private:
   IntfRateAggregatorSm & owner_;
};

class IntfRateAggregatorSm::KelMonIntfStatusDir final : public Maintenance::MonIntfStatusDir::NotifieeConst {
 public:
   explicit KelMonIntfStatusDir( IntfRateAggregatorSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.monIntfStatusDir() );
   }
   void onMonIntfStatus( Lumo::IntfId intfId ) override {
      owner_.monIntfStatus_.sync( intfId, notifier()->monIntfStatus( intfId ) );
   }
   void onMonIntfStatuskelImmediate() override {
      owner_.monIntfStatus_.syncAll( notifier()->monIntfStatusIteratorConst() );
   }

 private:
   IntfRateAggregatorSm & owner_;
};

class IntfRateAggregatorSm::KelUnitStatusDir final : public Maintenance::Unit::StatusDir::NotifieeConst {
 public:
   explicit KelUnitStatusDir( IntfRateAggregatorSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.unitStatusDir() );
   }
   void onStatus( Kel::String8 unitName ) override {
      ++owner_.unitsEpoch_;
      if( owner_.initialized() ) owner_.handleUnitStatus( unitName );
   }

 private:
   IntfRateAggregatorSm & owner_;
};

Kel::Ptr<IntfRateAggregatorSm> IntfRateAggregatorSm::IntfRateAggregatorSmIs(
   Kel::Ptr<MonitoredIntfDir> const & monIntfDir,
   Kel::Ptr<Maintenance::MonIntfStatusDir const> const & monIntfStatusDir,
   Kel::Ptr<Maintenance::Unit::StatusDir> const & unitStatusDir ) {
   auto const made = Kel::validPtr( new IntfRateAggregatorSm( monIntfDir, monIntfStatusDir, unitStatusDir ) );
   made->hasNotificationActiveIs( true );
   made->handleInitialized();
   return made;
}

IntfRateAggregatorSm::IntfRateAggregatorSm( Kel::Ptr<MonitoredIntfDir> const & samplers,
                                            Kel::Ptr<Maintenance::MonIntfStatusDir const> const & statuses,
                                            Kel::Ptr<Maintenance::Unit::StatusDir> const & units )
   : smName_( "intfRateAggSm" ),
     monIntfDir_( samplers ),
     monIntfStatusDir_( statuses ),
     unitStatusDir_( units ),
     monitoredIntf_( *this ),
     monIntfStatus_( *this ) {
   hasNotificationActiveIs( false );
   unitStatusDirReactor_ = std::make_unique<KelUnitStatusDir>( *this );
   monIntfDirReactor_ = std::make_unique<KelMonIntfDir>( *this );
   monIntfStatusDirReactor_ = std::make_unique<KelMonIntfStatusDir>( *this );
   monIntfDirReactor_->onMonitoredIntfkelImmediate();
   monIntfStatusDirReactor_->onMonIntfStatuskelImmediate();
}

IntfRateAggregatorSm::~IntfRateAggregatorSm() = default;

void IntfRateAggregatorSm::handleInitialized() {
   KEL_ASSERT( !initialized() );
   TRACE( 5, "IntfRateAggregatorSm started" );
   // Once, unless somebody who heard of a new aggregate had interfaces leave or join before all were added up.
   for( uint32_t began = 0; began != unitsEpoch_ && inService(); ) {
      began = unitsEpoch_;
      addUp();
   }
   initializedIs( true );
   TRACE( 4, "IntfRateAggregatorSm - initialized" );
}

void IntfRateAggregatorSm::addUp() {
   for( auto [unitName, unit] : unitStatusDir()->statusIterator() ) {
      TRACE_AS( 9, "handleInitialized", "Resetting the aggregate rate for unit:" << unitName );
      unit->aggTrafficRateIs( {} );
   }
   for( auto [intfId, monitoredIntf] : monIntfDir()->monitoredIntfIterator() ) {
      KEL_ASSERT_TEXT( monitoredIntf->monIntfStatus(), "intfIter->monIntfStatus()" );
      for( auto [unitName, present] : monitoredIntf->dependentUnitIteratorConst() ) {
         auto const unit = unitStatusDir()->status( unitName );
         if( !unit ) continue;  // a unit that nobody knows has no aggregate to be wrong
         unit->aggTrafficRateIs( calculateNewAggregate( unitName, intfId, unit->aggTrafficRate(), {},
                                                        monitoredIntf->monIntfStatus()->curRates() ) );
      }
   }
}

void IntfRateAggregatorSm::prepareToDie() {
   unitStatusDirReactor_->notifierIs( nullptr );
   monIntfDirReactor_->notifierIs( nullptr );
   monIntfStatusDirReactor_->notifierIs( nullptr );
   monitoredIntf_.clear();
   monIntfStatus_.clear();
}

void IntfRateAggregatorSm::monitoredIntfIs( Kel::Ptr<MonitoredIntf> const & record ) {
   if( !record ) Kel::refuseNull( kelTypeName(), "monitoredIntf" );
   monitoredIntf_.is( record->intfId(), record );
}

void IntfRateAggregatorSm::monitoredIntfDel( Lumo::IntfId intfId ) { monitoredIntf_.del( intfId ); }

void IntfRateAggregatorSm::monIntfStatusIs( Kel::Ptr<Maintenance::MonIntfStatus const> const & record ) {
   if( !record ) Kel::refuseNull( kelTypeName(), "monIntfStatus" );
   monIntfStatus_.is( record->intfId(), record );
}

void IntfRateAggregatorSm::monIntfStatusDel( Lumo::IntfId intfId ) { monIntfStatus_.del( intfId ); }

IntfRates IntfRateAggregatorSm::countedFor( UnitStatusCache::Status const & unit,
                                            MonitoredIntf const & sampler ) const {
   auto const * const rates = monIntfStatus_.find( sampler.intfId() );
   return rates ? rates->countedFor( unit ) : sampler.monIntfStatus()->curRates();
}

// A record that takes the place of another is to hold what the unit's interfaces carry, whatever it came with: the next
// rate replaces their present contributions in it.
void IntfRateAggregatorSm::handleUnitStatus( Kel::String8 const & unitName ) {
   auto const unit = unitStatusDir()->status( unitName );
   if( !unit ) return;
   TrafficRates sum;
   bool served = false;
   for( auto [intfId, sampler] : monIntfDir()->monitoredIntfIterator() ) {
      if( !sampler->dependentUnit( unitName ) || !sampler->monIntfStatus() ) continue;
      served = true;
      sum = calculateNewAggregate( unitName, intfId, sum, {}, countedFor( unit, *sampler ) );
   }
   auto const & held = unit->aggTrafficRate();
   if( served && ( held.inBitsRate != sum.inBitsRate || held.outBitsRate != sum.outBitsRate ) ) {
      unit->aggTrafficRateIs( sum );
   }
}

// Fills the cache when it is stale. In the middle of telling, those told already stay in front; whoever joined
// meanwhile comes last.
bool IntfRateAggregatorSm::KelMonIntfStatus::unitsKnown() {
   if( units_.isOf( owner().unitsEpoch_ ) ) [[likely]]
      return true;
   Lumo::IntfId const intfId = notifier()->intfId();
   auto const monitoredIntf = owner().monIntfDir()->monitoredIntf( intfId );
   if( !monitoredIntf ) {
      TRACE_AS( 1, "handleMonIntfStatusRateChange",
                "ERROR:MonitoredIntf object does not exist for the interface " << intfId << " whose rate changed" );
      return false;
   }
   std::vector<UnitStatusCache::Status> units;
   auto const append = [&]( bool told ) {
      for( auto [unitName, present] : monitoredIntf->dependentUnitIteratorConst() ) {
         auto const unit = owner().unitStatusDir()->status( unitName );
         if( units_.holds( unit, told_ ) == told ) units.push_back( unit );
      }
   };
   append( true );
   auto const told = static_cast<uint32_t>( units.size() );
   append( false );
   told_ = told;
   units_.fill( owner().unitsEpoch_, std::move( units ) );
   return true;
}

void IntfRateAggregatorSm::KelMonIntfStatus::failWithoutStatus() const {
   Lumo::IntfId const intfId = notifier()->intfId();
   for( auto [unitName, present] : owner().monIntfDir()->monitoredIntf( intfId )->dependentUnitIteratorConst() ) {
      if( owner().unitStatusDir()->status( unitName ) ) continue;
      TRACE_AS(
         1, "handleMonIntfStatusRateChange",
         "Error:Unit Status object does not exist for a dependent unit.IntfId:" << intfId << " Unit:" << unitName );
      break;
   }
   Kel::assertionFailed( "0", __FILE__, __LINE__ );
}

void IntfRateAggregatorSm::KelMonIntfStatus::handleMonIntfStatusRateChange() {
   auto const & status = *notifier();
   TRACE( 4, "Rates changed for interface:" << status.intfId() );
   toldOf_ = status.curRates().updateTime;
   told_ = 0;
   while( unitsKnown() && told_ < units_.size() ) {
      UnitStatusCache::Status const unit = units_[told_];
      if( !unit ) failWithoutStatus();
      ++told_;  // before the write: who hears of it finds this unit's aggregate with the current rates in it
      unit->aggTrafficRateIs( calculateNewAggregate( unit->unitName(), status.intfId(), unit->aggTrafficRate(),
                                                     status.prevRates(), status.curRates() ) );
      if( !inService() ) return;  // the interface is monitored no more, and has left all units
   }
   told_ = all;
}

void IntfRateAggregatorSm::KelMonitoredIntf::handleMonitoredIntfConfigChange( Kel::String8 const & unitName ) {
   Lumo::IntfId const intfId = notifier()->intfId();
   TRACE( 4, "IntfId:" << intfId << " UnitName:" << unitName );
   auto const unit = owner().unitStatusDir()->status( unitName );
   if( !unit ) {
      TRACE( 4, "UnitStatus object does not exist. Nothing to do. Early return.UnitName:" << unitName
                                                                                          << " IntfId:" << intfId );
      return;
   }
   KEL_ASSERT_TEXT( notifier()->monIntfStatus(), "monitoredIntf()->monIntfStatus()" );
   IntfRates const counted = owner().countedFor( unit, *notifier() );
   bool const joined = notifier()->dependentUnit( unitName ) != nullptr;
   if( joined ) {
      TRACE(
         4, "IntfId:" << intfId << " was added to Unit:" << unitName << ". Adding the intf rate to unit's aggregate." );
   } else {
      TRACE( 4, "IntfId:" << intfId << " was removed from the Unit:" << unitName
                          << ". Subtracting the intf rate from unit's aggregate" );
   }
   unit->aggTrafficRateIs( calculateNewAggregate( unitName, intfId, unit->aggTrafficRate(),
                                                  joined ? IntfRates{} : counted, joined ? counted : IntfRates{} ) );
}

namespace {

// One calculation, and its four ways to fail, which take it by copy so that it stays in registers where all is well.
// Their texts are what people search for, kept as they are.
struct Calculation {
   Kel::String8 const & unit;
   Lumo::IntfId intf;
   uint64_t curAggIn, curAggOut;
   uint64_t subIn, subOut;
   uint64_t addIn, addOut;

   [[nodiscard]] uint64_t sumIn() const { return curAggIn + addIn; }
   [[nodiscard]] uint64_t sumOut() const { return curAggOut + addOut; }
};

constexpr char const * calculation = "calculateNewAggregate";

[[noreturn, gnu::cold]] void failInUnderflow( Calculation c ) {
   TRACE_AS( 1, calculation,
             "Underflow while subtracting rateToSubInRate from curAggInRate."
                << " Unit:" << c.unit << " IntfId:" << c.intf << " ratesToSubInRate:" << c.subIn
                << " curAggInRate:" << c.curAggIn );
   RING( 0,
         "Underflow while subtracting ratesToSubInRate from curAggInRate. Unit:{} IntfId:{} ratesToAddInRate:{} "
         "curAggInRate:{}",
         c.unit, c.intf, c.subIn, c.curAggIn );
   Kel::assertionFailed( "0", __FILE__, __LINE__ );
}

[[noreturn, gnu::cold]] void failOutUnderflow( Calculation c ) {
   TRACE_AS( 1, calculation,
             "Underflow while subtracting rateToSubOutRate from curAggOutRate."
                << " Unit:" << c.unit << " IntfId:" << c.intf << " ratesToSubOutRate:" << c.subOut
                << " curAggOutRate:" << c.curAggOut );
   RING( 0,
         "Underflow while subtracting ratesToSubOutRate from curAggOutRate. Unit:{} IntfId:{} ratesToSubOutRate:{} "
         "curAggOutRate:{}",
         c.unit, c.intf, c.subOut, c.curAggOut );
   Kel::assertionFailed( "0", __FILE__, __LINE__ );
}

[[noreturn, gnu::cold]] void failInOverflow( Calculation c ) {
   TRACE_AS( 1, calculation,
             "Overflow while adding ratesToAddInRate to curAggInRate."
                << "Unit:" << c.unit << " IntfId:" << c.intf << " ratesToAddInRate:" << c.addIn
                << " curAggInRate:" << c.curAggIn << " sumIn:" << c.sumIn() );
   RING( 0,
         "Overflow while adding ratesToAddInRate to curAggInRate. Unit:{} IntfId:{} ratesToAddInRate:{} "
         "curAggInRate:{} sumIn:{}",
         c.unit, c.intf, c.addIn, c.curAggIn, c.sumIn() );
   Kel::assertionFailed( "0", __FILE__, __LINE__ );
}

[[noreturn, gnu::cold]] void failOutOverflow( Calculation c ) {
   TRACE_AS( 1, calculation,
             "Overflow while adding ratesToAddOutRate to "
                << " curAggOutRate. Unit:" << c.unit << " IntfId:" << c.intf << " ratesToAddOutRate:" << c.addOut
                << " curAggOutRate:" << c.curAggOut << " sumOut:" << c.sumOut() );
   RING( 0,
         "Overflow while adding ratesToAddOutRate to curAggOutRate. Unit:{} IntfId:{} ratesToAddOutRate:{} "
         "curAggOutRate:{} sumOut:{}",
         c.unit, c.intf, c.addOut, c.curAggOut, c.sumOut() );
   Kel::assertionFailed( "0", __FILE__, __LINE__ );
}

}  // namespace

TrafficRates IntfRateAggregatorSm::calculateNewAggregate( Kel::String8 const & unitName, Lumo::IntfId intfId,
                                                          TrafficRates const & curAgg, IntfRates const & ratesToSub,
                                                          IntfRates const & ratesToAdd ) {
   Calculation const c{ unitName,
                        intfId,
                        curAgg.inBitsRate,
                        curAgg.outBitsRate,
                        Kel::rounded( ratesToSub.inBitsRate ),
                        Kel::rounded( ratesToSub.outBitsRate ),
                        Kel::rounded( ratesToAdd.inBitsRate ),
                        Kel::rounded( ratesToAdd.outBitsRate ) };
   // In this order, and each against the aggregate as it is: a subtraction that only the addition would make possible
   // means that the interface was not in the sum.
   if( c.subIn > c.curAggIn ) [[unlikely]]
      failInUnderflow( c );
   if( c.subOut > c.curAggOut ) [[unlikely]]
      failOutUnderflow( c );
   if( c.sumIn() < c.curAggIn ) [[unlikely]]  // the addition wrapped around
      failInOverflow( c );
   if( c.sumOut() < c.curAggOut ) [[unlikely]]
      failOutOverflow( c );
   TrafficRates const newAgg{ c.sumOut() - c.subOut, c.sumIn() - c.subIn, Kel::now() };
   TRACE( 4, "unit:" << unitName << " intfId:" << intfId << " curAggInRate: " << c.curAggIn << " ratesToSubInRate:"
                     << c.subIn << " ratesToAddInRate:" << c.addIn << " newAggInRate:" << newAgg.inBitsRate
                     << ". curAggOutRate:" << c.curAggOut << " ratesToSubOutRate" << c.subOut
                     << " ratesToAddOutRate: " << c.addOut << " newAggOutRate:" << newAgg.outBitsRate );
   return newAgg;
}

}  // namespace MaintenanceMode

#include "IntfRateAggregatorSm.h"

#include "RateMonSm.h"
#include "RateMonTrace.h"
#include "kel/ActivityLoop.h"

KEL_TYPE( MaintenanceMode::IntfRateAggregatorSm )

namespace MaintenanceMode {

using Interface::IntfRates;
using Maintenance::Unit::TrafficRates;

namespace {

// Records of units in their order. Nearly always there is just one, which takes no memory of its own.
class UnitStatuses {
 public:
   using Status = Kel::Ptr<Maintenance::Unit::Status>;

   [[nodiscard]] std::size_t size() const { return size_; }
   [[nodiscard]] Status const & operator[]( std::size_t i ) const { return i == 0 ? first_ : ( *others_ )[i - 1]; }
   void append( Status const & unit ) {
      if( ++size_ == 1 ) {
         first_ = unit;
         return;
      }
      if( !others_ ) others_ = std::make_unique<std::vector<Status>>();
      others_->push_back( unit );
   }

 private:
   uint32_t size_ = 0;
   Status first_;
   std::unique_ptr<std::vector<Status>> others_;
};

}  // namespace

// The rates of one interface. The records of the units that they count for are looked up by name once, and again when the
// interface joins or leaves a unit or a unit's record comes or goes.
class IntfRateAggregatorSm::KelMonIntfStatus final : public Maintenance::MonIntfStatus::NotifieeConst {
 public:
   KelMonIntfStatus( IntfRateAggregatorSm & owner, Kel::Ptr<Maintenance::MonIntfStatus const> const & record )
      : Reactor( owner ), owner_( owner ) {
      notifierIs( record );
   }
   void onCurRates() override { handleMonIntfStatusRateChange(); }
   void unitsForget() { unitsKnownIn_ = 0; }

 private:
   void handleMonIntfStatusRateChange();
   [[nodiscard]] bool unitsKnown();
   [[noreturn, gnu::cold]] void failWithoutStatus() const;

   IntfRateAggregatorSm & owner_;
   uint32_t unitsKnownIn_ = 0;  // the epoch in which `units_` was made, 0 for none
   UnitStatuses units_;         // null where a unit has no record
};

class IntfRateAggregatorSm::KelMonitoredIntf final : public MonitoredIntf::NotifieeConst {
 public:
   KelMonitoredIntf( IntfRateAggregatorSm & owner, Kel::Ptr<MonitoredIntf> const & record )
      : Reactor( owner ), owner_( owner ) {
      notifierIs( record );
   }
   void onDependentUnit( Kel::String8 unitName ) override { handleMonitoredIntfConfigChange( unitName ); }

 private:
   void handleMonitoredIntfConfigChange( Kel::String8 const & unitName );

   IntfRateAggregatorSm & owner_;
};

class IntfRateAggregatorSm::KelMonIntfDir final : public MonitoredIntfDir::Notifiee {
 public:
   explicit KelMonIntfDir( IntfRateAggregatorSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.monIntfDir() );
   }
   void onMonitoredIntf( Lumo::IntfId intfId ) override {
      if( auto const record = notifier()->monitoredIntf( intfId ) ) {
         owner_.monitoredIntfIs( record );
      } else {
         owner_.monitoredIntfDel( intfId );
      }
   }
   void onMonitoredIntfkelImmediate() override {
      for( auto [intfId, record] : notifier()->monitoredIntfIterator() ) owner_.monitoredIntfIs( record );
   }

 private:
   IntfRateAggregatorSm & owner_;
};

class IntfRateAggregatorSm::KelMonIntfStatusDir final : public Maintenance::MonIntfStatusDir::NotifieeConst {
 public:
   explicit KelMonIntfStatusDir( IntfRateAggregatorSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.monIntfStatusDir() );
   }
   void onMonIntfStatus( Lumo::IntfId intfId ) override {
      if( auto const record = notifier()->monIntfStatus( intfId ) ) {
         owner_.monIntfStatusIs( record );
      } else {
         owner_.monIntfStatusDel( intfId );
      }
   }
   void onMonIntfStatuskelImmediate() override {
      for( auto [intfId, record] : notifier()->monIntfStatusIteratorConst() ) owner_.monIntfStatusIs( record );
   }

 private:
   IntfRateAggregatorSm & owner_;
};

class IntfRateAggregatorSm::KelUnitStatusDir final : public Maintenance::Unit::StatusDir::NotifieeConst {
 public:
   explicit KelUnitStatusDir( IntfRateAggregatorSm & owner ) : Reactor( owner ), owner_( owner ) {
      notifierIs( owner.unitStatusDir() );
   }
   void onStatus( Kel::String8 ) override { ++owner_.unitStatusEpoch_; }

 private:
   IntfRateAggregatorSm & owner_;
};

Kel::Ptr<IntfRateAggregatorSm> IntfRateAggregatorSm::IntfRateAggregatorSmIs(
   Kel::Ptr<MonitoredIntfDir> const & monIntfDir,
   Kel::Ptr<Maintenance::MonIntfStatusDir const> const & monIntfStatusDir,
   Kel::Ptr<Maintenance::Unit::StatusDir> const & unitStatusDir ) {
   auto const made = Kel::validPtr( new IntfRateAggregatorSm( monIntfDir, monIntfStatusDir, unitStatusDir ) );
   made->hasNotificationActiveIs( true );
   return made;
}

IntfRateAggregatorSm::IntfRateAggregatorSm( Kel::Ptr<MonitoredIntfDir> const & samplers,
                                            Kel::Ptr<Maintenance::MonIntfStatusDir const> const & statuses,
                                            Kel::Ptr<Maintenance::Unit::StatusDir> const & units )
   : smName_( "intfRateAggSm" ), monIntfDir_( samplers ), monIntfStatusDir_( statuses ), unitStatusDir_( units ) {
   hasNotificationActiveIs( false );
   unitStatusDirReactor_ = std::make_unique<KelUnitStatusDir>( *this );
   monIntfDirReactor_ = std::make_unique<KelMonIntfDir>( *this );
   monIntfStatusDirReactor_ = std::make_unique<KelMonIntfStatusDir>( *this );
   monIntfDirReactor_->onMonitoredIntfkelImmediate();
   monIntfStatusDirReactor_->onMonIntfStatuskelImmediate();
   handleInitialized();
}

IntfRateAggregatorSm::~IntfRateAggregatorSm() = default;

void IntfRateAggregatorSm::handleInitialized() {
   KEL_ASSERT( !initialized() );
   TRACE( 5, "IntfRateAggregatorSm started" );
   for( auto [unitName, unit] : unitStatusDir()->statusIterator() ) {
      TRACE( 9, "Resetting the aggregate rate for unit:" << unitName );
      unit->aggTrafficRateIs( {} );
   }
   for( auto [intfId, monitoredIntf] : monIntfDir()->monitoredIntfIterator() ) {
      KEL_ASSERT_TEXT( monitoredIntf->monIntfStatus(), "intfIter->monIntfStatus()" );
      for( auto [unitName, present] : monitoredIntf->dependentUnitIteratorConst() ) {
         auto const unit = unitStatusDir()->status( unitName );
         if( !unit ) continue;
         unit->aggTrafficRateIs( calculateNewAggregate( unitName, intfId, unit->aggTrafficRate(), {},
                                                        monitoredIntf->monIntfStatus()->curRates() ) );
      }
   }
   initializedIs( true );
   TRACE( 4, "IntfRateAggregatorSm - initialized" );
}

void IntfRateAggregatorSm::prepareToDie() {
   kelDoZombieReactors( true );
   unitStatusDirReactor_->notifierIs( nullptr );
   monIntfDirReactor_->notifierIs( nullptr );
   monIntfStatusDirReactor_->notifierIs( nullptr );
   monitoredIntf_.clear();
   monIntfStatus_.clear();
}

namespace {

[[noreturn]] void refuseNull( std::string const & attribute ) {
   throw Kel::RangeError( "null _" + attribute + " parameter to mutator for MaintenanceMode::IntfRateAggregatorSm::" +
                          attribute + " not allowed\"" );
}

// Rounded to the nearest whole number, halves upwards. The fraction of a double is exact. What counters that went backwards
// may make of a rate has the top bit and the most that the others can say.
uint64_t wholeBits( double rate ) {
   constexpr double top = 0x1p63;
   constexpr uint64_t topBit = uint64_t{ 1 } << 63;
   if( rate >= top ) [[unlikely]]
      return ( rate - top < 2 * top ? static_cast<uint64_t>( rate - top ) : ~uint64_t{ 0 } ) | topBit;
   auto const whole = static_cast<uint64_t>( rate );
   return whole + ( rate - static_cast<double>( whole ) >= 0.5 ? 1 : 0 );
}

}  // namespace

void IntfRateAggregatorSm::monitoredIntfIs( Kel::Ptr<MonitoredIntf> const & record ) {
   if( !record ) refuseNull( "monitoredIntf" );
   auto & reactor = monitoredIntf_[record->intfId()];
   reactor.reset();
   reactor = std::make_unique<KelMonitoredIntf>( *this, record );
   if( auto const rates = monIntfStatus_.find( record->intfId() ); rates != monIntfStatus_.end() ) {
      rates->second->unitsForget();
   }
}

void IntfRateAggregatorSm::monitoredIntfDel( Lumo::IntfId intfId ) {
   monitoredIntf_.erase( intfId );
   if( auto const rates = monIntfStatus_.find( intfId ); rates != monIntfStatus_.end() ) rates->second->unitsForget();
}

void IntfRateAggregatorSm::monIntfStatusIs( Kel::Ptr<Maintenance::MonIntfStatus const> const & record ) {
   if( !record ) refuseNull( "monIntfStatus" );
   auto & reactor = monIntfStatus_[record->intfId()];
   reactor.reset();
   reactor = std::make_unique<KelMonIntfStatus>( *this, record );
}

void IntfRateAggregatorSm::monIntfStatusDel( Lumo::IntfId intfId ) { monIntfStatus_.erase( intfId ); }

bool IntfRateAggregatorSm::KelMonIntfStatus::unitsKnown() {
   if( unitsKnownIn_ == owner_.unitStatusEpoch_ ) [[likely]]
      return true;
   Lumo::IntfId const intfId = notifier()->intfId();
   auto const monitoredIntf = owner_.monIntfDir()->monitoredIntf( intfId );
   if( !monitoredIntf ) {
      TRACE_AS( 1, "handleMonIntfStatusRateChange",
                "ERROR:MonitoredIntf object does not exist for the interface " << intfId << " whose rate changed" );
      return false;
   }
   units_ = {};
   for( auto [unitName, present] : monitoredIntf->dependentUnitIteratorConst() ) {
      units_.append( owner_.unitStatusDir()->status( unitName ) );
   }
   unitsKnownIn_ = owner_.unitStatusEpoch_;
   return true;
}

void IntfRateAggregatorSm::KelMonIntfStatus::failWithoutStatus() const {
   Lumo::IntfId const intfId = notifier()->intfId();
   for( auto [unitName, present] : owner_.monIntfDir()->monitoredIntf( intfId )->dependentUnitIteratorConst() ) {
      if( owner_.unitStatusDir()->status( unitName ) ) continue;
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
   if( !unitsKnown() ) return;
   for( std::size_t i = 0; i < units_.size(); ++i ) {
      if( !units_[i] ) failWithoutStatus();
      auto & unit = *units_[i];
      unit.aggTrafficRateIs( calculateNewAggregate( unit.unitName(), status.intfId(), unit.aggTrafficRate(),
                                                    status.prevRates(), status.curRates() ) );
   }
}

void IntfRateAggregatorSm::KelMonitoredIntf::handleMonitoredIntfConfigChange( Kel::String8 const & unitName ) {
   Lumo::IntfId const intfId = notifier()->intfId();
   TRACE( 4, "IntfId:" << intfId << " UnitName:" << unitName );
   if( auto const rates = owner_.monIntfStatus_.find( intfId ); rates != owner_.monIntfStatus_.end() ) {
      rates->second->unitsForget();
   }
   auto const unit = owner_.unitStatusDir()->status( unitName );
   if( !unit ) {
      TRACE( 4, "UnitStatus object does not exist. Nothing to do. Early return.UnitName:" << unitName
                                                                                          << " IntfId:" << intfId );
      return;
   }
   KEL_ASSERT_TEXT( notifier()->monIntfStatus(), "monitoredIntf()->monIntfStatus()" );
   IntfRates const curRates = notifier()->monIntfStatus()->curRates();
   bool const joined = notifier()->dependentUnit( unitName ) != nullptr;
   if( joined ) {
      TRACE(
         4, "IntfId:" << intfId << " was added to Unit:" << unitName << ". Adding the intf rate to unit's aggregate." );
   } else {
      TRACE( 4, "IntfId:" << intfId << " was removed from the Unit:" << unitName
                          << ". Subtracting the intf rate from unit's aggregate" );
   }
   unit->aggTrafficRateIs( calculateNewAggregate( unitName, intfId, unit->aggTrafficRate(),
                                                  joined ? IntfRates{} : curRates, joined ? curRates : IntfRates{} ) );
}

namespace {

// One calculation, and its four ways to fail, which take it by copy so that it stays in registers where all is well. Their texts
// are what people search for, kept as they are.
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
                        wholeBits( ratesToSub.inBitsRate ),
                        wholeBits( ratesToSub.outBitsRate ),
                        wholeBits( ratesToAdd.inBitsRate ),
                        wholeBits( ratesToAdd.outBitsRate ) };
   if( c.subIn > c.curAggIn ) [[unlikely]]
      failInUnderflow( c );
   if( c.subOut > c.curAggOut ) [[unlikely]]
      failOutUnderflow( c );
   if( c.sumIn() < c.curAggIn ) [[unlikely]]
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

#include "report/History.h"

#include <algorithm>
#include <functional>

#include "records/Errdisable.h"
#include "records/Names.h"

namespace Report {

using Maintenance::MonIntfState;
using UnitState = Maintenance::Unit::State;

namespace {

Kel::Name const shutdownCause( Maintenance::shutdownCause );
Kel::String8 const rateMonitor( Maintenance::rateMonStage );

bool underMaintenance( UnitState s ) { return s == UnitState::entering || s == UnitState::inMaintenance; }

// A unit that failed to enter stays as it is until somebody takes it back.
bool endsMaintenance( UnitState s ) { return !underMaintenance( s ) && s != UnitState::failed; }

}  // namespace

std::vector<UnitHistory::Pass> UnitHistory::passes() const {
   std::vector<Pass> found;
   for( auto const & [since, state] : states.all() ) {
      bool const open = !found.empty() && !found.back().left;
      if( open && endsMaintenance( state ) ) found.back().left = since;
      if( !open && underMaintenance( state ) ) found.push_back( { since, {}, {} } );
   }
   for( Pass & pass : found ) {
      auto const mark = std::lower_bound( completed.begin(), completed.end(), pass.began );
      if( mark != completed.end() && ( !pass.left || *mark <= *pass.left ) ) pass.completed = *mark;
   }
   return found;
}

// Follows one entity and hands on which attribute changed, and which entry of it.
class History::Ear final : public Kel::Watcher {
 public:
   using Hear = std::function<void( std::string const & attribute, std::string const & key )>;

   Ear( Kel::Ptr<Kel::Entity> const & entity, Hear hear ) : entity_( entity ), hear_( std::move( hear ) ) {
      entity_->watcherIs( *this );
   }
   ~Ear() override { entity_->watcherDel( *this ); }

   void onAttribute( Kel::Entity const &, Kel::AttributeInfo const & attribute, std::string const * key ) override {
      hear_( attribute.name(), key ? *key : std::string() );
   }

 private:
   Kel::Ptr<Kel::Entity> const entity_;
   Hear const hear_;
};

// Follows one record of the rate monitor. A sample is its rates first and then its counters.
class History::IntfEar final : public Kel::Watcher {
 public:
   IntfEar( History const & owner, IntfHistory & history, Kel::Ptr<Maintenance::MonIntfStatus> const & record )
      : owner_( owner ), history_( history ), record_( record ), sampledUntil_( owner.now() ) {
      history_.samples += record_->totalSamples();
      handleProfile();
      handleState();
      record_->watcherIs( *this );
   }
   ~IntfEar() override { record_->watcherDel( *this ); }

   void onAttribute( Kel::Entity const &, Kel::AttributeInfo const & attribute, std::string const * ) override {
      std::string const & name = attribute.name();
      if( name == "curRates" ) return handleRates();
      if( name == "totalSamples" ) return void( ++history_.samples );
      if( name == "numSamplesAboveThresholdPostMaint" ) return handleAbove();
      if( name == "numSamplesBelowThresholdPostMaint" ) return void( spiking_ = false );
      if( name == "state" ) return handleState();
      if( name == "profileName" ) return handleProfile();
      if( name == "stale" ) sampledUntil_ = owner_.now();  // after a restart rates begin anew
   }

 private:
   // No time has passed where monitoring just began: what is published then is only the starting point.
   void handleRates() {
      if( sampledUntil_ == owner_.now() ) return;
      handleProfile();
      history_.lastRates = record_->curRates();
      auto const & rates = history_.lastRates;
      history_.rates.sampleIs( sampledUntil_, owner_.now(), rates.inBitsRate, rates.outBitsRate );
      sampledUntil_ = owner_.now();
   }

   void handleAbove() {
      if( spiking_ || history_.rates.empty() ) return;
      spiking_ = true;
      ++history_.spikes;
      history_.rates.spikeIs();
   }

   // A profile that is not there any more goes on to hold for those who have it.
   void handleProfile() {
      auto const profile = owner_.state_.profiles->config( record_->profileName() );
      if( profile ) history_.threshold.is( owner_.now(), profile->thresholdBitsRate() );
   }

   void handleState() {
      bool const waited = !history_.states.empty() && history_.states.latest() == MonIntfState::thresholdMonitoring;
      history_.states.is( owner_.now(), record_->state() );
      if( record_->state() == MonIntfState::thresholdMonitoring ) history_.drainedIn.reset();
      if( !waited || record_->state() != MonIntfState::passiveMonitoring || !drained() ) return;
      history_.drainedIn = owner_.now() - record_->startTime();
   }

   // Otherwise the interface was taken down because it had waited too long. No record says which of the two it was.
   [[nodiscard]] bool drained() const {
      auto const profile = owner_.state_.profiles->config( record_->profileName() );
      if( !profile ) return false;
      auto const & rates = history_.lastRates;
      return std::max( rates.inBitsRate, rates.outBitsRate ) < profile->thresholdBitsRate() &&
             record_->quietSeconds( *profile ) >= profile->rateMonLoadInterval();
   }

   History const & owner_;
   IntfHistory & history_;
   Kel::Ptr<Maintenance::MonIntfStatus> const record_;
   double sampledUntil_;  // s
   bool spiking_ = false;
};

History::History( Maintenance::MaintenanceState const & state, Kel::Clock const & clock )
   : state_( state ),
     clock_( clock ),
     began_( clock.now() ),
     unitDirEar_(
        std::make_unique<Ear>( state.unitStatus, [this]( auto const &, auto const & key ) { handleUnit( key ); } ) ),
     intfDirEar_( std::make_unique<Ear>( state.monIntfStatus,
                                         [this]( auto const & attribute, auto const & key ) {
                                            if( attribute == "monIntfStatus" ) handleIntf( Lumo::IntfId( key ) );
                                         } ) ),
     causeDirEar_( std::make_unique<Ear>( state.errdisableCauses,
                                          [this]( auto const &, auto const & key ) { handleCause( key ); } ) ),
     completionEar_(
        std::make_unique<Ear>( state.enter.agentStatus, [this]( auto const & attribute, auto const & key ) {
           if( attribute == "complete" ) handleCompletion( Stage::AgentStatusKey::fromText( key ) );
        } ) ) {}

History::~History() = default;

void History::handleUnit( Kel::Name const & unit ) {
   auto const record = state_.unitStatus->status( unit );
   UnitHistory & history = units_[unit];
   history.states.is( now(), record ? record->state() : UnitState::unknown );
   unitEars_.erase( unit );
   if( !record ) return;
   auto const hear = [this, &history, status = record.get()]( auto const & attribute, auto const & ) {
      if( attribute == "state" ) history.states.is( now(), status->state() );
   };
   unitEars_.emplace( unit, std::make_unique<Ear>( record, hear ) );
}

void History::handleIntf( Lumo::IntfId intf ) {
   auto const record = state_.monIntfStatus->monIntfStatus( intf );
   IntfHistory & history = intfs_[intf];
   intfEars_.erase( intf );
   if( record ) {
      intfEars_.emplace( intf, std::make_unique<IntfEar>( *this, history, record ) );
   } else {
      history.states.is( now(), MonIntfState::notMonitoring );
   }
}

void History::handleCause( Kel::Name const & cause ) {
   if( cause != shutdownCause ) return;
   shutdownEar_ = nullptr;
   auto const entity = state_.errdisableCauses->entityRef( cause );
   if( !entity ) return;
   shutdownEar_ = std::make_unique<Ear>( entity, [this]( auto const & attribute, auto const & key ) {
      if( attribute == "intfStatus" ) handleShutdown( Lumo::IntfId( key ) );
   } );
}

void History::handleShutdown( Lumo::IntfId intf ) {
   auto const entity = state_.errdisableCauses->entityRef( shutdownCause );
   auto const cause = Kel::dynamicPtrCast<Errdisable::CauseStatus>( entity );
   intfs_[intf].shutDown.is( now(), cause && cause->intfStatus( intf ) );
}

void History::handleCompletion( Stage::AgentStatusKey const & key ) {
   bool const * const complete = state_.enter.agentStatus->complete( key );
   if( key.stage != rateMonitor || !complete || !*complete ) return;
   try {
      Maintenance::Unit::StageMgrInstKey const instance( key.instanceName );
      units_[instance.unitName()].completed.push_back( now() );
   } catch( Kel::InternalException const & ) {
      return;  // a scenario may set any name; one that belongs to no unit tells nothing of one
   }
}

}  // namespace Report

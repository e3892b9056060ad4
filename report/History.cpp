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
      // The marks come in the order of time, so the first one at or after the beginning is this pass's, if it comes at
      // all before the unit left. A mark in the very turn of leaving counts.
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

// Follows one record of the rate monitor. Of one sample the rates are written first, then the counts, then the state
// that follows from them; what is judged below at a count or a state is about the rates heard last.
class History::IntfEar final : public Kel::Watcher {
 public:
   IntfEar( History const & owner, IntfHistory & history, Kel::Ptr<Maintenance::MonIntfStatus> const & record )
      : owner_( owner ), history_( history ), record_( record ), sampledUntil_( owner.now() ) {
      // Added: monitoring an interface anew makes a new record, which counts from 0, and a record that is set whole
      // arrives with a count.
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
   // Where no time has passed, monitoring has just begun: what is published then is only the starting point.
   void handleRates() {
      if( sampledUntil_ == owner_.now() ) return;
      // The record tells when another profile is in force, but not when the one in force was edited.
      handleProfile();
      history_.lastRates = record_->curRates();
      auto const & rates = history_.lastRates;
      history_.rates.sampleIs( sampledUntil_, owner_.now(), rates.inBitsRate, rates.outBitsRate );
      sampledUntil_ = owner_.now();
   }

   void handleAbove() {
      // A spike is marked at its sample. Without one there is no place for it in a picture.
      if( spiking_ || history_.rates.empty() ) return;
      spiking_ = true;
      ++history_.spikes;
      history_.rates.spikeIs();
   }

   // A deleted profile stays in force for those who have it, so the threshold stays as it was.
   void handleProfile() {
      auto const profile = owner_.state_.profiles->config( record_->profileName() );
      if( profile ) history_.threshold.is( owner_.now(), profile->thresholdBitsRate() );
   }

   void handleState() {
      bool const waited = !history_.states.empty() && history_.states.latest() == MonIntfState::thresholdMonitoring;
      history_.states.is( owner_.now(), record_->state() );
      // It waits again, so that an earlier drain is no longer the answer.
      if( record_->state() == MonIntfState::thresholdMonitoring ) history_.drainedIn.reset();
      if( !waited || record_->state() != MonIntfState::passiveMonitoring || !drained() ) return;
      history_.drainedIn = owner_.now() - record_->startTime();
   }

   // Otherwise the interface was taken down because it had waited too long. No record says which of the two it was, so
   // it is judged as the rate monitor judges, by what it has just published.
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
                                            // The directory's sets of interfaces change too, and have keys of the same
                                            // form.
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
   // Also when a record took the place of another: the ear holds on to the one that it was made for.
   unitEars_.erase( unit );
   if( !record ) return;
   // References stay good: nothing is ever taken out of units_, and the ear that holds the record holds this as well.
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
      // The history stays when the record goes; a report is about the whole run.
      history.states.is( now(), MonIntfState::notMonitoring );
   }
}

void History::handleCause( Kel::Name const & cause ) {
   // Others may hold interfaces down for causes of their own, which is not ours to report.
   if( cause != shutdownCause ) return;
   shutdownEar_ = nullptr;
   auto const entity = state_.errdisableCauses->entityRef( cause );
   if( !entity ) return;
   shutdownEar_ = std::make_unique<Ear>( entity, [this]( auto const & attribute, auto const & key ) {
      if( attribute == "intfStatus" ) handleShutdown( Lumo::IntfId( key ) );
   } );
}

void History::handleShutdown( Lumo::IntfId intf ) {
   // Asked again: the ear says that an entry has changed and not whether it came or went.
   auto const entity = state_.errdisableCauses->entityRef( shutdownCause );
   auto const cause = Kel::dynamicPtrCast<Errdisable::CauseStatus>( entity );
   intfs_[intf].shutDown.is( now(), cause && cause->intfStatus( intf ) );
}

void History::handleCompletion( Stage::AgentStatusKey const & key ) {
   // Present means present with the value true; a mark that is taken back is no report either.
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

#include "DrainStory.h"

#include <algorithm>

#include "kel/LogHandle.h"
#include "kel/Trace.h"
#include "records/Names.h"

namespace Test {

using Interface::IntfOperStatus;
using Maintenance::Profile::ProfileType;

namespace {

Kel::String8 const stageName( Maintenance::rateMonStage );

Group::GroupKey intfGroup( std::string const & name ) { return { Group::GroupType::intf, Kel::String8( name ) }; }

}  // namespace

DrainStory::DrainStory() {
   Kel::logSinkIs( [this]( Kel::LogRecord const & record ) { logged_.emplace_back( record.text ); } );
   profile( "#DEFAULTPROFILE", {} );
}

DrainStory::~DrainStory() {
   // Nobody listens any more: what a derived fixture had its messages written to is gone.
   Kel::logSinkIs( {} );
   Kel::traceSinkIs( {} );
   Kel::traceHandle( Maintenance::rateMonTraceHandle ).levelsIs( {} );
   if( world_.running() ) stop();
}

void DrainStory::profile( std::string const & name, ProfileSpec const & spec ) {
   Kel::Ptr<IntfMaintenanceProfile::Config> config = state_.profiles->config( Kel::String8( name ) );
   bool const added = !config;
   if( added ) config = new IntfMaintenanceProfile::Config( Kel::String8( name ) );
   config->rateMonThresholdInKbpsIs( spec.thresholdKbps );
   config->sampleIntervalIs( spec.sampleInterval );
   config->rateMonLoadIntervalIs( spec.loadInterval );
   config->shutdownMaxDelayIs( spec.maxDelay );
   config->shutdownIs( spec.shutdown );
   if( added ) state_.profiles->configIs( config );
}

void DrainStory::select( std::string const & intf, std::string const & profileName ) {
   auto const member = state_.intfToGroup->intfToGroupIs( Lumo::IntfId( intf ) );
   member->profileChangeCauseIs( Maintenance::ProfileChangeCause::precedence );
   member->selectedProfileIs( ProfileType::interface, { Kel::String8( profileName ) } );
}

void DrainStory::unit( std::string const & name, std::vector<std::string> const & intfs ) {
   auto const group = state_.groupStatus->statusIs( Kel::String8( name ) );
   for( std::string const & intf : intfs ) {
      Lumo::IntfId const id( intf );
      group->intfIs( id, true );
      auto const member = state_.intfToGroup->intfToGroupIs( id );
      member->groupIs( intfGroup( name ), true );
      if( !member->selectedProfile( ProfileType::interface ) ) select( intf, "#DEFAULTPROFILE" );
      if( !state_.intfStatus->intfStatus( id ) ) link( intf, IntfOperStatus::up );
      world_.counters().intfIs( id );
   }
   state_.groupToUnit->groupToUnitIs( intfGroup( name ) )->unitNameIs( Kel::Name( name ), true );
   Kel::Ptr<Maintenance::Unit::Status> const record( new Maintenance::Unit::Status( Kel::String8( name ) ) );
   record->stateIs( State::active );
   state_.unitStatus->statusIs( record );
   record->groupIs( intfGroup( name ), true );
}

void DrainStory::link( std::string const & intf, IntfOperStatus status ) {
   state_.intfStatus->intfStatusIs( Lumo::IntfId( intf ) )->operStatusIs( status );
}

void DrainStory::linkDel( std::string const & intf ) { state_.intfStatus->intfStatusDel( Lumo::IntfId( intf ) ); }

void DrainStory::traffic( std::string const & intf, unsigned long long inBps, unsigned long long outBps ) {
   world_.counters().bitsPerSecondIs( Lumo::IntfId( intf ), Sim::Direction::in, static_cast<double>( inBps ) );
   world_.counters().bitsPerSecondIs( Lumo::IntfId( intf ), Sim::Direction::out, static_cast<double>( outBps ) );
}

void DrainStory::octets( std::string const & intf, Brim::MaybeU63 in, Brim::MaybeU63 out ) {
   traffic( intf, 0 );
   world_.counters().octetsIs( Lumo::IntfId( intf ), Sim::Direction::in, in );
   world_.counters().octetsIs( Lumo::IntfId( intf ), Sim::Direction::out, out );
}

void DrainStory::countersDel( std::string const & intf ) { world_.counters().del( Lumo::IntfId( intf ) ); }

void DrainStory::start() {
   world_.start();
   advance( 0 );
}

Kel::Name DrainStory::instance( std::string const & unit, uint32_t genId ) {
   return Kel::Name( unit + "#" + std::to_string( genId ) );
}

uint32_t DrainStory::enter( std::string const & unit ) {
   auto & record = status( unit );
   record.genIdIs( record.genId() + 1 );
   record.maintEnterInstanceNameIs( instance( unit, record.genId() ) );
   record.stateIs( State::entering );
   state_.enter.completion->statusIs( instance( unit, record.genId() ) );
   state_.enter.progress->progressIs( instance( unit, record.genId() ) )->stageIs( stageName, true );
   advance( 0 );
   return record.genId();
}

uint32_t DrainStory::exit( std::string const & unit ) {
   auto & record = status( unit );
   record.genIdIs( record.genId() + 1 );
   record.maintExitInstanceNameIs( instance( unit, record.genId() ) );
   record.stateIs( State::leaving );
   state_.exit.completion->statusIs( instance( unit, record.genId() ) );
   state_.exit.progress->progressIs( instance( unit, record.genId() ) )->stageIs( stageName, true );
   advance( 0 );
   return record.genId();
}

void DrainStory::finishEnter( std::string const & unit ) {
   state_.enter.progress->progressDel( status( unit ).maintEnterInstanceName() );
   state_.enter.completion->statusDel( status( unit ).maintEnterInstanceName() );
   unitState( unit, State::inMaintenance );
}

void DrainStory::finishExit( std::string const & unit ) {
   state_.exit.progress->progressDel( status( unit ).maintExitInstanceName() );
   state_.exit.completion->statusDel( status( unit ).maintExitInstanceName() );
   unitState( unit, State::active );
}

bool DrainStory::enterComplete( std::string const & unit ) const {
   return state_.enter.agentStatus->complete( { stageName, status( unit ).maintEnterInstanceName() } ) != nullptr;
}

bool DrainStory::exitComplete( std::string const & unit ) const {
   return state_.exit.agentStatus->complete( { stageName, status( unit ).maintExitInstanceName() } ) != nullptr;
}

void DrainStory::advance( double seconds ) { world_.advance( seconds ); }

Maintenance::Unit::Status & DrainStory::status( std::string const & unit ) const {
   return *state_.unitStatus->status( Kel::String8( unit ) );
}

Kel::Ptr<Maintenance::MonIntfStatus> DrainStory::monitored( std::string const & intf ) const {
   return state_.monIntfStatus->monIntfStatus( Lumo::IntfId( intf ) );
}

Errdisable::CauseStatus & DrainStory::cause() const {
   auto const found =
      Kel::dynamicPtrCast<Errdisable::CauseStatus>( state_.errdisableCauses->entityRef( Maintenance::shutdownCause ) );
   return *found;
}

bool DrainStory::shutDown( std::string const & intf ) const {
   return cause().intfStatus( Lumo::IntfId( intf ) ) != nullptr;
}

uint64_t DrainStory::counter( std::string const & name ) const {
   Kel::Ptr<Kel::Entity const> entity = world_.pluginDir()->entityRef( "rateMonPlugin" );
   for( char const * next : { "rateMonSm", "counters" } )
      entity = entity->kelTypeInfo().attribute( next )->referenced( *entity );
   auto const * const attribute = entity->kelTypeInfo().attribute( name );
   KEL_ASSERT( attribute );
   return *attribute->get( *entity ).as<uint64_t>();
}

void DrainStory::traceOn() {
   Kel::traceHandle( Maintenance::rateMonTraceHandle ).levelsIs( { 1, 2, 4, 5, 9 } );
   Kel::traceSinkIs( [this]( Kel::TraceRecord const & record ) {
      trace_.push_back( std::to_string( record.level ) + " " + std::string( record.text ) );
   } );
}

bool DrainStory::traced( std::string const & line ) const {
   return std::find( trace_.begin(), trace_.end(), line ) != trace_.end();
}

}  // namespace Test

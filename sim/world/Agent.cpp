#include "world/Agent.h"

#include <utility>

#include "dovra/StatePath.h"
#include "evidence/Windows.h"
#include "links/LinkControl.h"
#include "maintenance/MaintenanceService.h"
#include "records/Errdisable.h"
#include "records/Names.h"

namespace Sim {

namespace {

// What crashed agents left behind, kept so that no destructor of theirs ever runs.
struct Remains {
   std::unique_ptr<Service::LinkControl> linkControl;
   std::unique_ptr<Service::MaintenanceService> service;
};
std::vector<Remains> & graveyard() {
   // Reachable for ever, so that the leak checker knows that it is meant.
   static auto * const remains = new std::vector<Remains>;
   return *remains;
}

}  // namespace

class Agent::InstantHooks final : public Service::Hooks {
 public:
   void run( Service::HookRequest const & request, Done done ) override {
      if( onHook_ ) onHook_( request );
      done( "" );
   }
   void giveUp( std::string const & ) override {}  // none is ever under way

   void onHookIs( OnHook onHook ) { onHook_ = std::move( onHook ); }

 private:
   OnHook onHook_;
};

Agent::Agent( Box const & box )
   : box_( box ), events_( std::make_shared<Service::EventLog>() ), hooks_( std::make_unique<InstantHooks>() ) {}

Agent::~Agent() = default;

void Agent::onHookIs( OnHook onHook ) { hooks_->onHookIs( std::move( onHook ) ); }

std::vector<std::string> Agent::configIs( Service::Config::Config config ) {
   if( service_ ) {
      auto refusals = service_->reload( config );
      if( refusals.empty() ) config_ = std::move( config );
      return refusals;
   }
   bool const first = !config_;
   config_ = std::move( config );
   if( first ) start();
   return {};
}

void Agent::keptIs( std::string const & path, Kel::Value const & value ) {
   // Those that only the service has are made; and the one cause there is, which a directory of anything cannot make.
   static_cast<void>( Evidence::windowDir( *box_.database ) );
   if( path == Maintenance::Path::errdisableCauses &&
       !box_.state.errdisableCauses->entityRef( Maintenance::shutdownCause ) ) {
      box_.state.errdisableCauses->entityIs(
         Kel::Ptr<Kel::Entity>( new Errdisable::CauseStatus( Maintenance::shutdownCause ) ) );
   }
   Dovra::stateValueIs( *box_.database, path, value );
}

void Agent::start() {
   if( !config_ || service_ ) return;
   // Links first: the service is to find them as the entries and the world say.
   linkControl_ = std::make_unique<Service::LinkControl>( Service::LinkControl::Parts{
      .held = Service::heldLinkDir( *box_.database ),
      .causes = box_.state.errdisableCauses,
      .links = box_.links,
      .keep = {},
      .tell = [this]( auto const &... told ) { tellHold( told... ); },
      .preserveIpv6 = {},
      .boot = "sim",
      .note = [this]( Lumo::IntfId intf, std::string const & text ) { noteLink( intf, text ); },
   } );
   box_.links.recordsFollow( true );
   box_.links.onLinkIs( [this]( Lumo::IntfId intf ) { linkControl_->handleLink( intf ); } );
   std::function<double()> wallClockOffset;
   if( wallClockOffset_ ) wallClockOffset = [offset = *wallClockOffset_] { return offset; };
   service_ = std::make_unique<Service::MaintenanceService>(
      Service::MaintenanceService::Host{ .database = box_.database,
                                         .state = box_.state,
                                         .counters = box_.counters,
                                         .links = box_.linkRecords,
                                         .hooks = *hooks_,
                                         .events = events_,
                                         .wallClockOffset = wallClockOffset },
      *config_ );
   for( auto const & [intf, text] : std::exchange( earlyNotes_, {} ) ) service_->noteLink( intf, text );
}

// At the start link control is there before there are windows.
void Agent::noteLink( Lumo::IntfId intf, std::string const & text ) {
   if( service_ ) return service_->noteLink( intf, text );
   earlyNotes_.emplace_back( intf, text );
}

void Agent::tellHold( Lumo::IntfId intf, Service::Severity severity, std::string const & text ) {
   if( service_ ) return service_->tellHold( intf, severity, text );
   events_->tell( { .kind = Service::EventKind::hold, .text = text, .severity = severity, .interface = intf } );
}

void Agent::stop() {
   if( !config_ ) return;
   service_ = nullptr;
   box_.links.onLinkIs( {} );
   linkControl_ = nullptr;
   box_.links.recordsFollow( false );
}

void Agent::crash() {
   if( !config_ ) return;
   box_.links.onLinkIs( {} );
   graveyard().push_back( { std::move( linkControl_ ), std::move( service_ ) } );
   box_.links.recordsFollow( false );
}

}  // namespace Sim

#include "world/Agent.h"

#include <utility>

#include "maintenance/MaintenanceService.h"
#include "world/LinkControl.h"

namespace Sim {

namespace {

// What crashed agents left behind, kept so that no destructor of theirs ever runs.
struct Remains {
   std::unique_ptr<LinkControl> linkControl;
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

Agent::Agent( Box const & box ) : box_( box ), hooks_( std::make_unique<InstantHooks>() ) {}

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

void Agent::start() {
   if( !config_ || service_ ) return;
   // Links first: the service is to find them as the entries and the world say.
   linkControl_ = std::make_unique<LinkControl>( box_.state.errdisableCauses, box_.links );
   box_.links.recordsFollow( true );
   service_ = std::make_unique<Service::MaintenanceService>(
      Service::MaintenanceService::Host{ box_.database, box_.state, box_.counters, box_.linkRecords, *hooks_, {}, {} },
      *config_ );
}

void Agent::stop() {
   if( !config_ ) return;
   service_ = nullptr;
   linkControl_ = nullptr;
   box_.links.recordsFollow( false );
}

void Agent::crash() {
   if( !config_ ) return;
   graveyard().push_back( { std::move( linkControl_ ), std::move( service_ ) } );
   box_.links.recordsFollow( false );
}

}  // namespace Sim

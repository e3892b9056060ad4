#include "BoxService.h"

#include <ctime>

namespace Host {

namespace {

double secondsOf( clockid_t clock ) {
   timespec now{};
   clock_gettime( clock, &now );
   return static_cast<double>( now.tv_sec ) + static_cast<double>( now.tv_nsec ) * 1e-9;
}

// Asked for anew each time: the wall clock may be set while the agent runs.
double wallClockOffset() { return secondsOf( CLOCK_REALTIME ) - secondsOf( CLOCK_BOOTTIME ); }

}  // namespace

void BoxService::NoHooks::run( Service::HookRequest const & request, Done done ) {
   done( "this maintd runs no programs, and stage \"" + request.stage + "\" is one" );
}

BoxService::BoxService( Service::Config::Config const & config, std::string const & counterTable,
                        Service::UnitService::OnEvent onEvent )
   : database_( new Dovra::EntityManager ),
     state_( *database_ ),
     counterWriter_( state_.counterWriterStatus, counterTable ),
     linkRecords_( state_ ),
     linkFeed_( linkRecords_, counterWriter_ ),
     linkMonitor_( [this]( Linux::Link const & link ) { linkFeed_.changed( link ); },
                   [this]( Linux::Link const & link ) { linkFeed_.removed( link ); } ),
     counterFeed_( linkFeed_, counterWriter_ ),
     counters_( new KelQuill::EntityManager( counterWriter_.table() ) ),
     service_( { .database = database_,
                 .state = state_,
                 .counters = counters_,
                 .links = linkRecords_,
                 .hooks = hooks_,
                 .onEvent = std::move( onEvent ),
                 .wallClockOffset = wallClockOffset },
               config ) {
   counters_->refresherIs( [this]( auto rows ) { counterFeed_.refresh( rows ); } );
}

}  // namespace Host

#include "metrics/LiveCounters.h"

#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>

#include "events/Events.h"

namespace Host {

namespace {

prometheus::Family<prometheus::Counter> & reloads( prometheus::Registry & registry ) {
   return prometheus::BuildCounter()
      .Name( "ratemon_config_reloads_total" )
      .Help( "Times that the configuration was to be read again, by what became of it." )
      .Register( registry );
}

}  // namespace

LiveCounters::LiveCounters()
   : events_( prometheus::BuildCounter()
                 .Name( "ratemon_events_total" )
                 .Help( "Events since the agent started, by kind, as GET /v1/events tells them." )
                 .Register( registry_ ) ),
     reloadsApplied_( reloads( registry_ ).Add( { { "result", "applied" } } ) ),
     reloadsRefused_( reloads( registry_ ).Add( { { "result", "refused" } } ) ),
     lastReloadApplied_( prometheus::BuildGauge()
                            .Name( "ratemon_config_last_reload_successful" )
                            .Help( "Whether the configuration file was in force after it was read last." )
                            .Register( registry_ )
                            .Add( {} ) ),
     lateness_( prometheus::BuildHistogram()
                   .Name( "ratemon_timer_lateness_seconds" )
                   .Help( "How late timers ran, those that take samples among them." )
                   .Register( registry_ )
                   .Add( {}, prometheus::Histogram::BucketBoundaries{ 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1,
                                                                      0.25, 0.5, 1, 5 } ) ) {
   // There from the start, at 0: what first appears at 1 is no increase for a program that computes rates.
   for( uint8_t i = 0; char const * const kind = enumName( static_cast<Service::EventKind>( i ) ); ++i )
      events_.Add( { { "kind", kind } } );
   // What the agent starts with was read just now.
   lastReloadApplied_.Set( 1 );
}

void LiveCounters::eventInc( std::string const & kind ) { events_.Add( { { "kind", kind } } ).Increment(); }

void LiveCounters::reloadInc( bool applied ) {
   ( applied ? reloadsApplied_ : reloadsRefused_ ).Increment();
   lastReloadApplied_.Set( applied ? 1 : 0 );
}

void LiveCounters::latenessIs( double seconds ) { lateness_.Observe( seconds ); }

}  // namespace Host

#include "controller/FleetMetrics.h"

#include <prometheus/text_serializer.h>

#include <map>
#include <utility>

namespace Fleet {

namespace {

using prometheus::MetricFamily;
using SeriesLabels = std::vector<std::pair<std::string, std::string>>;

MetricFamily gauge( char const * name, char const * help ) { return { name, help, prometheus::MetricType::Gauge, {} }; }

void add( MetricFamily & family, double value, SeriesLabels const & labels = {} ) {
   prometheus::ClientMetric & metric = family.metric.emplace_back();
   for( auto const & [name, text] : labels ) metric.label.push_back( { name, text } );
   metric.gauge.value = value;
}

MetricFamily single( char const * name, char const * help, double value ) {
   MetricFamily family = gauge( name, help );
   add( family, value );
   return family;
}

// All words, also those of no unit: a rule that counts on one is to find a 0.
MetricFamily unitsByState( Survey const & survey ) {
   std::map<std::string_view, double> counts;
   for( auto const state : { UnitState::unknown, UnitState::active, UnitState::entering, UnitState::inMaintenance,
                             UnitState::failed, UnitState::leaving } )
      counts[nameOf( state )] = 0;
   for( Survey::BoxLook const & look : survey.boxes ) {
      for( std::string const & unit : look.box->units ) {
         UnitState state = UnitState::unknown;
         if( look.heard && !look.silent && look.trouble.empty() ) {
            auto const its = look.heard->status.units.find( unit );
            if( its != look.heard->status.units.end() ) state = its->second.state;
         }
         ++counts[nameOf( state )];
      }
   }
   MetricFamily family =
      gauge( "maintfleet_units",
             "units by the state that their boxes report, unknown of those that are silent or not to be believed" );
   for( auto const & [state, count] : counts ) add( family, count, { { "state", std::string( state ) } } );
   return family;
}

// Of boxes that are heard: whoever works at one of these has to be told.
double unitsDisturbed( Survey const & survey ) {
   double count = 0;
   for( Survey::BoxLook const & look : survey.boxes ) {
      if( !look.heard || look.silent ) continue;
      for( auto const & [unit, status] : look.heard->status.units ) count += status.disturbed;
   }
   return count;
}

MetricFamily groupsOut( Survey const & survey, Inventory const & inventory ) {
   MetricFamily family = gauge( "maintfleet_group_out", "units of the group that count as out of service" );
   for( Group const & group : inventory.groups() ) {
      auto const out = survey.out.find( &group );
      add( family, out == survey.out.end() ? 0 : static_cast<double>( out->second.size() ),
           { { "group", group.name } } );
   }
   return family;
}

MetricFamily groupsMayBeOut( Inventory const & inventory ) {
   MetricFamily family = gauge( "maintfleet_group_may_be_out", "units of the group that may be out at once" );
   for( Group const & group : inventory.groups() )
      add( family, static_cast<double>( group.mayBeOut() ), { { "group", group.name } } );
   return family;
}

MetricFamily plansUnderWay( Dispatcher const & dispatcher ) {
   MetricFamily family = gauge( "maintfleet_plan_state", "1 for each plan that is running or paused" );
   for( auto const & [id, plan] : dispatcher.books().plans() ) {
      if( !plan.over() ) add( family, 1, { { "plan", id }, { "state", std::string( nameOf( plan.state ) ) } } );
   }
   return family;
}

}  // namespace

Host::HttpAnswer metricsAnswer( Dispatcher const & dispatcher, Survey const & survey,
                                Surroundings const & surroundings ) {
   std::vector<MetricFamily> families{
      unitsByState( survey ),
      single( "maintfleet_units_out", "units that count as out of service",
              static_cast<double>( survey.units - survey.inService ) ),
      single( "maintfleet_units_disturbed", "units in maintenance that have traffic again", unitsDisturbed( survey ) ),
      single( "maintfleet_boxes_silent", "boxes that were not heard for three heartbeats",
              static_cast<double>( survey.silentBoxes ) ),
      single( "maintfleet_brakes", "brakes that are on", static_cast<double>( dispatcher.books().brakes().size() ) ),
      single( "maintfleet_reachable", "1 while boxes can be reached by the broker", surroundings.reachable ? 1 : 0 ),
      single( "maintfleet_doubt", "1 while nothing is ordered, as the books are in doubt or cannot be kept",
              dispatcher.doubt().empty() && surroundings.trouble.empty() ? 0 : 1 ),
      groupsOut( survey, dispatcher.inventory() ),
      groupsMayBeOut( dispatcher.inventory() ),
      plansUnderWay( dispatcher ) };
   // One without any series would be no more than its name.
   std::erase_if( families, []( MetricFamily const & family ) { return family.metric.empty(); } );
   return { .body = prometheus::TextSerializer().Serialize( families ),
            .contentType = "text/plain; version=0.0.4; charset=utf-8" };
}

}  // namespace Fleet

// What is told of plans.
#include <algorithm>
#include <cmath>

#include "controller/Views.h"
#include "kel/QuantityText.h"

namespace Fleet {

namespace json = boost::json;

namespace {

constexpr double waitSteps = 5;  // s

// What a plan waits for has spans in it, as that it soaks for 20 s more. Told in steps, so that a plan which only waits
// is not another one with every second.
std::vector<std::string> waitsForAt( Dispatcher const & dispatcher, Plan const & plan, double now ) {
   return dispatcher.waitsFor( plan, std::floor( now / waitSteps ) * waitSteps );
}

json::object requestView( PlanRequest const & request ) {
   json::object labels;
   for( auto const & [label, text] : request.select.labels ) labels[label] = text;
   return { { "boxes", textsView( request.select.boxes ) },
            { "labels", std::move( labels ) },
            { "unit", request.select.unit },
            { "waves", wavesText( request.waves ) },
            { "soakSeconds", numberView( request.soakSeconds ) },
            { "deadlineSeconds", numberView( request.deadlineSeconds ) },
            { "atDeadline", nameOf( request.atDeadline ) },
            { "staySeconds", request.staySeconds ? numberView( *request.staySeconds ) : json::value() } };
}

json::object memberView( Member const & member ) {
   return { { "unit", member.unit.text() },
            { "step", nameOf( member.step ) },
            { "since", numberView( member.since ) },
            { "fault", member.fault },
            { "leftOut", member.leftOut } };
}

}  // namespace

std::string wavesText( std::vector<WaveSize> const & sizes ) {
   std::string text;
   for( WaveSize const & size : sizes )
      text += ( text.empty() ? "" : ", " ) + Kel::numberText( size.amount, 3 ) + ( size.share ? "%" : "" );
   return text;
}

std::vector<Plan const *> plansByAge( Dispatcher const & dispatcher ) {
   std::vector<Plan const *> plans;
   for( auto const & [id, plan] : dispatcher.books().plans() ) plans.push_back( &plan );
   // Of two that were made in one second the later has the larger number, and so a longer id or a greater one.
   std::ranges::sort( plans, []( Plan const * one, Plan const * other ) {
      if( one->made != other->made ) return one->made > other->made;
      return one->id.size() != other->id.size() ? one->id.size() > other->id.size() : one->id > other->id;
   } );
   return plans;
}

json::object planView( Dispatcher const & dispatcher, Plan const & plan, double now ) {
   std::size_t units = 0;
   std::size_t done = 0;
   for( Wave const & wave : plan.waves ) {
      units += wave.size();
      done += static_cast<std::size_t>( std::ranges::count( wave, Step::done, &Member::step ) );
   }
   return { { "plan", plan.id },
            { "state", nameOf( plan.state ) },
            { "why", plan.why },
            { "wave", plan.wave + 1 },
            { "waves", plan.waves.size() },
            { "units", units },
            { "done", done },
            { "by", plan.request.by },
            { "made", numberView( plan.made ) },
            { "waitsFor", textsView( waitsForAt( dispatcher, plan, now ) ) } };
}

json::object wholePlanView( Dispatcher const & dispatcher, Plan const & plan, double now ) {
   json::object view = planView( dispatcher, plan, now );
   view["request"] = requestView( plan.request );
   json::array waves;
   for( Wave const & wave : plan.waves ) {
      json::array & members = waves.emplace_back( json::array() ).get_array();
      for( Member const & member : wave ) members.push_back( memberView( member ) );
   }
   view["members"] = std::move( waves );
   return view;
}

json::object plansView( Dispatcher const & dispatcher, double now ) {
   json::array plans;
   for( Plan const * plan : plansByAge( dispatcher ) ) plans.push_back( planView( dispatcher, *plan, now ) );
   return { { "now", numberView( now ) }, { "plans", std::move( plans ) } };
}

}  // namespace Fleet

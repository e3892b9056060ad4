#include "controller/Api.h"

#include <boost/json/serialize.hpp>

#include "controller/FleetMetrics.h"
#include "kel/NearMiss.h"
#include "memory/Memory.h"
#include "page/Page.h"

namespace Fleet {

namespace json = boost::json;
using Host::HttpAnswer;
using Host::httpError;
using Host::HttpRequest;
using Host::Target;

namespace {

HttpAnswer jsonAnswer( json::object const & body, std::string outcome = {} ) {
   return { .status = 200, .body = json::serialize( body ) + "\n", .outcome = std::move( outcome ) };
}

// Nothing was changed, and this is why.
HttpAnswer refusedAnswer( std::string const & why ) {
   HttpAnswer answer = jsonAnswer( { { "error", why }, { "why", json::array( { json::string( why ) } ) } } );
   answer.status = 409;
   answer.outcome = json::serialize( json::string( why ) );
   return answer;
}

// Without its parameters another thing would be done: with all boxes in place of one, and in earnest.
HttpAnswer bodyAnswer() {
   return httpError( 400,
                     "the parameters of a change stand in its target, as /v1/brake?site=fra, and a body is not read" );
}

HttpAnswer streamAnswer( std::shared_ptr<Host::HttpStream> stream ) {
   return { .body = {},
            .contentType = "text/event-stream",
            .fields = { { "Cache-Control", "no-store" } },
            .stream = std::move( stream ) };
}

// A file of the page. Asked for anew each time, so that page and program are of one release.
HttpAnswer pageAnswer( std::string const & path ) {
   auto const file = pageFile( path );
   if( !file ) return httpError( 404, "there is nothing at " + path );
   return { .body = std::string( file->bytes ),
            .contentType = file->contentType,
            .fields = { { "Content-Security-Policy", std::string( pageFramePolicy ) },
                        { "X-Content-Type-Options", "nosniff" },
                        { "Cache-Control", "no-cache" } } };
}

}  // namespace

struct Api::Route {
   std::string_view method;
   std::vector<std::string_view> path;  // below /v1; "*" is open
   HttpAnswer ( *answer )( Api &, Asked const & );
};

std::span<Api::Route const> Api::routes() {
   using A = Asked const;
   static Route const all[] = {
      { "GET", { "fleet" }, []( Api & api, A & ) { return api.fleet(); } },
      { "GET",
        { "boxes" },
        []( Api & api, A & ) {
           return jsonAnswer( boxesView( surveyOf( api.parts_.dispatcher, api.parts_.now() ) ) );
        } },
      { "GET", { "boxes", "*" }, []( Api & api, A & a ) { return api.box( a.names[0] ); } },
      { "GET",
        { "plans" },
        []( Api & api, A & ) { return jsonAnswer( plansView( api.parts_.dispatcher, api.parts_.now() ) ); } },
      { "GET", { "plans", "*" }, []( Api & api, A & a ) { return api.plan( a.names[0] ); } },
      { "GET", { "history" }, []( Api & api, A & a ) { return api.history( a ); } },
      { "GET", { "can-stop" }, []( Api & api, A & a ) { return api.canStop( a ); } },
      { "GET",
        { "stream" },
        []( Api & api, A & ) {
           return api.parts_.stream ? streamAnswer( api.parts_.stream() ) : httpError( 404, "there is no stream" );
        } },
      { "POST", { "plans" }, []( Api & api, A & a ) { return api.makePlan( a ); } },
      { "POST", { "plans", "*", "*" }, []( Api & api, A & a ) { return api.changePlan( a ); } },
      { "POST", { "return" }, []( Api & api, A & a ) { return api.bringBack( a ); } },
      { "POST", { "brake" }, []( Api & api, A & a ) { return api.brake( a, true ); } },
      { "POST", { "release" }, []( Api & api, A & a ) { return api.brake( a, false ); } },
      { "POST", { "accept" }, []( Api & api, A & a ) { return api.accept( a ); } },
   };
   return all;
}

HttpAnswer Api::answer( HttpRequest const & request ) {
   auto const target = Target::parse( request.target );
   if( !target ) return httpError( 400, "the request's target is malformed or not properly percent-encoded" );
   if( target->path.size() > Target::componentsMax )
      return httpError( 414, "a path may have " + std::to_string( Target::componentsMax ) + " components" );
   if( !target->path.empty() && target->path.front() == "v1" ) return routed( request, *target );
   if( request.method != "GET" ) return httpError( 405, "this is only for reading" );
   if( target->path == Target::Path{ "metrics" } )
      return metricsAnswer( parts_.dispatcher, surveyOf( parts_.dispatcher, parts_.now() ), parts_.surroundings() );
   std::string path = "/";
   for( std::string const & component : target->path ) path += ( path == "/" ? "" : "/" ) + component;
   return pageAnswer( path );
}

HttpAnswer Api::routed( HttpRequest const & request, Target const & target ) {
   Target::Path const below( target.path.begin() + 1, target.path.end() );
   std::string allowed;
   for( Route const & route : routes() ) {
      auto const names = Target::openIn( route.path, below );
      if( !names ) continue;
      if( route.method != request.method ) {
         allowed += route.method == "GET" ? "GET, HEAD, " : std::string( route.method ) + ", ";
         continue;
      }
      std::string by = request.user;
      if( request.method == "POST" ) {
         if( auto away = turnedAway( request, by ) ) return std::move( *away );
      }
      HttpAnswer answer = request.method == "POST" && request.hasBody
                             ? bodyAnswer()
                             : carriedOut( route, { target.parameters, *names, by } );
      answer.by = by;
      return answer;
   }
   if( allowed.empty() ) return httpError( 404, "there is nothing at " + request.method + " " + request.target );
   HttpAnswer answer;
   if( request.method != "OPTIONS" ) answer = httpError( 405, request.target + " has no method " + request.method );
   answer.allow = allowed + "OPTIONS";
   return answer;
}

std::optional<HttpAnswer> Api::turnedAway( HttpRequest const & request, std::string & by ) const {
   if( request.address.empty() ) return std::nullopt;
   if( !parts_.keys )
      return httpError( 403,
                        "nothing is changed over the network here, as there are no operators' keys; changes are "
                        "taken at " +
                           parts_.socket );
   auto const owner = parts_.keys->ownerOf( request.authorization );
   if( owner ) {
      by = *owner;
      return std::nullopt;
   }
   HttpAnswer answer =
      httpError( 401, request.authorization.empty() ? "changes need an operator's key" : "that is no operator's key" );
   answer.fields.emplace_back( "WWW-Authenticate", "Bearer" );
   return answer;
}

HttpAnswer Api::carriedOut( Route const & route, Asked const & asked ) {
   try {
      HttpAnswer answer = route.answer( *this, asked );
      if( route.method == "POST" && answer.status == 200 && parts_.changed ) parts_.changed();
      return answer;
   } catch( BadQuery const & fault ) {
      return httpError( 400, fault.what() );
   } catch( Refused const & refusal ) {
      return refusedAnswer( refusal.what() );
   } catch( MemoryFault const & fault ) {
      char const * const what = route.method == "GET" ? "" : "nothing is changed, as it cannot be kept: ";
      return httpError( 503, std::string( what ) + fault.what() );
   }
}

HttpAnswer Api::fleet() const {
   Survey const survey = surveyOf( parts_.dispatcher, parts_.now() );
   return jsonAnswer( fleetView( parts_.dispatcher, survey, parts_.surroundings() ) );
}

HttpAnswer Api::box( std::string const & name ) const {
   Inventory const & inventory = parts_.dispatcher.inventory();
   if( Box const * const box = inventory.box( name ) )
      return jsonAnswer( wholeBoxView( parts_.dispatcher, lookAt( parts_.dispatcher, *box, parts_.now() ) ) );
   std::vector<std::string> names;
   for( Box const & box : inventory.boxes() ) names.push_back( box.name );
   return httpError( 404, "there is no box \"" + name + "\"" + Kel::didYouMean( name, names ) );
}

HttpAnswer Api::plan( std::string const & id ) const {
   auto const & plans = parts_.dispatcher.books().plans();
   auto const plan = plans.find( id );
   if( plan == plans.end() ) return httpError( 404, "there is no plan \"" + id + "\"" );
   return jsonAnswer( wholePlanView( parts_.dispatcher, plan->second, parts_.now() ) );
}

HttpAnswer Api::history( Asked const & asked ) const {
   RecordQuery const query = historyQuery( asked.parameters );
   return jsonAnswer( historyView( parts_.dispatcher.books().happened( query ), query.most, parts_.now() ) );
}

HttpAnswer Api::canStop( Asked const & asked ) const {
   auto [units, select] = unitsQuery( asked.parameters );
   Inventory const & inventory = parts_.dispatcher.inventory();
   for( UnitName const & unit : units ) {
      if( !inventory.has( unit ) ) throw Refused( "there is no unit \"" + unit.text() + "\"" );
   }
   if( !select.boxes.empty() ) {
      auto const more = selected( inventory, select );
      units.insert( units.end(), more.begin(), more.end() );
   }
   return jsonAnswer( canStopView( parts_.dispatcher, units, parts_.now() ) );
}

HttpAnswer Api::makePlan( Asked const & asked ) {
   PlanQuery const query = planQuery( asked.parameters, asked.by );
   Inventory const & inventory = parts_.dispatcher.inventory();
   Layout const layout = layoutOf( inventory, selected( inventory, query.request.select ), query.request.waves );
   if( query.dryRun ) return jsonAnswer( layoutView( "", layout ), "dry run" );
   std::string const id = parts_.dispatcher.planMade( query.request, parts_.now() );
   return jsonAnswer( layoutView( id, layout ), id );
}

HttpAnswer Api::changePlan( Asked const & asked ) {
   std::string const & id = asked.names[0];
   std::string const & what = asked.names[1];
   if( what != "pause" && what != "resume" && what != "cancel" )
      return httpError( 404, "a plan can be told to pause, resume or cancel, not \"" + what + "\"" );
   if( !parts_.dispatcher.books().plans().contains( id ) ) return httpError( 404, "there is no plan \"" + id + "\"" );
   if( what == "resume" ) {
      parts_.dispatcher.planResumed( id, withoutQuery( asked.parameters ), asked.by, parts_.now() );
      return jsonAnswer( { { "plan", id } }, "resumed" );
   }
   noQuery( asked.parameters );
   if( what == "pause" ) {
      parts_.dispatcher.planPaused( id, asked.by, parts_.now() );
   } else {
      parts_.dispatcher.planCancelled( id, asked.by, parts_.now() );
   }
   return jsonAnswer( { { "plan", id } }, what == "pause" ? "paused" : "cancelled" );
}

HttpAnswer Api::bringBack( Asked const & asked ) {
   auto [units, select] = unitsQuery( asked.parameters );
   if( !select.boxes.empty() ) {
      // Of a box those that are out: that another of its units is in service is no mistake.
      auto const all = selected( parts_.dispatcher.inventory(), select );
      std::size_t const before = units.size();
      for( UnitName const & unit : all ) {
         if( parts_.dispatcher.standing( unit, parts_.now() ).out ) units.push_back( unit );
      }
      if( units.size() == before ) throw Refused( "all of " + select.boxes.front() + " is in service" );
   }
   parts_.dispatcher.returned( units, asked.by, parts_.now() );
   return jsonAnswer( { { "units", unitsView( units ) } }, std::to_string( units.size() ) + " ordered back" );
}

HttpAnswer Api::brake( Asked const & asked, bool on ) {
   std::string const site = siteQuery( asked.parameters );
   if( on ) {
      parts_.dispatcher.braked( site, asked.by, parts_.now() );
   } else {
      parts_.dispatcher.unbraked( site, asked.by, parts_.now() );
   }
   return jsonAnswer( { { "site", site }, { "brake", on } }, on ? "brake on" : "brake off" );
}

HttpAnswer Api::accept( Asked const & asked ) {
   noQuery( asked.parameters );
   std::string const doubt = parts_.dispatcher.doubt();
   parts_.dispatcher.doubtAccepted( asked.by, parts_.now() );
   return jsonAnswer( { { "accepted", doubt } }, "accepted" );
}

}  // namespace Fleet

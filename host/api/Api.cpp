#include "api/Api.h"

#include <algorithm>
#include <boost/asio/ip/address.hpp>
#include <charconv>
#include <cmath>
#include <system_error>

#include "api/EventStream.h"
#include "api/TraceLevels.h"
#include "api/WatchStream.h"
#include "dovra/StatePath.h"
#include "kel/Json.h"
#include "kel/NearMiss.h"

namespace Host {

using Kel::value;
using Service::UnitService;
using Path = Target::Path;

namespace {

// As many names as somebody reads.
constexpr std::size_t mostNames = 20;

std::vector<Kel::String8> texts( std::vector<std::string> const & names ) { return { names.begin(), names.end() }; }

HttpAnswer json( Kel::Value const & body, unsigned status = 200 ) { return { status, Kel::toJson( body ) + "\n" }; }

// What a request to enter asks for besides the unit.
struct EnterQuery {
   std::vector<std::string> without;
   bool dryRun = false;
   bool yes = false;     // whatever the guard would say
   std::string session;  // address; empty: the caller has not come over the network, or does not know
};

bool isAddress( std::string const & text ) {
   boost::system::error_code error;
   static_cast<void>( boost::asio::ip::make_address( text, error ) );
   return !error;
}

// None where the query has anything else in it: an option that is misspelt must not be passed over, as the unit would
// go into maintenance without it.
std::optional<EnterQuery> enterQuery( Target::Parameters const & given ) {
   EnterQuery query;
   for( auto const & [name, text] : given ) {
      bool const flag = text == "1" || text == "0";
      if( name == "without" ) {
         query.without.push_back( text );
      } else if( name == "dry-run" && flag ) {
         query.dryRun = text == "1";
      } else if( name == "yes" && flag ) {
         query.yes = text == "1";
      } else if( name == "session" && query.session.empty() && isAddress( text ) ) {
         query.session = text;
      } else {
         return std::nullopt;
      }
   }
   return query;
}

// Which window of the unit is meant, a number or "last"; none where that is neither, or there is no window at all.
std::optional<uint32_t> generationOf( Service::WindowView const & windows, std::string const & unit,
                                      std::string const & text ) {
   if( text == "last" ) {
      // The latest request is the first in the list.
      for( auto const & window : windows.windows().windows ) {
         if( window.unit.str() == unit ) return window.generation;
      }
      return std::nullopt;
   }
   uint32_t number = 0;
   auto const read = std::from_chars( text.data(), text.data() + text.size(), number );
   bool const whole = read.ec == std::errc() && read.ptr == text.data() + text.size();
   return whole ? std::optional( number ) : std::nullopt;
}

// Refused: nothing was changed, and this is why.
HttpAnswer refusal( std::string const & what, std::vector<std::string> const & why ) {
   std::string text = what;
   for( std::string const & reason : why ) text += ( &reason == &why.front() ? ": " : "; " ) + reason;
   Kel::Value::List reasons;
   for( std::string const & reason : why ) reasons.push_back( value( reason ) );
   auto answer =
      json( value( Kel::Value::Object{ { "error", value( text ) },
                                       { "why", Kel::Value( Kel::Value::Content( std::move( reasons ) ) ) } } ),
            409 );
   answer.outcome = Kel::toJson( std::string_view( text ) );
   return answer;
}

// Of a request that was carried out, or would be.
HttpAnswer done( Service::RequestAnswer const & told ) {
   auto answer = json( value( told ) );
   answer.outcome = told.result.str();
   if( told.generation ) answer.outcome += ", generation " + std::to_string( *told.generation );
   return answer;
}

}  // namespace

// What leads where: a component "*" is open, and "**" at the end stands for one or more. Each method of a path has a
// route of its own.
struct Api::Route {
   std::string_view method;
   std::vector<std::string_view> path;
   HttpAnswer ( *answer )( Api &, Asked const & );
};

std::span<Api::Route const> Api::routes() {
   using A = Asked const;
   static Route const all[] = {
      { "GET", { "units" }, []( Api & api, A & ) { return json( value( api.service_.views().units() ) ); } },
      { "GET",
        { "units", "*" },
        []( Api & api, A & a ) { return api.ofUnit( a.names[0], api.service_.views().unit( a.names[0] ) ); } },
      { "GET",
        { "units", "*", "ready" },
        []( Api & api, A & a ) { return api.ofUnit( a.names[0], api.service_.views().ready( a.names[0] ) ); } },
      { "POST", { "units", "*", "enter" }, []( Api & api, A & a ) { return api.enter( a ); } },
      { "POST", { "units", "*", "exit" }, []( Api & api, A & a ) { return api.exit( a ); } },
      { "GET", { "interfaces" }, []( Api & api, A & ) { return json( value( api.service_.views().interfaces() ) ); } },
      { "GET", { "interfaces", "*" }, []( Api & api, A & a ) { return api.interface( a.names[0] ); } },
      { "GET", { "windows" }, []( Api & api, A & ) { return json( value( api.windows_.windows() ) ); } },
      { "GET", { "windows", "*" }, []( Api & api, A & a ) { return api.windowsOf( a.names[0] ); } },
      { "GET", { "windows", "*", "*" }, []( Api & api, A & a ) { return api.window( a.names[0], a.names[1] ); } },
      { "GET", { "state" }, []( Api & api, A & a ) { return api.state( a.names ); } },
      { "GET", { "state", "**" }, []( Api & api, A & a ) { return api.state( a.names ); } },
      { "GET", { "watch" }, []( Api & api, A & a ) { return watchAnswer( api.changes_, {}, a.parameters ); } },
      { "GET",
        { "watch", "**" },
        []( Api & api, A & a ) { return watchAnswer( api.changes_, a.names, a.parameters ); } },
      { "GET", { "events" }, []( Api & api, A & a ) { return eventsAnswer( api.service_, a.parameters ); } },
      { "GET", { "dump" }, []( Api & api, A & ) { return api.dump(); } },
      { "GET", { "record" }, []( Api & api, A & a ) { return api.record( a ); } },
      { "GET", { "trace", "levels" }, []( Api &, A & ) { return json( traceLevels() ); } },
      { "POST", { "trace", "levels" }, []( Api &, A & a ) { return changeLevels( a ); } },
      { "POST", { "reload" }, []( Api & api, A & a ) { return api.reload( a.request.user ); } },
   };
   return all;
}

std::span<Api::Route const> Api::routesBeside() {
   static Route const all[] = {
      { "GET",
        { "metrics" },
        []( Api & api, Asked const & ) {
           return api.metrics_ ? api.metrics_() : httpError( 404, "no metrics are kept" );
        } },
   };
   return all;
}

std::vector<std::string> Api::routeTexts() {
   std::vector<std::string> texts;
   auto const tell = [&]( std::string const & prefix, std::span<Route const> told ) {
      for( Route const & route : told ) {
         std::string & text = texts.emplace_back( std::string( route.method ) + " " + prefix );
         for( std::string_view const component : route.path ) text.append( "/" ).append( component );
      }
   };
   tell( "/v1", routes() );
   tell( "", routesBeside() );
   return texts;
}

HttpAnswer Api::answer( HttpRequest const & request ) {
   // The whole service is meant, and nothing in particular.
   if( request.target == "*" ) return { .body = "", .allow = "GET, HEAD, POST, OPTIONS" };
   auto const target = Target::parse( request.target );
   if( !target ) return httpError( 400, "the request's target is malformed or not properly percent-encoded" );
   if( target->path.size() > Target::componentsMax )
      return httpError( 414, "a path may have " + std::to_string( Target::componentsMax ) + " components" );
   std::string allowed;
   Path const & path = target->path;
   bool const versioned = !path.empty() && path[0] == "v1";
   Path const below( path.begin() + ( versioned ? 1 : 0 ), path.end() );
   for( Route const & route : versioned ? routes() : routesBeside() ) {
      auto const names = Target::openIn( route.path, below );
      if( !names ) continue;
      if( route.method == request.method ) return route.answer( *this, { request, target->parameters, *names } );
      allowed += route.method == "GET" ? "GET, HEAD, " : std::string( route.method ) + ", ";
   }
   if( allowed.empty() ) return httpError( 404, "there is nothing at " + request.method + " " + request.target );
   HttpAnswer answer;
   if( request.method != "OPTIONS" ) answer = httpError( 405, request.target + " has no method " + request.method );
   answer.allow = allowed + "OPTIONS";
   return answer;
}

HttpAnswer Api::record( Asked const & asked ) const {
   std::optional<double> seconds;
   for( auto const & [name, text] : asked.parameters ) {
      double number = 0;
      auto const read = std::from_chars( text.data(), text.data() + text.size(), number, std::chars_format::fixed );
      bool const whole = read.ec == std::errc() && read.ptr == text.data() + text.size() && std::isfinite( number );
      if( name != "for" || !whole || number <= 0 || seconds )
         return httpError( 400, "a recording takes a time in seconds, as in ?for=3600, and nothing else" );
      seconds = number;
   }
   if( !record_ ) return httpError( 503, "nobody records here" );
   HttpAnswer answer{ .body = "", .contentType = "application/x-ndjson" };
   answer.stream = record_( seconds );
   return answer;
}

HttpAnswer Api::changeLevels( Asked const & asked ) {
   std::optional<Kel::TraceHandle::Levels> levels;
   // The first of several counts.
   for( auto const & [name, text] : asked.parameters ) {
      if( name != "levels" ) continue;
      levels = levelsOf( text );
      break;
   }
   if( !levels )
      return httpError( 400, "trace levels are numbers from 0 to 31, as in ?levels=1,2,4; none as ?levels=" );
   traceLevelsIs( *levels );
   return json( traceLevels() );
}

HttpAnswer Api::noUnit( std::string const & name ) const {
   std::vector<std::string> names;
   for( auto const & unit : service_.config().units ) names.push_back( unit.name );
   std::string const near = Kel::didYouMean( name, names );
   std::string const units = names.empty() ? "there are none" : "the units are: " + Kel::listed( names, mostNames );
   return httpError( 404, "there is no unit \"" + name + "\"" + ( near.empty() ? "; " + units : near ) );
}

template<class T>
HttpAnswer Api::ofUnit( std::string const & unit, std::optional<T> const & answer ) const {
   return answer ? json( value( *answer ) ) : noUnit( unit );
}

HttpAnswer Api::interface( std::string const & name ) const {
   Service::UnitsAnswer const answer{ .units = service_.views().explain( name ) };
   if( answer.units.empty() ) {
      std::vector<std::string> names;
      for( auto const & group : service_.config().groups )
         names.insert( names.end(), group.interfaces.begin(), group.interfaces.end() );
      return httpError( 404, "no unit has an interface \"" + name + "\"" + Kel::didYouMean( name, names ) );
   }
   return json( value( answer ) );
}

HttpAnswer Api::windowsOf( std::string const & unit ) const {
   auto answer = windows_.windows();
   std::erase_if( answer.windows, [&]( auto const & window ) { return window.unit.str() != unit; } );
   // A unit that the configuration no longer has may still have windows, and one that it has need not have any yet.
   if( answer.windows.empty() && !service_.views().unit( unit ) ) return noUnit( unit );
   return json( value( answer ) );
}

HttpAnswer Api::window( std::string const & unit, std::string const & generation ) const {
   std::optional<Service::WindowAnswer> answer;
   if( auto const number = generationOf( windows_, unit, generation ) ) answer = windows_.window( unit, *number );
   if( answer ) return json( value( *answer ) );
   if( !generationOf( windows_, unit, "last" ) && !service_.views().unit( unit ) ) return noUnit( unit );
   return httpError( 404, generation == "last"
                             ? "unit \"" + unit + "\" has not been in maintenance yet"
                             : "no window of unit \"" + unit + "\" with generation " + generation + " is kept" );
}

template<class Change>
HttpAnswer Api::kept( Change const & change ) {
   if( !storeTrouble_ ) return change();
   if( std::string const trouble = storeTrouble_(); !trouble.empty() )
      return httpError( 503, "nothing is changed, as it could not be kept on disk: " + trouble );
   HttpAnswer answer = change();
   if( answer.status != 200 ) return answer;
   // What the turn changes is written at its end.
   answer.afterTurn = [this]( HttpAnswer & given ) {
      std::string const trouble = storeTrouble_();
      if( trouble.empty() ) return;
      std::string const outcome = given.outcome;
      given = httpError( 500, "the request is in force, but not on disk: " + trouble );
      given.outcome = outcome + ", " + given.outcome;
   };
   return answer;
}

HttpAnswer Api::enter( Asked const & asked ) {
   std::string const & unit = asked.names[0];
   auto const query = enterQuery( asked.parameters );
   if( !query )
      return httpError( 400,
                        "enter takes without=INTERFACE, as often as needed, dry-run=1, yes=1 and session=ADDRESS, and "
                        "nothing else" );
   auto & units = service_.units();
   auto const refused = [&]( std::vector<std::string> const & why ) {
      return refusal( "unit \"" + unit + "\" is not taken into maintenance", why );
   };
   auto const carryOut = [&] {
      auto answer = units.wouldEnter( unit, query->without );
      if( answer.outcome == UnitService::Outcome::unknownUnit ) return noUnit( unit );
      if( answer.outcome == UnitService::Outcome::started && guard_ && !query->yes ) {
         auto const why = guard_( unit, query->without, query->session );
         if( !why.empty() ) {
            if( !query->dryRun ) service_.tellRefused( unit, "enter", asked.request.user, why );
            return refused( why );
         }
      }
      if( !query->dryRun ) answer = units.enter( unit, query->without, asked.request.user );
      if( answer.outcome == UnitService::Outcome::refused ) return refused( answer.why );
      auto told = Service::Views::request( "enter", unit, answer );
      if( query->dryRun && answer.outcome == UnitService::Outcome::started ) {
         // Not to be taken for a request that was carried out, which has a generation.
         told.result = Service::Text( "wouldStart" );
         told.generation.reset();
      }
      return done( told );
   };
   return query->dryRun ? carryOut() : kept( carryOut );
}

HttpAnswer Api::exit( Asked const & asked ) {
   return kept( [&] {
      std::string const & unit = asked.names[0];
      auto const answer = service_.units().exit( unit, asked.request.user );
      if( answer.outcome == UnitService::Outcome::unknownUnit ) return noUnit( unit );
      if( answer.outcome == UnitService::Outcome::refused )
         return refusal( "unit \"" + unit + "\" is not taken out of maintenance", answer.why );
      return done( Service::Views::request( "exit", unit, answer ) );
   } );
}

HttpAnswer Api::reload( std::string const & user ) {
   return kept( [&] {
      auto const why = reload_( user );
      if( !why.empty() ) return refusal( "the configuration was not reloaded, and the one before stays in force", why );
      auto answer = json( value( Kel::Value::Object{ { "result", value( "reloaded" ) } } ) );
      answer.outcome = "reloaded";
      return answer;
   } );
}

HttpAnswer Api::dump() const {
   try {
      return { .body = Maintenance::dumpText( plugin_ ), .contentType = "text/plain" };
   } catch( std::system_error const & error ) {
      // Out of descriptors or memory, as an agent may be whom too many ask.
      return httpError( 503, std::string( "there is no dump now: " ) + error.what() );
   }
}

HttpAnswer Api::state( Path const & path ) const {
   try {
      Kel::Value const found = path.empty() ? Kel::Value() : Dovra::stateValue( database_, path );
      if( !found.isNull() ) return json( found );
   } catch( Kel::AttributeError const & ) {
      // A path that no record can have; a null is one that no record has now. For a client both are nothing there.
   }
   auto const below = Dovra::stateBelow( database_, path );
   if( !below.empty() ) return json( value( Kel::Value::Object{ { "below", value( texts( below ) ) } } ) );
   return httpError( 404, Dovra::stateAbsence( database_, path ) );
}

}  // namespace Host

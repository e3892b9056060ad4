#include "api/Api.h"

#include <algorithm>
#include <charconv>

#include "api/TraceLevels.h"
#include "dovra/StatePath.h"
#include "kel/Json.h"

namespace Host {

using Kel::value;
using Service::UnitService;
using Path = std::vector<std::string>;

namespace {

HttpAnswer json( Kel::Value const & body, unsigned status = 200 ) { return { status, Kel::toJson( body ) + "\n" }; }

HttpAnswer error( unsigned status, std::string text ) {
   return json( value( Kel::Value::Object{ { "error", value( std::move( text ) ) } } ), status );
}

int hexDigit( char c ) {
   if( c >= '0' && c <= '9' ) return c - '0';
   if( c >= 'a' && c <= 'f' ) return c - 'a' + 10;
   return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// One component with its percent-encoding taken off (RFC 3986, section 2.1), none when that is broken. A "+" stays one:
// only HTML forms write a blank so.
std::optional<std::string> decoded( std::string_view text ) {
   std::string out;
   for( std::size_t i = 0; i < text.size(); ++i ) {
      if( text[i] != '%' ) {
         out += text[i];
         continue;
      }
      int const high = i + 2 < text.size() ? hexDigit( text[i + 1] ) : -1;
      int const low = high < 0 ? -1 : hexDigit( text[i + 2] );
      if( low < 0 ) return std::nullopt;
      out += static_cast<char>( high * 16 + low );
      i += 2;
   }
   return out;
}

// The decoded components of a target's path, none when one is malformed. Empty ones count for nothing, so "//v1/units/"
// leads where "/v1/units" does.
std::optional<Path> components( std::string_view target ) {
   Path path;
   target = target.substr( 0, target.find( '?' ) );
   while( !target.empty() ) {
      std::size_t const end = std::min( target.find( '/' ), target.size() );
      if( end > 0 ) {
         // Decoded after the split: the slash that a "%2F" stands for belongs to a name (RFC 3986, section 2.2).
         auto component = decoded( target.substr( 0, end ) );
         if( !component ) return std::nullopt;
         path.push_back( std::move( *component ) );
      }
      // The last component has no slash behind it to go over.
      target.remove_prefix( std::min( end + 1, target.size() ) );
   }
   return path;
}

using Parameters = std::vector<std::pair<std::string, std::string>>;

// The decoded parameters of a target's query, in their order, a name as often as it is there; none when one is
// malformed. One without "=" has the empty value.
std::optional<Parameters> parameters( std::string_view target ) {
   Parameters all;
   for( std::size_t at = target.find( '?' ); at != std::string_view::npos; at = target.find( '&' ) ) {
      target.remove_prefix( at + 1 );
      std::string_view const pair = target.substr( 0, target.find( '&' ) );
      if( pair.empty() ) continue;
      std::size_t const end = std::min( pair.find( '=' ), pair.size() );
      auto name = decoded( pair.substr( 0, end ) );
      auto text = decoded( pair.substr( std::min( end + 1, pair.size() ) ) );
      if( !name || !text ) return std::nullopt;
      all.emplace_back( std::move( *name ), std::move( *text ) );
   }
   return all;
}

// What a request to enter asks for besides the unit.
struct EnterQuery {
   std::vector<std::string> without;
   bool dryRun = false;
};

// None where the query is malformed or has anything else in it: an option that is misspelt must not be passed over, as
// the unit would go into maintenance without it.
std::optional<EnterQuery> enterQuery( std::string_view target ) {
   auto const given = parameters( target );
   if( !given ) return std::nullopt;
   EnterQuery query;
   for( auto const & [name, text] : *given ) {
      if( name == "without" ) {
         query.without.push_back( text );
      } else if( name == "dry-run" && ( text == "1" || text == "0" ) ) {
         query.dryRun = text == "1";
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
   return json( value( Kel::Value::Object{ { "error", value( text ) },
                                           { "why", Kel::Value( Kel::Value::Content( std::move( reasons ) ) ) } } ),
                409 );
}

}  // namespace

HttpAnswer Api::answer( HttpRequest const & request ) {
   auto const path = components( request.target );
   if( !path ) return error( 400, "the request's path is not properly percent-encoded" );
   bool const get = request.method == "GET";
   // 405 is for methods that nothing here answers. Where only the other one of the two leads anywhere, it is 404.
   if( !get && request.method != "POST" ) return error( 405, "only GET and POST are answered" );
   std::optional<HttpAnswer> answer;
   if( !path->empty() && path->front() == "v1" ) {
      Path const route( path->begin() + 1, path->end() );
      answer = get ? shown( route ) : done( route, request );
   }
   return answer ? *answer : error( 404, "there is nothing at " + request.method + " " + request.target );
}

std::optional<HttpAnswer> Api::shown( Path const & route ) const {
   auto const & views = service_.views();
   std::string const first = route.empty() ? "" : route[0];
   if( route == Path{ "units" } ) return json( value( views.units() ) );
   if( route == Path{ "interfaces" } ) return json( value( views.interfaces() ) );
   if( route == Path{ "dump" } ) return HttpAnswer{ 200, Maintenance::dumpText( plugin_ ), "text/plain" };
   if( route == Path{ "trace", "levels" } ) return json( traceLevels() );
   if( route.size() == 2 && first == "units" ) return ofUnit( route[1], views.unit( route[1] ) );
   if( route.size() == 3 && first == "units" && route[2] == "ready" )
      return ofUnit( route[1], views.ready( route[1] ) );
   if( route.size() == 2 && first == "interfaces" ) return interface( route[1] );
   if( route == Path{ "windows" } ) return json( value( windows_.windows() ) );
   if( route.size() == 2 && first == "windows" ) return windowsOf( route[1] );
   if( route.size() == 3 && first == "windows" ) return window( route[1], route[2] );
   if( route.size() > 1 && first == "state" ) return state( Path( route.begin() + 1, route.end() ) );
   return std::nullopt;
}

std::optional<HttpAnswer> Api::done( Path const & route, HttpRequest const & request ) {
   if( route == Path{ "trace", "levels" } ) return changeLevels( request.target );
   if( route == Path{ "reload" } ) return reload();
   if( route.size() != 3 || route[0] != "units" ) return std::nullopt;
   if( route[2] == "enter" ) return enter( route[1], request );
   if( route[2] == "exit" ) return exit( route[1], request );
   return std::nullopt;
}

HttpAnswer Api::changeLevels( std::string_view target ) {
   auto const given = parameters( target );
   std::optional<Kel::TraceHandle::Levels> levels;
   // The first of several counts.
   for( auto const & [name, text] : given.value_or( Parameters() ) ) {
      if( name != "levels" ) continue;
      levels = levelsOf( text );
      break;
   }
   if( !levels ) return error( 400, "trace levels are numbers from 0 to 31, as in ?levels=1,2,4; none as ?levels=" );
   traceLevelsIs( *levels );
   return json( traceLevels() );
}

HttpAnswer Api::noUnit( std::string const & name ) const {
   return error( 404, "there is no unit \"" + name + "\"; the units are: " + service_.views().unitNames() );
}

template<class T>
HttpAnswer Api::ofUnit( std::string const & unit, std::optional<T> const & answer ) const {
   return answer ? json( value( *answer ) ) : noUnit( unit );
}

HttpAnswer Api::interface( std::string const & name ) const {
   Service::UnitsAnswer const answer{ .units = service_.views().explain( name ) };
   if( answer.units.empty() ) return error( 404, "no unit has an interface \"" + name + "\"" );
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
   return error( 404, generation == "last"
                         ? "unit \"" + unit + "\" has not been in maintenance yet"
                         : "no window of unit \"" + unit + "\" with generation " + generation + " is kept" );
}

HttpAnswer Api::enter( std::string const & unit, HttpRequest const & request ) {
   auto const query = enterQuery( request.target );
   if( !query )
      return error( 400, "enter takes without=INTERFACE, as often as needed, and dry-run=1, and nothing else" );
   auto & units = service_.units();
   auto const answer =
      query->dryRun ? units.wouldEnter( unit, query->without ) : units.enter( unit, query->without, request.user );
   if( answer.outcome == UnitService::Outcome::unknownUnit ) return noUnit( unit );
   if( answer.outcome == UnitService::Outcome::refused ) {
      return refusal( "unit \"" + unit + "\" is not taken into maintenance", answer.why );
   }
   auto told = Service::Views::request( "enter", unit, answer );
   if( query->dryRun && answer.outcome == UnitService::Outcome::started ) {
      // Not to be taken for a request that was carried out, which has a generation.
      told.result = Service::Text( "wouldStart" );
      told.generation.reset();
   }
   return json( value( told ) );
}

HttpAnswer Api::exit( std::string const & unit, HttpRequest const & request ) {
   auto const answer = service_.units().exit( unit, request.user );
   if( answer.outcome == UnitService::Outcome::unknownUnit ) return noUnit( unit );
   if( answer.outcome == UnitService::Outcome::refused ) {
      return refusal( "unit \"" + unit + "\" is not taken out of maintenance", answer.why );
   }
   return json( value( Service::Views::request( "exit", unit, answer ) ) );
}

HttpAnswer Api::reload() {
   auto const why = reload_();
   if( !why.empty() ) return refusal( "the configuration was not reloaded, and the one before stays in force", why );
   return json( value( Kel::Value::Object{ { "result", value( "reloaded" ) } } ) );
}

HttpAnswer Api::state( Path const & path ) const {
   try {
      Kel::Value const found = Dovra::stateValue( database_, path );
      if( !found.isNull() ) return json( found );
   } catch( Kel::AttributeError const & trouble ) {
      // A path that no record can have; a null is one that no record has now. For a client both are nothing there.
      return error( 404, trouble.what() );
   }
   std::string text;
   for( std::string const & component : path ) text += ( text.empty() ? "" : "/" ) + component;
   return error( 404, "there is nothing at " + text );
}

}  // namespace Host

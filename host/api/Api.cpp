#include "api/Api.h"

#include <algorithm>

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

// The decoded value of a target's query parameter, none when it is absent or malformed.
std::optional<std::string> queried( std::string_view target, std::string_view name ) {
   std::size_t at = target.find( '?' );
   while( at != std::string_view::npos ) {
      target.remove_prefix( at + 1 );
      at = target.find( '&' );
      std::string_view const pair = target.substr( 0, at );
      if( pair.substr( 0, pair.find( '=' ) ) != name ) continue;
      // The first of several counts. One without "=" has the empty value.
      return decoded( pair.substr( std::min( name.size() + 1, pair.size() ) ) );
   }
   return std::nullopt;
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
      answer = get ? shown( route ) : done( route, request.target );
   }
   return answer ? *answer : error( 404, "there is nothing at " + request.method + " " + request.target );
}

std::optional<HttpAnswer> Api::shown( Path const & route ) const {
   if( route == Path{ "units" } ) return json( view_.units() );
   if( route == Path{ "interfaces" } ) return json( view_.interfaces() );
   if( route == Path{ "dump" } ) return HttpAnswer{ 200, Maintenance::dumpText( plugin_ ), "text/plain" };
   if( route == Path{ "trace", "levels" } ) return json( traceLevels() );
   if( route.size() == 2 && route[0] == "units" ) return unit( route[1] );
   if( route.size() > 1 && route[0] == "state" ) return state( Path( route.begin() + 1, route.end() ) );
   return std::nullopt;
}

std::optional<HttpAnswer> Api::done( Path const & route, std::string_view target ) {
   if( route == Path{ "trace", "levels" } ) return changeLevels( target );
   if( route.size() != 3 || route[0] != "units" ) return std::nullopt;
   if( route[2] == "enter" ) return operate( route[1], units_.enter( route[1] ) );
   if( route[2] == "exit" ) return operate( route[1], units_.exit( route[1] ) );
   return std::nullopt;
}

HttpAnswer Api::changeLevels( std::string_view target ) {
   auto const list = queried( target, "levels" );
   auto const levels = list ? levelsOf( *list ) : std::nullopt;
   if( !levels ) return error( 400, "trace levels are numbers from 0 to 31, as in ?levels=1,2,4; none as ?levels=" );
   traceLevelsIs( *levels );
   return json( traceLevels() );
}

HttpAnswer Api::noUnit( std::string const & name ) const {
   return error( 404, "there is no unit \"" + name + "\"; the units are: " + view_.unitNames() );
}

HttpAnswer Api::unit( std::string const & name ) const {
   Kel::Value const view = view_.unit( name );
   return view.isNull() ? noUnit( name ) : json( view );
}

HttpAnswer Api::operate( std::string const & name, UnitService::Answer const & done ) const {
   char const * result = "started";
   switch( done.outcome ) {
      case UnitService::Outcome::started: break;
      case UnitService::Outcome::already: result = "already"; break;
      case UnitService::Outcome::unknownUnit: return noUnit( name );
      case UnitService::Outcome::busy:
         return error( 409, "unit \"" + name + "\" is still leaving maintenance; try again when it is active" );
   }
   return json( value( Kel::Value::Object{
      { "unit", value( name ) }, { "result", value( result ) }, { "generation", value( done.generation ) } } ) );
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

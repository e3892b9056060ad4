#include "api/Api.h"

#include <optional>

#include "dovra/StatePath.h"
#include "kel/Json.h"

namespace Host {

using Kel::value;
using Path = std::vector<std::string>;

namespace {

HttpAnswer error( unsigned status, std::string text ) {
   return { status, Kel::toJson( value( Kel::Value::Object{ { "error", value( std::move( text ) ) } } ) ) };
}

int hexDigit( char c ) {
   if( c >= '0' && c <= '9' ) return c - '0';
   if( c >= 'a' && c <= 'f' ) return c - 'a' + 10;
   return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// One component with its percent-encoding taken off (RFC 3986), none when that is broken.
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

// The decoded components of a target's path, none when one is malformed.
std::optional<Path> components( std::string_view target ) {
   Path path;
   target = target.substr( 0, target.find( '?' ) );
   while( !target.empty() ) {
      std::size_t const end = std::min( target.find( '/' ), target.size() );
      if( end > 0 ) {
         auto component = decoded( target.substr( 0, end ) );
         if( !component ) return std::nullopt;
         path.push_back( std::move( *component ) );
      }
      target.remove_prefix( std::min( end + 1, target.size() ) );
   }
   return path;
}

}  // namespace

HttpAnswer Api::answer( HttpRequest const & request ) {
   auto const path = components( request.target );
   if( !path ) return error( 400, "the request's path is not properly percent-encoded" );
   auto const is = [&]( std::size_t size, char const * second ) {
      return path->size() == size && path->at( 0 ) == "v1" && path->at( 1 ) == second;
   };
   bool const get = request.method == "GET";
   bool const post = request.method == "POST";
   if( is( 2, "units" ) && get ) return { 200, Kel::toJson( view_.units() ) };
   if( is( 3, "units" ) && get ) return unit( path->at( 2 ) );
   if( is( 2, "interfaces" ) && get ) return { 200, Kel::toJson( view_.interfaces() ) };
   if( is( 4, "units" ) && path->at( 3 ) == "enter" && post )
      return operate( path->at( 2 ), units_.enter( path->at( 2 ) ) );
   if( is( 4, "units" ) && path->at( 3 ) == "exit" && post )
      return operate( path->at( 2 ), units_.exit( path->at( 2 ) ) );
   if( path->size() > 2 && path->at( 0 ) == "v1" && path->at( 1 ) == "state" && get ) {
      return state( Path( path->begin() + 2, path->end() ) );
   }
   if( !get && !post ) return error( 405, "only GET and POST are answered" );
   return error( 404, "there is nothing at " + request.method + " " + request.target );
}

HttpAnswer Api::noUnit( std::string const & name ) const {
   return error( 404, "there is no unit \"" + name + "\"; the units are: " + view_.unitNames() );
}

HttpAnswer Api::unit( std::string const & name ) const {
   Kel::Value const view = view_.unit( name );
   return view.isNull() ? noUnit( name ) : HttpAnswer{ 200, Kel::toJson( view ) };
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
   return { 200, Kel::toJson( value( Kel::Value::Object{ { "unit", value( name ) },
                                                         { "result", value( result ) },
                                                         { "generation", value( done.generation ) } } ) ) };
}

HttpAnswer Api::state( Path const & path ) const {
   try {
      Kel::Value const found = Dovra::stateValue( database_, path );
      if( !found.isNull() ) return { 200, Kel::toJson( found ) };
   } catch( Kel::AttributeError const & trouble ) {
      return error( 404, trouble.what() );
   }
   std::string text;
   for( std::string const & component : path ) text += ( text.empty() ? "" : "/" ) + component;
   return error( 404, "there is nothing at " + text );
}

}  // namespace Host

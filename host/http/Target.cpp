#include "http/Target.h"

#include <algorithm>
#include <boost/url.hpp>

namespace Host {

namespace urls = boost::urls;

std::optional<Target> Target::parse( std::string_view text ) {
   auto const url = urls::parse_origin_form( { text.data(), text.size() } );
   if( url.has_error() ) return std::nullopt;
   Target target;
   // Decoded after the split: the slash that a "%2F" stands for belongs to a name (RFC 3986, section 2.2).
   for( std::string component : url->segments() ) {
      if( !component.empty() ) target.path.push_back( std::move( component ) );
   }
   // A "+" stays one: only HTML forms write a blank so.
   for( auto const & parameter : url->params( urls::encoding_opts( false ) ) ) {
      if( parameter.key.empty() && !parameter.has_value ) continue;
      target.parameters.emplace_back( parameter.key, parameter.value );
   }
   return target;
}

std::optional<Target::Path> Target::openIn( std::span<std::string_view const> route, Path const & path ) {
   Path open;
   bool const rest = !route.empty() && route.back() == "**";
   if( rest ? path.size() < route.size() : path.size() != route.size() ) return std::nullopt;
   for( std::size_t i = 0; i < path.size(); ++i ) {
      std::string_view const expected = route[std::min( i, route.size() - 1 )];
      if( expected.starts_with( '*' ) ) {
         open.push_back( path[i] );
      } else if( expected != path[i] ) {
         return std::nullopt;
      }
   }
   return open;
}

std::optional<std::string> pathAndQuery( std::string_view method, std::string_view target ) {
   if( target == "*" ) return method == "OPTIONS" ? std::optional<std::string>( target ) : std::nullopt;
   urls::string_view const text( target.data(), target.size() );
   if( target.starts_with( '/' ) ) {
      return urls::parse_origin_form( text ).has_error() ? std::nullopt : std::optional<std::string>( target );
   }
   auto const url = urls::parse_absolute_uri( text );
   // A user in it would be no part of a target, and without a host it is no "http" URI (RFC 9110, section 4.2).
   if( url.has_error() || url->scheme_id() != urls::scheme::http || url->has_userinfo() || url->host().empty() )
      return std::nullopt;
   urls::string_view const path = url->encoded_target();
   return ( path.starts_with( '/' ) ? "" : "/" ) + std::string( path.data(), path.size() );
}

bool validHost( std::string_view value ) {
   auto const authority = urls::parse_authority( { value.data(), value.size() } );
   return authority.has_value() && !authority->has_userinfo();
}

}  // namespace Host

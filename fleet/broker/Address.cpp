#include "broker/Address.h"

#include <unistd.h>

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>
#include <cerrno>
#include <cstring>

namespace Fleet {

namespace {

bool isLoopback( boost::urls::url_view const & url ) {
   switch( url.host_type() ) {
      case boost::urls::host_type::ipv4: return url.host_ipv4_address().is_loopback();
      case boost::urls::host_type::ipv6: return url.host_ipv6_address().is_loopback();
      default: return url.encoded_host() == "localhost";
   }
}

}  // namespace

Address Address::of( std::string const & text, std::string const & caFile ) {
   auto const parsed = boost::urls::parse_uri( text );
   bool const known = parsed && ( parsed->scheme() == "nats" || parsed->scheme() == "tls" );
   if( !known || parsed->encoded_host().empty() || parsed->has_userinfo() || parsed->encoded_path().size() > 1 ||
       ( parsed->has_port() && !parsed->port().empty() && parsed->port_number() == 0 ) ) {
      throw BrokerFault( "the broker's address \"" + text + "\" must be nats://HOST:PORT or tls://HOST:PORT" );
   }
   Address address{ .host = std::string( parsed->encoded_host_address() ), .tls = !caFile.empty() };
   if( parsed->port_number() != 0 ) address.port = parsed->port_number();
   if( !address.tls && parsed->scheme() == "tls" ) {
      throw BrokerFault( "tls needs a CA file: without one any broker would do" );
   }
   if( !address.tls && !isLoopback( *parsed ) ) {
      throw BrokerFault( "the broker at " + address.host + " is on another machine: that needs TLS, and so a CA file" );
   }
   if( address.tls && access( caFile.c_str(), R_OK ) != 0 ) {
      throw BrokerFault( "CA file " + caFile + ": " + std::strerror( errno ) );
   }
   return address;
}

std::string Address::url() const {
   bool const ipv6 = host.find( ':' ) != std::string::npos;
   return ( tls ? "tls://" : "nats://" ) + ( ipv6 ? "[" + host + "]" : host ) + ":" + std::to_string( port );
}

}  // namespace Fleet

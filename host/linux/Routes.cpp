#include "linux/Routes.h"

#include <arpa/inet.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <array>
#include <cstring>
#include <span>
#include <vector>

#include "linux/NetlinkAttributes.h"

namespace Host::Linux {
namespace {

constexpr char askingForRoutes[] = "asking for routes";

void addHops( nlattr const * multipath, std::set<int> & links ) {
   if( !multipath ) return;
   auto const * bytes = static_cast<std::byte const *>( mnl_attr_get_payload( multipath ) );
   std::size_t left = mnl_attr_get_payload_len( multipath );
   while( left >= sizeof( rtnexthop ) ) {
      rtnexthop hop;
      std::memcpy( &hop, bytes, sizeof hop );
      std::size_t const length = RTNH_ALIGN( hop.rtnh_len );
      if( length < sizeof hop || hop.rtnh_len > left ) return;
      links.insert( hop.rtnh_ifindex );
      if( length >= left ) return;
      bytes += length;
      left -= length;
   }
}

struct Address {
   unsigned char family = AF_UNSPEC;
   std::array<std::byte, 16> bytes{};
   int link = 0;  // of the scope that it names; 0: none

   [[nodiscard]] std::size_t size() const { return family == AF_INET ? 4 : 16; }
   [[nodiscard]] bool isLinkLocal() const {
      return family == AF_INET6 && bytes[0] == std::byte{ 0xfe } &&
             ( bytes[1] & std::byte{ 0xc0 } ) == std::byte{ 0x80 };
   }
};

// None for a text that is no address.
std::optional<Address> addressOf( std::string const & text ) {
   Address address;
   address.family = AF_INET;
   if( inet_pton( AF_INET, text.c_str(), address.bytes.data() ) == 1 ) return address;
   auto const scope = text.find( '%' );
   if( scope != std::string::npos ) address.link = static_cast<int>( if_nametoindex( text.c_str() + scope + 1 ) );
   address.family = AF_INET6;
   if( inet_pton( AF_INET6, text.substr( 0, scope ).c_str(), address.bytes.data() ) != 1 ) return std::nullopt;
   // An IPv4 address, as a program says it that listens for both.
   constexpr std::array<unsigned char, 12> mapped{ 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff };
   if( std::memcmp( address.bytes.data(), mapped.data(), mapped.size() ) == 0 ) {
      address.family = AF_INET;
      std::memmove( address.bytes.data(), address.bytes.data() + mapped.size(), address.size() );
   }
   return address;
}

// What the kernel answers where no route is, or where one refuses, drops or prohibits.
bool meansNoWay( int error ) {
   return error == ENETUNREACH || error == EHOSTUNREACH || error == EACCES || error == EINVAL;
}

}  // namespace

std::optional<Route> parseRoute( nlmsghdr const & message ) {
   auto const * const body = bodyOf<rtmsg>( message );
   if( message.nlmsg_type != RTM_NEWROUTE || !body || body->rtm_type != RTN_UNICAST ) return std::nullopt;
   NetlinkAttributes<RTA_MAX> const attributes( message, sizeof *body );
   // The attribute holds what the byte of the fixed part is too short for.
   auto const table = valueOf<std::uint32_t>( attributes[RTA_TABLE] ).value_or( body->rtm_table );
   Route route;
   route.isDefault = body->rtm_dst_len == 0 && table == RT_TABLE_MAIN;
   if( int const link = attributes.number( RTA_OIF ) ) route.links.insert( link );
   addHops( attributes[RTA_MULTIPATH], route.links );
   route.nextHops = valueOf<std::uint32_t>( attributes[RTA_NH_ID] ).value_or( 0 );
   return route;
}

std::set<int> Routes::defaultLinks() {
   std::set<int> links;
   std::vector<Route> routes;
   for( auto const family : std::array<unsigned char, 2>{ AF_INET, AF_INET6 } ) {
      DumpRequest request( RTM_GETROUTE );
      request.putBody<rtmsg>().rtm_family = family;
      kernel_.ask( request, askingForRoutes, [&routes]( nlmsghdr const & message ) {
         auto route = parseRoute( message );
         if( route && route->isDefault ) routes.push_back( std::move( *route ) );
      } );
   }
   for( Route const & route : routes ) links.merge( linksOf( route ) );
   return links;
}

std::set<int> Routes::linksTowards( std::string const & text ) {
   auto const address = addressOf( text );
   if( !address ) return {};
   if( address->link ) return { address->link };
   // There is a route to it on every link.
   if( address->isLinkLocal() ) return {};
   Request request( RTM_GETROUTE );
   auto & body = request.putBody<rtmsg>();
   body.rtm_family = address->family;
   body.rtm_dst_len = static_cast<unsigned char>( 8 * address->size() );
   // The route as it was set, with all of its links, and not the one that was chosen among them.
   body.rtm_flags = RTM_F_FIB_MATCH;
   mnl_attr_put( &request.header(), RTA_DST, address->size(), address->bytes.data() );
   std::optional<Route> route;
   try {
      kernel_.ask( request, askingForRoutes, [&route]( nlmsghdr const & message ) { route = parseRoute( message ); } );
   } catch( NetlinkError const & error ) {
      if( !meansNoWay( error.code().value() ) ) throw;
   }
   return route ? linksOf( *route ) : std::set<int>();
}

std::set<int> Routes::linksOf( Route const & route ) {
   std::set<int> links = route.links;
   // Set to do so, the kernel names the object and not what is in it.
   if( links.empty() && route.nextHops ) addNextHop( route.nextHops, links );
   return links;
}

void Routes::addNextHop( std::uint32_t id, std::set<int> & links ) {
   Request request( RTM_GETNEXTHOP );
   request.putBody<nhmsg>();
   mnl_attr_put_u32( &request.header(), NHA_ID, id );
   std::vector<std::uint32_t> group;
   kernel_.ask( request, "asking for a next hop", [&]( nlmsghdr const & message ) {
      auto const * const body = bodyOf<nhmsg>( message );
      if( message.nlmsg_type != RTM_NEWNEXTHOP || !body ) return;
      NetlinkAttributes<NHA_MAX> const attributes( message, sizeof *body );
      if( int const link = attributes.number( NHA_OIF ) ) links.insert( link );
      nlattr const * const members = attributes[NHA_GROUP];
      std::size_t const count = members ? mnl_attr_get_payload_len( members ) / sizeof( nexthop_grp ) : 0;
      for( std::size_t i = 0; i < count; ++i ) {
         nexthop_grp member;
         auto const * const bytes = static_cast<std::byte const *>( mnl_attr_get_payload( members ) );
         std::memcpy( &member, bytes + i * sizeof member, sizeof member );
         group.push_back( member.id );
      }
   } );
   // A group has no groups in it.
   for( std::uint32_t const member : group ) {
      if( member != id ) addNextHop( member, links );
   }
}

}  // namespace Host::Linux

// An rtnetlink message as the kernel would send it, put together by hand: for kinds of links that not every kernel has.
#pragma once

// Before the kernel's headers, which then leave out what both declare.
#include <net/if.h>

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace Host::Linux {

class LinkMessage {
 public:
   explicit LinkMessage( std::uint16_t type, int index, unsigned flags = 0, unsigned char family = AF_UNSPEC )
      : LinkMessage( type ) {
      auto & body = put<ifinfomsg>();
      body.ifi_family = family;
      body.ifi_index = index;
      body.ifi_flags = flags;
   }

   // VLANs from `first` to `last` of a bridge's port.
   static LinkMessage vlans( std::uint16_t type, int port, std::uint16_t first, std::uint16_t last ) {
      LinkMessage message( type );
      auto & body = message.put<br_vlan_msg>();
      body.family = AF_BRIDGE;
      body.ifindex = static_cast<unsigned>( port );
      nlattr * const entry = mnl_attr_nest_start( message.header_, BRIDGE_VLANDB_ENTRY );
      bridge_vlan_info const info{ 0, first };
      mnl_attr_put( message.header_, BRIDGE_VLANDB_ENTRY_INFO, sizeof info, &info );
      if( last != first ) mnl_attr_put_u16( message.header_, BRIDGE_VLANDB_ENTRY_RANGE, last );
      mnl_attr_nest_end( message.header_, entry );
      return message;
   }
   // The end of a dump, or with an error its refusal.
   static LinkMessage end( int error = 0 ) {
      LinkMessage message( error ? NLMSG_ERROR : NLMSG_DONE );
      message.put<int>() = -error;
      return message;
   }

   LinkMessage & number( std::uint16_t attribute, std::uint32_t value ) { return own( attribute, value ); }
   LinkMessage & operState( std::uint8_t state ) { return own( IFLA_OPERSTATE, state ); }
   LinkMessage & named( std::string const & name ) {
      mnl_attr_put_strz( header_, IFLA_IFNAME, name.c_str() );
      return *this;
   }
   LinkMessage & kind( std::string const & kind ) {
      nlattr * const info = mnl_attr_nest_start( header_, IFLA_LINKINFO );
      mnl_attr_put_strz( header_, IFLA_INFO_KIND, kind.c_str() );
      mnl_attr_nest_end( header_, info );
      return *this;
   }
   // With one attribute that the kind has for itself.
   template<typename Value>
   LinkMessage & kind( std::string const & kind, std::uint16_t attribute, Value value ) {
      nlattr * const info = mnl_attr_nest_start( header_, IFLA_LINKINFO );
      mnl_attr_put_strz( header_, IFLA_INFO_KIND, kind.c_str() );
      nlattr * const data = mnl_attr_nest_start( header_, IFLA_INFO_DATA );
      own( attribute, value );
      mnl_attr_nest_end( header_, data );
      mnl_attr_nest_end( header_, info );
      return *this;
   }
   LinkMessage & vlan( std::string const & name, std::uint16_t id ) { return kind( name, IFLA_VLAN_ID, id ); }

   // A change has overtaken the dump.
   LinkMessage & interrupted() {
      header_->nlmsg_flags |= NLM_F_DUMP_INTR;
      return *this;
   }

   [[nodiscard]] nlmsghdr const & header() const { return *header_; }
   [[nodiscard]] std::span<std::byte const> bytes() const {
      return std::as_bytes( std::span( *bytes_ ) ).first( header_->nlmsg_len );
   }

 private:
   struct alignas( nlmsghdr ) Bytes : std::array<char, 512> {};

   explicit LinkMessage( std::uint16_t type )
      : bytes_( std::make_unique<Bytes>() ), header_( mnl_nlmsg_put_header( bytes_->data() ) ) {
      header_->nlmsg_type = type;
   }
   template<typename Body>
   Body & put() {
      return *static_cast<Body *>( mnl_nlmsg_put_extra_header( header_, sizeof( Body ) ) );
   }
   template<typename Value>
   LinkMessage & own( std::uint16_t attribute, Value value ) {
      mnl_attr_put( header_, attribute, sizeof value, &value );
      return *this;
   }

   std::unique_ptr<Bytes> bytes_;
   nlmsghdr * header_;
};

}  // namespace Host::Linux

// The attributes of one netlink message, or of one nest in it, by their type: attributes[ IFLA_IFNAME ].
//
// A view for the time of parsing, owned by the parser's stack frame; it points into the message and copies nothing.
// Nothing beyond the message is ever read, whatever it says: an attribute that is too short for what is asked of it
// counts as absent. Attributes of types above `highest`, which a newer kernel may send, are left out.
#pragma once

#include <libmnl/libmnl.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace Host::Linux {

// The fixed part of a message; null when it is shorter than that.
template<typename Body>
[[nodiscard]] Body const * bodyOf( nlmsghdr const & message ) {
   if( mnl_nlmsg_get_payload_len( &message ) < sizeof( Body ) ) return nullptr;
   return static_cast<Body const *>( mnl_nlmsg_get_payload( &message ) );
}

// What an attribute holds, as a number or a struct; none when there is no attribute (null) or it is too short. Copied,
// because attributes are aligned to 4 bytes only.
template<typename T>
[[nodiscard]] std::optional<T> valueOf( nlattr const * attribute ) {
   if( !attribute || mnl_attr_get_payload_len( attribute ) < sizeof( T ) ) return std::nullopt;
   T value;
   std::memcpy( &value, mnl_attr_get_payload( attribute ), sizeof value );
   return value;
}

template<std::uint16_t highest>
class NetlinkAttributes {
 public:
   // Those behind the fixed part of a message, which is `bodyBytes` long and there.
   NetlinkAttributes( nlmsghdr const & message, std::size_t bodyBytes ) {
      mnl_attr_parse( &message, static_cast<unsigned>( bodyBytes ), keep, this );
   }
   // Those in a nest. No nest (null), no attributes.
   explicit NetlinkAttributes( nlattr const * nest ) {
      if( nest ) mnl_attr_parse_nested( nest, keep, this );
   }

   // Null when the message has none of this type.
   [[nodiscard]] nlattr const * operator[]( std::uint16_t type ) const { return byType_[type]; }

   // Values of an attribute that may be absent. A text ends at its zero, or with the attribute.
   [[nodiscard]] std::string_view text( std::uint16_t type ) const {
      nlattr const * const attribute = byType_[type];
      if( !attribute ) return {};
      auto const * const chars = static_cast<char const *>( mnl_attr_get_payload( attribute ) );
      return { chars, ::strnlen( chars, mnl_attr_get_payload_len( attribute ) ) };
   }
   [[nodiscard]] int number( std::uint16_t type ) const {
      return static_cast<int>( valueOf<std::uint32_t>( byType_[type] ).value_or( 0 ) );
   }

 private:
   static int keep( nlattr const * attribute, void * self ) {
      auto const type = mnl_attr_get_type( attribute );
      if( type <= highest ) static_cast<NetlinkAttributes *>( self )->byType_[type] = attribute;
      return MNL_CB_OK;
   }

   std::array<nlattr const *, highest + 1u> byType_{};
};

}  // namespace Host::Linux

// The attributes of one netlink message, or of one nest in it, by their type: attributes[ IFLA_IFNAME ].
//
// A view for the time of parsing, owned by the parser's stack frame; it points into the message and copies nothing.
// Attributes of types above `highest`, which a newer kernel may send, are left out.
#pragma once

#include <libmnl/libmnl.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Host::Linux {

template<std::uint16_t highest>
class NetlinkAttributes {
 public:
   // Those behind the fixed part of a message, which is `bodyBytes` long.
   NetlinkAttributes( nlmsghdr const & message, std::size_t bodyBytes ) {
      mnl_attr_parse( &message, static_cast<unsigned>( bodyBytes ), keep, this );
   }
   // Those in a nest. No nest (null), no attributes.
   explicit NetlinkAttributes( nlattr const * nest ) {
      if( nest ) mnl_attr_parse_nested( nest, keep, this );
   }

   // Null when the message has none of this type.
   [[nodiscard]] nlattr const * operator[]( std::uint16_t type ) const { return byType_[type]; }

   // Values of an attribute that may be absent.
   [[nodiscard]] char const * text( std::uint16_t type ) const {
      return byType_[type] ? mnl_attr_get_str( byType_[type] ) : "";
   }
   [[nodiscard]] int number( std::uint16_t type ) const {
      return byType_[type] ? static_cast<int>( mnl_attr_get_u32( byType_[type] ) ) : 0;
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

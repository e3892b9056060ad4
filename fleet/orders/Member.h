// Members of JSON objects that were written by somebody else: read with the place in mind that an error is to name.
//
// All throw BadDocument, "status.units.fabric.state is no text".
#pragma once

#include <boost/json/value.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "orders/Orders.h"

namespace Fleet {

// An object, and where it stands in its document.
struct Object {
   boost::json::object const & members;
   std::string at;

   [[nodiscard]] std::string placeOf( std::string_view member ) const { return at + "." + std::string( member ); }
   [[nodiscard]] boost::json::value const & member( std::string_view name ) const;
   [[nodiscard]] std::string text( std::string_view name ) const;
   [[nodiscard]] double number( std::string_view name ) const;                      // finite
   [[nodiscard]] std::optional<double> numberIfAny( std::string_view name ) const;  // null, or left out: absent
   [[nodiscard]] uint64_t whole( std::string_view name ) const;
   [[nodiscard]] bool flag( std::string_view name ) const;
   [[nodiscard]] Object object( std::string_view name ) const;
   [[nodiscard]] boost::json::array const & list( std::string_view name ) const;
   template<typename E>
   [[nodiscard]] E word( std::string_view name ) const {
      std::string const given = text( name );
      if( auto const value = named<E>( given ) ) return *value;
      throw BadDocument( placeOf( name ) + " is \"" + given + "\", which is no word for it" );
   }
};

// The document in the text, which is called `at` in errors. Depth and size are bounded.
[[nodiscard]] boost::json::value documentIn( std::string_view text, std::string const & at );
[[nodiscard]] Object objectIn( boost::json::value const & document, std::string at );

// An order as it stands in every document and row that has one.
[[nodiscard]] boost::json::object orderValue( Order const & order );
[[nodiscard]] Order orderFrom( Object const & in );

}  // namespace Fleet

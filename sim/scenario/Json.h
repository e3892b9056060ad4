// One line of JSON with the column at which every part of it stands, so that an error can say where it is.
//
// Numbers keep all their digits: integers of 64 bits as they are, everything else as the nearest double. A name that
// stands twice in one object is an error, since one of the two values would be lost.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "kel/Value.h"

namespace Sim {

// What is wrong with a line, and at which column: in bytes, from 1.
class LineError : public std::runtime_error {
 public:
   LineError( std::size_t column, std::string const & what ) : std::runtime_error( what ), column_( column ) {}
   [[nodiscard]] std::size_t column() const { return column_; }

 private:
   std::size_t column_;
};

struct Json {
   // A struct of its own: a pair asks more of its types than one that contains itself can answer while it is declared.
   struct Member;
   using Object = std::vector<Member>;  // in the order written
   using List = std::vector<Json>;

   std::size_t column = 1;
   std::variant<Kel::Value, Object, List> content;  // the Value is a scalar or null
   std::size_t end = 0;                             // of an object or a list: the column behind it; of others 0

   // Throw LineError when it is none: `wanted` is what the error asks for.
   [[nodiscard]] Object const & object( char const * wanted ) const;
   [[nodiscard]] List const & list( char const * wanted ) const;
   [[nodiscard]] Json const * member( std::string_view name ) const;  // of an object; null when absent
   [[nodiscard]] Kel::Value value() const;
};

struct Json::Member {
   std::string name;
   Json json;
};

// Throws LineError.
[[nodiscard]] Json parseJson( std::string_view line );

}  // namespace Sim

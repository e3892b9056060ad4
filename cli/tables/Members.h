// Reading the daemon's answers member by member. A member that is absent or null is not known: it reads as no value,
// and never as 0. One of another kind than asked for throws WrongAnswer.
//
// Texts come as they may be printed (tables/Printable.h), however hostile they are.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "kel/Value.h"

namespace Cli {

using Object = boost::json::object;

// An answer of maintd that is not what it declares; what() says where.
class WrongAnswer : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Empty where it is not known. A text without its quotes; a number, true or false as JSON writes it.
[[nodiscard]] std::string text( Object const & object, char const * member );
[[nodiscard]] std::optional<double> number( Object const & object, char const * member );
// False where it is not known.
[[nodiscard]] bool yes( Object const & object, char const * member );
// Null where it is not known.
[[nodiscard]] Object const * inner( Object const & object, char const * member );
// The last three are empty where it is not known.
[[nodiscard]] boost::json::array const & list( Object const & object, char const * member );
[[nodiscard]] std::vector<std::string> texts( Object const & object, char const * member );
// "a, b, c"
[[nodiscard]] std::string namesText( Object const & object, char const * member );

// An element of a list, or a whole answer, which is an object.
[[nodiscard]] Object const & object( boost::json::value const & json );

// The same as a Kel::Value, which is what report/ takes.
[[nodiscard]] Kel::Value kelValue( boost::json::value const & json );

}  // namespace Cli

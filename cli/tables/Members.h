// Reading the daemon's answers member by member. A member that is absent or null is not known: it reads as no value,
// and never as 0.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <optional>
#include <string>

#include "kel/Value.h"

namespace Cli {

using Object = boost::json::object;

// Empty where it is not known. A text without its quotes; anything else as JSON writes it.
[[nodiscard]] std::string text( Object const & object, char const * member );
[[nodiscard]] std::optional<double> number( Object const & object, char const * member );
// False where it is not known.
[[nodiscard]] bool yes( Object const & object, char const * member );
// Null where it is not known or something else.
[[nodiscard]] Object const * inner( Object const & object, char const * member );
// Empty where it is not known or something else.
[[nodiscard]] boost::json::array const & list( Object const & object, char const * member );
// "a, b, c"
[[nodiscard]] std::string namesText( Object const & object, char const * member );

// The same as a Kel::Value, which is what report/ takes.
[[nodiscard]] Kel::Value kelValue( boost::json::value const & json );

}  // namespace Cli

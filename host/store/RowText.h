// Values as the text of a row, and back; and what stands in a path.
//
// JSON as in kel/Json.h, which is for people, but for the doubles that JSON cannot say: an infinite one is a number
// that is too great for any double, which is what it reads back as, and one that is not a number is null, as no
// attribute of a record can be. What is read is equal to what was written, but for bytes of a text that are no UTF-8.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kel/Value.h"

namespace Host::RowText {

[[nodiscard]] std::string of( Kel::Value const & value );
// Throws Kel::AttributeError for what is no JSON, or a name that stands twice in an object.
[[nodiscard]] Kel::Value value( std::string_view text );

// A path and one component more. Slashes in it, which names of interfaces and groups may have, control characters and
// "%" stand as "%2f", so that the path can be taken apart again.
[[nodiscard]] std::string joined( std::string const & path, std::string_view component );
// The components of a path, or of the end of one. Throws Kel::AttributeError for a "%" that nobody has written.
[[nodiscard]] std::vector<std::string> components( std::string_view path );

}  // namespace Host::RowText

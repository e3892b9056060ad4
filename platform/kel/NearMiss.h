// What somebody who mistyped a name has probably meant.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Kel {

// The first of the nearest names: at most two insertions, deletions and replacements away, or one that begins with what
// was given. Empty where none is near, as to a text that is very short or very long.
[[nodiscard]] std::string_view nearMiss( std::string_view given, std::span<std::string_view const> names );
[[nodiscard]] std::string_view nearMiss( std::string_view given, std::vector<std::string> const & names );
// `; did you mean "X"?`, or nothing.
[[nodiscard]] std::string didYouMean( std::string_view given, std::vector<std::string> const & names );
// "a, b, c", and of more than `most` names the first and how many there are besides: "a, b and 40 more".
[[nodiscard]] std::string listed( std::vector<std::string> const & names, std::size_t most );

}  // namespace Kel

// Names in tables and pictures, where room is counted in columns.
#pragma once

#include <string>
#include <string_view>

namespace Report {

// Of UTF-8, where each character is taken to be one column wide.
[[nodiscard]] std::size_t columns( std::string_view text );
// Not wider than `most` columns, at least 3; a longer text loses its middle, as the end of a name often tells more.
[[nodiscard]] std::string clipped( std::string_view text, std::size_t most );

}  // namespace Report

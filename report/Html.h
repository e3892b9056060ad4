// Pieces of an HTML document as text. What is not said to be escaped goes in as it is.
#pragma once

#include <string>
#include <string_view>

namespace Report {

// Safe in text and in quoted attributes: bytes that are no UTF-8, and control characters, become U+FFFD.
[[nodiscard]] std::string escapedHtml( std::string_view text );

// <tag attributes>content</tag>
[[nodiscard]] std::string element( std::string_view tag, std::string_view attributes, std::string_view content );
// A name that somebody else has chosen, escaped; its direction of writing does not spill into the text around it, and a
// long one may be broken anywhere.
[[nodiscard]] std::string nameHtml( std::string_view name );

}  // namespace Report

// The target of a request taken apart: the components of its path and the parameters of its query, decoded.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Host {

struct Target {
   using Path = std::vector<std::string>;
   using Parameters = std::vector<std::pair<std::string, std::string>>;

   // No route and no record is as deep.
   static constexpr std::size_t componentsMax = 32;

   Path path;              // empty components count for nothing: "//v1/units/" leads where "/v1/units" does
   Parameters parameters;  // in their order, a name as often as it is there; one without "=" has the empty value

   // Of a target that begins with a slash; none where it is malformed.
   [[nodiscard]] static std::optional<Target> parse( std::string_view text );
   // What stands in the open components of a route, none where the path does not lead there: a component "*" is open,
   // and "**" at the end stands for one or more.
   [[nodiscard]] static std::optional<Path> openIn( std::span<std::string_view const> route, Path const & path );
};

// Path and query of the target of a request line (RFC 9112, section 3.2): of "http://HOST/v1/units" what follows the
// host. "*" stays, for OPTIONS. None where it is malformed, or names no place that could be here.
[[nodiscard]] std::optional<std::string> pathAndQuery( std::string_view method, std::string_view target );

// Whether it can be the value of the Host field (RFC 9110, section 7.2).
[[nodiscard]] bool validHost( std::string_view value );

}  // namespace Host

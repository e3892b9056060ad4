// What an answer must have to be the one that was asked for: members that maintd always gives, and their kinds.
//
// Checked once, before anything is shown. Members that may be null are not in here; whoever reads them finds out
// (tables/Members.h).
#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <span>
#include <string>

namespace Cli {

enum class Kind : uint8_t { text, number, flag, object, list, texts };

struct Shape;
struct Needed {
   char const * member;
   Kind kind;
   Shape const * each = nullptr;  // of a list: its elements, which are objects
};
struct Shape {
   std::span<Needed const> members;
};

extern Shape const unitShape;
extern Shape const unitsShape;  // also of the units that have an interface
extern Shape const interfacesShape;
extern Shape const readyShape;
extern Shape const requestShape;  // of what became of an enter or exit
extern Shape const windowShape;
extern Shape const reloadShape;
extern Shape const levelsShape;
extern Shape const errorShape;  // of every answer with a status other than 200

// What is wrong with the answer, "units[2] has no \"state\" that is a text"; empty when nothing is.
[[nodiscard]] std::string shapeFault( boost::json::value const & answer, Shape const & shape );

}  // namespace Cli

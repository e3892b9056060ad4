// What goes wrong in a simulated fleet, and when: lines of JSON.
//
//    { "at": 60, "boxes": "10%", "fault": "traffic-stays", "for": 120 }
//    { "at": 90, "boxes": ["box-3", "box-4"], "fault": "dies", "for": 5 }
//
// A share is of boxes drawn by chance. Without "for" it stays until the end.
#pragma once

#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Fleet {

// The text says in which line, and what.
class BadScript : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

enum class Fault : uint8_t {
   silent,        // the box is cut off from the broker
   trafficStays,  // "traffic-stays"
   maintdOff,     // "maintd-off"
   dies,          // the agent ends; after "for" it starts anew, with what it has kept
};

struct Mishap {
   double at = 0;                                           // s, since the simulation began
   double until = std::numeric_limits<double>::infinity();  // likewise
   Fault fault = Fault::silent;
   std::vector<std::size_t> boxes;  // places in the list of all
};

// `names`: of all boxes. Throws BadScript.
[[nodiscard]] std::vector<Mishap> readScript( std::string_view text, std::vector<std::string> const & names,
                                              std::mt19937_64 & random );

}  // namespace Fleet

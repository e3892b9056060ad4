// What the fleet's owner wants of a box, and what the box says of itself: the two documents that pass between them.
//
// An order is numbered, and numbers only grow: whoever has seen one knows every smaller one as old. It is for one unit,
// and the newest is the only one that counts. A box says with each status which is the newest that it has seen of each
// unit, so that its owner can tell what was said in knowledge of an order from what was said before.
//
// Both documents are whole: the latest replaces all earlier ones, and to get one twice does nothing.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Fleet {

// What goes out of service: a unit of a box.
struct UnitName {
   std::string box;
   std::string unit;

   auto operator<=>( UnitName const & ) const = default;
   // "spine-3a/fabric"
   [[nodiscard]] std::string text() const { return box + "/" + unit; }
};

// "spine-3a/fabric"; absent where it is none.
[[nodiscard]] std::optional<UnitName> unitNamed( std::string_view text );

enum class Want : uint8_t {
   service,
   maintenance,
   nothing,  // what was wanted before is withdrawn, and the unit stays as it is
};

// What a box does where a drain takes longer than its deadline.
enum class AtDeadline : uint8_t {
   hold,      // it goes on draining
   giveBack,  // it goes back to service, also when nobody can be asked
};

struct Order {
   uint64_t number = 0;  // larger than that of every earlier order of the fleet
   Want want = Want::service;
   std::string plan = {};       // whose order it is, for people
   double expires = 0;          // s, Unix time: one that was not begun by then is never begun
   double deadlineSeconds = 0;  // of a drain, from its begin; 0: it may take as long as it needs
   AtDeadline atDeadline = AtDeadline::hold;

   bool operator==( Order const & ) const = default;
};

// All that is wanted of a box: the newest order of each of its units that ever had one.
struct Desired {
   std::string box = {};
   std::map<std::string, Order> orders = {};  // by unit

   bool operator==( Desired const & ) const = default;
};

// As maintd has it.
enum class UnitState : uint8_t { unknown, active, entering, inMaintenance, failed, leaving };

// What came of the order that a status acknowledges.
enum class Outcome : uint8_t {
   none,      // it has not been begun; it will be, unless something newer comes or it expires
   begun,     // maintd has been asked, or is about to be
   carried,   // maintd has agreed: the rest is the unit's state
   expired,   // its time had passed: nothing was done, and nothing will be
   refused,   // maintd has refused: nothing was done, and nothing will be
   gaveBack,  // the drain was begun, and given up at its deadline
   undone,    // the drain was begun, and somebody else has ended it
};

// How much of a unit is proven quiet, and what it waits for.
struct Interface {
   std::string name = {};
   std::string verdict = {};             // one of maintd's
   std::optional<double> bitsRate = {};  // bit/s, of the direction that carries more; absent: not known
   std::string why = {};                 // what it lacks; empty where nothing

   bool operator==( Interface const & ) const = default;
};

struct UnitStatus {
   UnitState state = UnitState::unknown;
   bool ready = false;         // every interface is proven quiet now
   bool disturbed = false;     // it is in maintenance, and traffic is back
   uint64_t acknowledged = 0;  // number of the newest order that the box has seen; 0: none
   Outcome outcome = Outcome::none;
   std::string why = {};  // what it waits for or what has gone wrong, a sentence; empty where neither
   double since = 0;      // s, Unix time, when it came into its state
   uint32_t settled = 0;  // interfaces that no longer stand in the way
   uint32_t interfaces = 0;
   std::vector<Interface> unsettled = {};  // those that do, the loudest first, at most `interfacesTold`

   bool operator==( UnitStatus const & ) const = default;
   static constexpr std::size_t interfacesTold = 32;
};

struct Status {
   std::string box = {};
   // Which one is newer does not depend on when it arrives, nor on any clock.
   uint64_t life = 0;      // how often the agent has started
   uint64_t sequence = 0;  // within it
   double time = 0;        // s, Unix time, on the box's clock
   double heartbeatSeconds = 0;
   std::string trouble = {};  // why nothing is known of its units, as that maintd does not answer; empty where it is
   std::map<std::string, UnitStatus> units = {};

   [[nodiscard]] bool newerThan( Status const & other ) const {
      return life != other.life ? life > other.life : sequence > other.sequence;
   }
};

[[nodiscard]] std::string_view nameOf( Want want );
[[nodiscard]] std::string_view nameOf( AtDeadline at );
[[nodiscard]] std::string_view nameOf( UnitState state );
[[nodiscard]] std::string_view nameOf( Outcome outcome );
// The value of a word; absent where it is none.
template<typename E>
[[nodiscard]] std::optional<E> named( std::string_view name );
template<>
std::optional<Want> named( std::string_view name );
template<>
std::optional<AtDeadline> named( std::string_view name );
template<>
std::optional<UnitState> named( std::string_view name );
template<>
std::optional<Outcome> named( std::string_view name );

// JSON.
[[nodiscard]] std::string textOf( Desired const & desired );
[[nodiscard]] std::string textOf( Status const & status );

// What was read is no such document. The text says what and where.
class BadDocument : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Members that are not known are passed over, so that the two ends can be of different releases; a word that is not
// known, a member that is missing, or one of another kind is a BadDocument.
[[nodiscard]] Desired desiredFrom( std::string_view text );
[[nodiscard]] Status statusFrom( std::string_view text );

}  // namespace Fleet

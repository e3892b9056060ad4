// A plan: units that are to go through maintenance in waves, and how far they have come.
//
//    waiting --grant--> draining --ready--> drained --stay is over--> returning --in service--> done
//
// A wave is over when all of it are done and the soak has passed with all of them in service; then the next begins.
// What does not go as it should pauses the plan: it orders nothing more until a person says so.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "inventory/Inventory.h"
#include "orders/Orders.h"

namespace Fleet {

// How many units a wave has.
struct WaveSize {
   double amount = 1;   // units, or per cent of all that were selected, at least one
   bool share = false;  // per cent

   bool operator==( WaveSize const & ) const = default;
};

// "1, 5, 10%". Throws std::invalid_argument with a sentence.
[[nodiscard]] std::vector<WaveSize> waveSizes( std::string_view text );

// Which units: of the boxes that are named, or of all when none is, those boxes with all of the labels, and of them the
// units of that name, or all.
struct Selection {
   std::vector<std::string> boxes = {};
   Labels labels = {};
   std::string unit = {};

   bool operator==( Selection const & ) const = default;
};

// What somebody asked for.
struct PlanRequest {
   std::string by;  // who
   Selection select = {};
   std::vector<WaveSize> waves{ WaveSize() };  // the last again until all have had their turn
   double soakSeconds = 0;
   double deadlineSeconds = 1800;  // for each drain, and for each return
   AtDeadline atDeadline = AtDeadline::hold;
   // In maintenance, from the proof that it is quiet; absent: until somebody orders it back.
   std::optional<double> staySeconds = {};

   bool operator==( PlanRequest const & ) const = default;
};

enum class Step : uint8_t { waiting, draining, drained, returning, done };

struct Member {
   UnitName unit;
   Step step = Step::waiting;
   double since = 0;        // s, Unix time, when it came into its step, or the plan was resumed
   std::string fault = {};  // what it paused the plan for; empty when nothing
   bool leftOut = false;    // a person has decided to go on without it

   bool operator==( Member const & ) const = default;
};

using Wave = std::vector<Member>;

enum class PlanState : uint8_t { running, paused, finished, cancelled };

struct Plan {
   std::string id;
   PlanRequest request;
   std::vector<Wave> waves = {};
   std::size_t wave = 0;  // that is under way
   PlanState state = PlanState::running;
   std::string why = {};                   // it is paused or was cancelled
   std::optional<double> soakedFrom = {};  // s, Unix time, since when all of the wave are done
   double made = 0;                        // s, Unix time

   [[nodiscard]] bool over() const { return state == PlanState::finished || state == PlanState::cancelled; }
   bool operator==( Plan const & ) const = default;
};

// Waves of all that is selected, and why one of them comes later than its place in the inventory would have it: where
// others of a group fill its budget in a wave.
struct Layout {
   std::vector<std::vector<UnitName>> waves;
   std::vector<std::string> reasons;  // a sentence for each unit that was put off, in the order of the waves
};

// It cannot be done. The text says why, and whom it is about.
class Refused : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// In the order of the inventory. Throws Refused where a name is not there, nothing is selected, or one unit can never
// go out under its budgets.
[[nodiscard]] std::vector<UnitName> selected( Inventory const & inventory, Selection const & select );
[[nodiscard]] Layout layoutOf( Inventory const & inventory, std::vector<UnitName> const & units,
                               std::vector<WaveSize> const & sizes );

[[nodiscard]] std::string_view nameOf( Step step );
[[nodiscard]] std::string_view nameOf( PlanState state );

}  // namespace Fleet

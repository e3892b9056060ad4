// The boxes of a fleet, and how much of it may be out of service at once.
//
//    boxes:
//      spine-3a:  { labels: { pair: spine-3, plane: b, site: fra }, units: [ fabric ] }
//      spine-3b:  { labels: { pair: spine-3, plane: a, site: fra }, units: [ fabric ] }
//    budgets:
//      pair:        { out: 1 }              # of each pair, at most one unit is out
//      plane:       { out: 25% }            # of each plane, a quarter, rounded down
//      site:        { in-service: 90% }     # of each site, nine tenths stay in, rounded up
//      "site: ams": { in-service: 4 }       # of this one, four
//    heartbeat: 15s
//
// Units that share the value of a label are a group, where there is a budget for the label. A unit is in a group for
// each of its labels, and may go out only where all of them have room.
#pragma once

#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "config/Config.h"
#include "orders/Orders.h"

namespace Fleet {

using Labels = std::map<std::string, std::string>;

struct Box {
   std::string name;
   Labels labels;
   std::vector<std::string> units;  // never empty

   bool operator==( Box const & ) const = default;
};

struct Budget {
   enum class Rule : uint8_t { atMostOut, atLeastIn };

   Rule rule = Rule::atMostOut;
   double amount = 0;   // units, or per cent of them
   bool share = false;  // per cent

   bool operator==( Budget const & ) const = default;
   // How many of so many units may be out at once. Of a share never more than it says: rounding is on the safe side.
   [[nodiscard]] std::size_t mayBeOut( std::size_t units ) const;
   // "at most 1 out", "at least 90% in service"
   [[nodiscard]] std::string text() const;
};

// Units that share a label of which there is a budget.
struct Group {
   std::string name;  // "pair: spine-3"
   Budget budget;
   std::vector<UnitName> units;  // by name

   [[nodiscard]] std::size_t mayBeOut() const { return budget.mayBeOut( units.size() ); }
   bool operator==( Group const & ) const = default;
};

class Inventory {
 public:
   // `budgets`: by label ("pair") or by group ("pair: spine-3"); that of a group goes before that of its label.
   Inventory( std::vector<Box> boxes, std::map<std::string, Budget> const & budgets, double heartbeatSeconds );
   Inventory( Inventory && ) = default;  // units know their groups by address, so it is moved and never copied
   Inventory & operator=( Inventory && ) = default;

   [[nodiscard]] std::vector<Box> const & boxes() const { return boxes_; }  // as in the file
   [[nodiscard]] Box const * box( std::string_view name ) const;            // null: there is none of that name
   [[nodiscard]] bool has( UnitName const & unit ) const;
   [[nodiscard]] std::vector<Group> const & groups() const { return groups_; }  // by name
   [[nodiscard]] std::span<Group const * const> groupsOf( UnitName const & unit ) const;
   // How often a box speaks when there is nothing new; it is silent when it was not heard for three times as long.
   [[nodiscard]] double heartbeatSeconds() const { return heartbeatSeconds_; }

 private:
   std::vector<Box> boxes_;
   std::map<std::string, std::size_t, std::less<>> places_;  // of the boxes, by name
   std::vector<Group> groups_;
   std::map<UnitName, std::vector<Group const *>> memberships_;
   double heartbeatSeconds_;
};

// What the operator's file says. Throws Service::Config::ConfigError with every problem and where it is; a file that
// does not hold gives no inventory at all.
[[nodiscard]] Inventory readInventory( std::string const & text, std::string const & fileName );

// What holds and is hardly meant, as a budget under which nothing can ever go out; a sentence each.
[[nodiscard]] std::vector<std::string> odditiesOf( Inventory const & inventory );

}  // namespace Fleet

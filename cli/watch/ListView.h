// The units with their interfaces, a place among them, and the rows around it.
#pragma once

#include "watch/Keys.h"
#include "watch/Order.h"

namespace Cli::Watch {

class ListView {
 public:
   ListView( Scene const & scene, Look look ) : scene_( scene ), look_( look ) {}

   // The unit and interface at the cursor, by their keys; the latter is empty on a unit that has none to show.
   using Place = std::pair<std::string, std::string>;
   [[nodiscard]] std::optional<Place> place() const;
   [[nodiscard]] Selection const & selection() const { return selection_; }
   [[nodiscard]] double sparkSeconds() const;
   // "12 of 1000"
   [[nodiscard]] std::string position() const;

   void selectionIs( Selection const & selection ) { selection_ = selection; }
   // Where it is not for the list nothing happens.
   void pressed( Press const & press );
   // Exactly so many rows.
   [[nodiscard]] std::vector<Line> lines( Size size );

 private:
   struct Item {
      Unit const * unit;
      Intf const * intf;  // null: the unit has none to show
   };
   [[nodiscard]] std::vector<Item> items() const;
   [[nodiscard]] static Place placeOf( Item const & item );
   [[nodiscard]] std::size_t cursorIn( std::vector<Item> const & items ) const;
   void moveTo( std::vector<Item> const & items, std::ptrdiff_t index );
   void moveToUnit( std::vector<Item> const & items, int step );
   [[nodiscard]] std::vector<Line> rendered( std::vector<Item> const & items, Size size );
   [[nodiscard]] int longestName() const;

   Scene const & scene_;
   Look const look_;
   Selection selection_;
   std::size_t span_ = 1;           // which of the spans of spark lines
   std::size_t index_ = 0;          // of the cursor
   std::optional<Place> followed_;  // the cursor goes with it; none: it stays at the top, whatever is there
   std::size_t top_ = 0;            // the first item that is shown
   std::size_t shown_ = 1;          // how many are
};

}  // namespace Cli::Watch

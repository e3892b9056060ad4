// The columns in which interfaces are shown: as many as there is room for, those first that say what holds a unit up.
#pragma once

#include "watch/Scene.h"

namespace Cli::Watch {

struct Column;
enum class Need : uint8_t;

// What a cell may need besides its interface.
struct Cells {
   double now = 0;  // s, on the service's clock
   double sparkSeconds = 180;
   bool selected = false;  // the cursor is on it
   Look look;
};

class Columns {
 public:
   Columns( int columns, int longestName, double sparkSeconds, Look look );

   [[nodiscard]] Line heading() const;
   [[nodiscard]] Line row( Intf const & intf, double now, bool selected ) const;

 private:
   struct Placed {
      Column const * column;
      int columns;  // 0: there is no room for it
   };

   [[nodiscard]] int used() const;
   [[nodiscard]] int gapBefore( Placed const & placed ) const;
   void take( Need need );
   template<class Wanted>
   void grow( Wanted const & wanted );
   [[nodiscard]] std::string headingOf( Placed const & placed ) const;
   void addGap( Line & line, Placed const & placed ) const;

   int const columns_;
   int const gap_;
   Cells const cells_;
   std::vector<Placed> placed_;  // from the left
};

// "3.2x over", "40 %", "-"
[[nodiscard]] std::string distanceText( Intf const & intf );
// What is still needed: "18 s", "stuck", "~40 s" until a loud one is quiet, "-".
[[nodiscard]] std::string needsText( Intf const & intf );
// In one unit: "90 s", "13 min", "2 h". What is to be waited for is rounded up, so that it never reads as over before
// it is; what has passed is not.
[[nodiscard]] std::string waitText( double seconds );
[[nodiscard]] std::string ageText( double seconds );
[[nodiscard]] Style styleOf( Standing standing );

}  // namespace Cli::Watch

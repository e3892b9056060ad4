// Which interfaces of a unit are shown, and in which order.
#pragma once

#include "watch/Scene.h"

namespace Cli::Watch {

enum class Order : uint8_t {
   holding,  // what holds the unit up: loud by distance, unknown, proving by what is needed, settled
   name,
   rate,     // the highest first
   needed,   // the longest first
   changed,  // the latest first
};
[[nodiscard]] char const * orderName( Order order );
[[nodiscard]] Order nextOrder( Order order );

enum class Show : uint8_t { all, unsettled, loud, unknown, proving, settled };
[[nodiscard]] char const * showName( Show show );
[[nodiscard]] Show nextShow( Show show );

struct Selection {
   Order order = Order::holding;
   bool reversed = false;
   Show show = Show::all;
   std::string pattern = {};  // part of a name, or the beginning of a verdict, in any case; empty: all

   [[nodiscard]] bool admits( Intf const & intf ) const;
};

// Of the unit, and valid as long as it is.
[[nodiscard]] std::vector<Intf const *> selected( Unit const & unit, Selection const & selection );

// Names as people order them: eth2 before eth10.
[[nodiscard]] bool nameBefore( std::string const & a, std::string const & b );

}  // namespace Cli::Watch

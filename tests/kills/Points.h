// The points at which an agent may die: before and after each durable step, and between a link's action and its record.
//
// A durable step is named after what it puts on disk. One transaction often makes several at once; whoever dies before
// or after it dies at the points of all of them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace Kills {

// What a step looks like: a line of what is kept (Kept.h) that begins so, and becomes so; with an empty text when it is
// there in whatever way, with none when it goes.
struct Sign {
   std::string_view line;
   char const * becomes;
   char const * name;
};
inline constexpr std::array signs{ Sign{ "unit ", "entering", "unit entering" },
                                   Sign{ "unit ", "inMaintenance", "unit in maintenance" },
                                   Sign{ "unit ", "leaving", "unit leaving" },
                                   Sign{ "unit ", "active", "unit active" },
                                   Sign{ "stage ", "", "stage begun" },
                                   Sign{ "stage ", nullptr, "stage over" },
                                   Sign{ "mark ", "", "stage marked" },
                                   Sign{ "mark ", nullptr, "mark taken back" },
                                   Sign{ "window ", "underway", "window opened" },
                                   Sign{ "window ", "ended: ", "window closed" },
                                   Sign{ "monitored ", "thresholdMonitoring", "monitoring begun" },
                                   Sign{ "monitored ", "passiveMonitoring", "link drained" },
                                   Sign{ "monitored ", nullptr, "monitoring over" },
                                   Sign{ "entry ", "", "entry written" },
                                   Sign{ "entry ", nullptr, "entry removed" },
                                   Sign{ "hold ", "taking", "link being taken down" },
                                   Sign{ "hold ", "held", "link held" },
                                   Sign{ "hold ", "found down", "link found down" },
                                   Sign{ "hold ", "raised", "link raised by others" },
                                   Sign{ "hold ", "releasing", "link being given back" },
                                   Sign{ "hold ", nullptr, "link given back" },
                                   Sign{ "none of these", "", "samples alone" } };
inline constexpr unsigned stepCount = signs.size();

// Each step twice: before it is on disk, and, `stepCount` further on, after it; and what is no step.
enum class Point : uint8_t {
   // A transaction that has changed the file, and is not over.
   withinTransaction = 2 * stepCount,
   beforeLinkDown,
   afterLinkDown,
   beforeLinkUp,
   afterLinkUp,
   beforeKeepAddrSet,
   afterKeepAddrSet,
   beforeKeepAddrPutBack,
   afterKeepAddrPutBack,
   requestArrived,
   requestCarriedOut,
   requestKept,
   requestAnswered,
   hookStarts,
   hookEnded,
   storeLoaded,
   linksInStep,
   serviceMade,
   started,
   count,
};
inline constexpr unsigned points = static_cast<unsigned>( Point::count );
static_assert( points <= 64 );

inline constexpr std::array<char const *, points - 2 * stepCount> otherNames{
   "within a transaction",
   "before a link is taken down",
   "after a link is taken down, before that is on record",
   "before a link is set up",
   "after a link is set up, before that is on record",
   "before keep_addr_on_down is set",
   "after keep_addr_on_down is set",
   "before keep_addr_on_down is put back",
   "after keep_addr_on_down is put back",
   "when a request arrives",
   "when a request is carried out and not kept",
   "when a request is kept and not answered",
   "when a request is answered",
   "when a hook starts",
   "when a hook has ended",
   "at a start, when the store is loaded",
   "at a start, when the links are in step",
   "at a start, when the service is made",
   "at a start, when the plug-in is asked to begin" };
inline std::string pointName( unsigned p ) {
   if( p >= 2 * stepCount ) return otherNames[p - 2 * stepCount];
   return ( p < stepCount ? "before keeping: " : "after keeping: " ) + std::string( signs[p % stepCount].name );
}

// Points that are passed at one moment.
using PointSet = uint64_t;
constexpr PointSet setOf( Point p ) { return PointSet{ 1 } << static_cast<unsigned>( p ); }

}  // namespace Kills

// The points at which an agent may die: before and after each durable step, and between a link's action and its record.
//
// A durable step is named after what it puts on disk. One transaction often makes several at once; whoever dies before
// or after it dies at the points of all of them.
#pragma once

#include <array>
#include <cstdint>

namespace Kills {

enum class Point : uint8_t {
   // What a transaction may put on disk. Each of these twice: before it, and, `steps` further on, after it.
   unitEntering,
   unitInMaintenance,
   unitLeaving,
   unitActive,
   stageBegun,
   stageMarked,
   stageOver,
   markTakenBack,
   windowOpened,
   windowClosed,
   monitoringBegun,
   linkDrained,
   monitoringOver,
   entryWritten,
   entryRemoved,
   holdTaking,
   holdHeld,
   holdFoundDown,
   holdRaised,
   holdReleasing,
   holdOver,
   samplesAlone,
   steps,
   // A transaction that has changed the file, and is not over.
   withinTransaction = 2 * steps,
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

inline constexpr std::array<char const *, points> pointNames{
   "before keeping: unit entering",
   "before keeping: unit in maintenance",
   "before keeping: unit leaving",
   "before keeping: unit active",
   "before keeping: stage begun",
   "before keeping: stage marked",
   "before keeping: stage over",
   "before keeping: mark taken back",
   "before keeping: window opened",
   "before keeping: window closed",
   "before keeping: monitoring begun",
   "before keeping: link drained",
   "before keeping: monitoring over",
   "before keeping: entry written",
   "before keeping: entry removed",
   "before keeping: link being taken down",
   "before keeping: link held",
   "before keeping: link found down",
   "before keeping: link raised by others",
   "before keeping: link being given back",
   "before keeping: link given back",
   "before keeping: samples alone",
   "after keeping: unit entering",
   "after keeping: unit in maintenance",
   "after keeping: unit leaving",
   "after keeping: unit active",
   "after keeping: stage begun",
   "after keeping: stage marked",
   "after keeping: stage over",
   "after keeping: mark taken back",
   "after keeping: window opened",
   "after keeping: window closed",
   "after keeping: monitoring begun",
   "after keeping: link drained",
   "after keeping: monitoring over",
   "after keeping: entry written",
   "after keeping: entry removed",
   "after keeping: link being taken down",
   "after keeping: link held",
   "after keeping: link found down",
   "after keeping: link raised by others",
   "after keeping: link being given back",
   "after keeping: link given back",
   "after keeping: samples alone",
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
   "at a start, when the plug-in is asked to begin",
};

// Points that are passed at one moment.
using PointSet = uint64_t;
constexpr PointSet setOf( Point p ) { return PointSet{ 1 } << static_cast<unsigned>( p ); }

}  // namespace Kills

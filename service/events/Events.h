// What has happened, as an operator is told of it: requests, stages, verdicts, spikes, links, holds, reloads, restarts.
//
// Told by all of the service and by the host, in the turn in which it happens, to the one EventLog (EventLog.h), which
// gives it its number and its times. Texts are for people and hold names as they are: whoever shows them sees to it
// that none of these does harm.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kel/Fields.h"
#include "kel/Optional.h"
#include "kel/String8.h"
#include "records/IntfId.h"

namespace Service {

// As the system log has them (RFC 5424, section 6.2.1).
enum class Severity : uint8_t {
   error = 3,    // something does not work, and somebody has to see to it
   warning = 4,  // somebody should look now: a proof is not there any more, or what was asked for is not done
   notice = 5,   // a step, as it should be
   info = 6,     // one of many: what one interface of a unit does on its way
};

constexpr char const * enumName( Severity s ) {
   switch( s ) {
      case Severity::error: return "error";
      case Severity::warning: return "warning";
      case Severity::notice: return "notice";
      case Severity::info: return "info";
   }
   return nullptr;
}

enum class EventKind : uint8_t {
   agent,       // it has started, took over units under way, stops
   reload,      // of the configuration: done, or refused and why
   config,      // what is odd about the configuration on this box
   trouble,     // the store, the kernel's links or counters; and its end
   request,     // to enter or exit: carried out, or refused and why
   state,       // of a unit
   stage,       // begins, is over and how
   deadline,    // of a stage has passed, and what becomes of the unit
   ready,       // every interface of the unit is proven quiet
   notReady,    // any more
   disturbed,   // in maintenance, and traffic is back
   quietAgain,  // after that
   verdict,     // of an interface's account in a unit
   spike,       // traffic that came back to an interface of a unit in maintenance, with its rate
   link,        // of an interface of the configuration: went down, came up, vanished, came back
   hold,        // link control: taken down, set up again, refused, set up by somebody else
};

constexpr char const * enumName( EventKind k ) {
   switch( k ) {
      case EventKind::agent: return "agent";
      case EventKind::reload: return "reload";
      case EventKind::config: return "config";
      case EventKind::trouble: return "trouble";
      case EventKind::request: return "request";
      case EventKind::state: return "state";
      case EventKind::stage: return "stage";
      case EventKind::deadline: return "deadline";
      case EventKind::ready: return "ready";
      case EventKind::notReady: return "not ready";
      case EventKind::disturbed: return "disturbed";
      case EventKind::quietAgain: return "quiet again";
      case EventKind::verdict: return "verdict";
      case EventKind::spike: return "spike";
      case EventKind::link: return "link";
      case EventKind::hold: return "hold";
   }
   return nullptr;
}

// What somebody has to tell.
struct Told {
   EventKind kind;
   std::string text;  // one line, for people
   Severity severity = Severity::notice;
   Kel::String8 unit = {};       // empty: it concerns none, or more than one
   uint32_t generation = 0;      // of the unit's request; 0: none
   Lumo::IntfId interface = {};  // empty: none
};

// One line of GET /v1/events.
struct Event {
   KEL_VALUE( Event, "Event" )
   KEL_FIELD( uint64_t, seq )           // grows; where to go on after it
   KEL_FIELD( double, time )            // s, on the service's clock
   KEL_FIELD( double, wallTime )        // s, Unix time; as `time` where the clock is invented
   KEL_FIELD( Kel::String8, kind )      // an EventKind
   KEL_FIELD( Kel::String8, severity )  // a Severity
   KEL_FIELD( std::optional<Kel::String8>, unit )
   KEL_FIELD( std::optional<uint32_t>, generation )
   KEL_FIELD( std::optional<Kel::String8>, interface )
   KEL_FIELD( Kel::String8, text )
   KEL_VALUE_END( Event )
};

[[nodiscard]] Severity severityOf( Event const & event );

// The first ten, "a, b, c", and how many more there are: what is told is one line, however many interfaces a unit has.
[[nodiscard]] std::string someOf( std::vector<std::string> const & texts, char const * between = ", " );

}  // namespace Service

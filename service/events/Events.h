// What has happened, in the order in which it did: requests, stages, verdicts, spikes, links, holds, reloads, restarts.
//
// Written by all of the service and by the host, in the turn in which it happens; read by whoever tells operators: the
// API, the system log, maintsim. A bounded history, so that somebody who comes late, or was away for a while, can read
// on from the number where he stopped. Numbers never repeat, also not over a restart of the agent: they may jump then.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "kel/Fields.h"
#include "kel/Optional.h"
#include "records/IntfId.h"

namespace Service {

// As the system log has them (RFC 5424, section 6.2.1).
enum class Severity : uint8_t { error = 3, warning = 4, notice = 5, info = 6 };

constexpr char const * enumName( Severity s ) {
   switch( s ) {
      case Severity::error: return "error";
      case Severity::warning: return "warning";
      case Severity::notice: return "notice";
      case Severity::info: return "info";
   }
   return nullptr;
}

// One line of GET /v1/events.
struct Event {
   KEL_VALUE( Event, "Event" )
   KEL_FIELD( uint64_t, seq )       // grows; where to go on after it
   KEL_FIELD( double, time )        // s, on the service's clock
   KEL_FIELD( double, wallTime )    // s, Unix time; as `time` where the clock is invented
   KEL_FIELD( Kel::String8, kind )  // "request", "stage", "deadline", "ready", "not ready", "disturbed",
                                    // "quiet again", "state", "verdict", "spike", "link", "hold", "reload", "agent"
   KEL_FIELD( Kel::String8, severity )
   KEL_FIELD( std::optional<Kel::String8>, unit )
   KEL_FIELD( std::optional<uint32_t>, generation )
   KEL_FIELD( std::optional<Kel::String8>, interface )
   KEL_FIELD( Kel::String8, text )  // for people, one line
   KEL_VALUE_END( Event )
};

}  // namespace Service

// The plug-in's two trace channels, side by side.
//
// TRACE( level, text << ... ) writes a line of the framework trace that begins with the function's name; TRACE_AS gives
// the beginning itself, where it is more than that name. RING( level, format, ... ) puts a message into the ring trace.
// Framework levels: 1 anomalies and unit-level events, 2 entering maintenance, 4 ordinary progress, 5 per-interface
// sampling and profiles, 9 membership, backlog and per-sample detail. Ring levels: 0 anomalies, 1 warnings, 3 progress,
// 4 profiles, 8 per-sample detail. Tracing never changes behaviour.
#pragma once

#include "brisklog/Brisklog.h"
#include "kel/Trace.h"
#include "records/Names.h"

namespace MaintenanceMode {

// The plug-in's handle.
inline Kel::TraceHandle & traceHandle = Kel::traceHandle( Maintenance::rateMonTraceHandle );

}  // namespace MaintenanceMode

#define TRACE( level, message ) KEL_TRACE( ::MaintenanceMode::traceHandle, level, message )
#define TRACE_AS( level, beginning, message ) KEL_TRACE_AS( ::MaintenanceMode::traceHandle, level, beginning, message )
#define RING( level, ... ) BRISKLOG( level, __VA_ARGS__ )

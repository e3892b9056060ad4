// All that a daemon says while it serves: a line each to the system log, by way of standard error, and to the ring
// trace.
//
// Where standard error is a stream of the journal, each line begins with its severity in angle brackets, which the
// journal takes off again (sd-daemon(3)); anywhere else with the name of the program, and the severity in words where
// somebody should look. Whatever names and programs have
// put into a text, it is one line, without control characters.
#pragma once

#include <string>

#include "events/Events.h"

namespace Host {

// What the program is called in its lines, `maintd` unless said otherwise; a constant.
void logNameIs( char const * name );
void logLine( Service::Severity severity, std::string const & text );
void logEvent( Service::Event const & event );

// What the above write, with the line's end; `journal`: for a stream of it.
[[nodiscard]] std::string logLineText( Service::Severity severity, std::string const & text, bool journal );
// "unit fabric: eth0: spike: out 4 Mbps"
[[nodiscard]] std::string logText( Service::Event const & event );
// Whether the descriptor is the stream that the service manager has named in JOURNAL_STREAM (systemd.exec(5)), whose
// value may be null: somebody in between may have led it elsewhere.
[[nodiscard]] bool isJournalStream( int fd, char const * named );

}  // namespace Host

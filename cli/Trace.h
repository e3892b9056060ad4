// maintctl trace: the messages of maintd's ring trace, read from its file; and the levels of the framework trace, set
// over the API.
//
// Reading asks nothing of maintd, so it works just as well when maintd has died. The functions return the program's
// exit status.
#pragma once

#include <optional>
#include <string>

#include "client/Client.h"

namespace Cli {

struct TraceOptions {
   std::string file;                 // empty: maintd's own place for it, beside the socket
   bool follow = false;              // go on with what comes, also across a restart of maintd; ends by a signal only
   bool json = false;                // one object a line
   std::optional<std::size_t> last;  // only so many of the messages that are there
   std::optional<double> since;      // Unix time, s: only messages from then on
};

// "5m" ago, "14:05" today or yesterday, "2026-03-01 14:05:09", as Unix time; none for what is neither.
[[nodiscard]] std::optional<double> traceSince( std::string const & text );

int trace( Client const & client, TraceOptions const & options );

// `levels` as in "1,2,4", or "none".
int traceLevels( Client const & client, std::string const & levels, bool json );
// What is wrong with such a text; empty when nothing is.
[[nodiscard]] std::string levelsFault( std::string const & levels );

}  // namespace Cli

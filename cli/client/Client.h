// The HTTP API of a daemon over its unix socket, as a client sees it: one request, one answer, JSON or text.
//
// Opens a connection per request; never retries. No request takes longer than its time, and no answer more memory than
// its size, whoever it is that listens there: a daemon that is stopped, one that sends for ever, or something else.
// What comes back is the answer that was asked for, or one with a status other than 200 and its reason; what that means
// is for whoever calls to decide.
#pragma once

#include <boost/json/value.hpp>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>

#include "client/Target.h"
#include "tables/Shape.h"

namespace Cli {

using Clock = std::chrono::steady_clock;

// Nobody at the socket gives an answer that can be used: the daemon does not run, may not be reached by this user, does
// not answer in time, or is another.
class NotReached : public std::runtime_error {
 public:
   explicit NotReached( std::string const & what, std::string advice = "" )
      : std::runtime_error( what ), advice_( std::move( advice ) ) {}
   // What to do about it, a sentence; empty when there is nothing to be said.
   [[nodiscard]] std::string const & advice() const { return advice_; }

 private:
   std::string advice_;
};

// The caller's own deadline passed before the answer was there.
class DeadlinePassed : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct Answer {
   unsigned status = 0;      // HTTP status code
   std::string text;         // the body as it came
   boost::json::value body;  // null where it is not asked for as JSON

   [[nodiscard]] bool ok() const { return status == 200; }
   // Of the shape that it was asked for with; only where it is ok.
   [[nodiscard]] boost::json::object const & object() const { return body.get_object(); }
   // The daemon's reason for a status other than 200.
   [[nodiscard]] std::string error() const;
};

// Who is asked, for people.
struct Daemon {
   std::string name = "maintd";
   // A sentence for when it does not run.
   std::string startIt = "Start it with: maintd --config FILE   (systemctl start maintd where it is a service)";
};

class LineStream;

class Client {
 public:
   // One socket for everything.
   explicit Client( std::string socketPath ) : Client( socketPath, socketPath ) {}
   // One for what changes something, and one for what only reads.
   Client( std::string controlPath, std::string readPath, Daemon daemon = {} )
      : controlPath_( std::move( controlPath ) ), readPath_( std::move( readPath ) ), daemon_( std::move( daemon ) ) {}

   [[nodiscard]] std::string const & controlPath() const { return controlPath_; }
   [[nodiscard]] std::string const & readPath() const { return readPath_; }
   // One whose requests end at that time, too, if it comes before theirs; none: only at theirs.
   [[nodiscard]] Client until( std::optional<Clock::time_point> deadline ) const;

   // All throw NotReached, and DeadlinePassed where a deadline is set.
   [[nodiscard]] Answer get( Target const & target, Shape const & asked ) const;
   [[nodiscard]] Answer post( Target const & target, Shape const & asked ) const;
   // Of any size that a box may need, only as it came. JSON has been seen to be JSON.
   [[nodiscard]] Answer getLarge( Target const & target, std::string_view mediaType ) const;
   // An answer of maintd that goes on (LineStream.h).
   [[nodiscard]] LineStream lines( Target const & target ) const;

 private:
   std::string controlPath_;
   std::string readPath_;
   Daemon daemon_;
   std::optional<Clock::time_point> deadline_;
};

}  // namespace Cli

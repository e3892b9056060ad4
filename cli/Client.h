// The HTTP API of maintd over its unix socket, as a client sees it: one request, one answer, JSON or text.
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

#include "Target.h"
#include "tables/Shape.h"

namespace Cli {

using Clock = std::chrono::steady_clock;

// Nobody at the socket gives an answer that can be used: maintd does not run, may not be reached by this user, does not
// answer in time, or is no maintd.
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

class LineStream;

class Client {
 public:
   // One socket for everything.
   explicit Client( std::string socketPath ) : Client( socketPath, socketPath ) {}
   // One for what changes something, and one for what only reads.
   Client( std::string controlPath, std::string readPath )
      : controlPath_( std::move( controlPath ) ), readPath_( std::move( readPath ) ) {}

   [[nodiscard]] std::string const & controlPath() const { return controlPath_; }
   [[nodiscard]] std::string const & readPath() const { return readPath_; }
   // One whose requests end at that time, too, if it comes before theirs; none: only at theirs.
   [[nodiscard]] Client until( std::optional<Clock::time_point> deadline ) const;

   // All throw NotReached, and DeadlinePassed where a deadline is set.
   [[nodiscard]] Answer get( Target const & target, Shape const & asked ) const;
   [[nodiscard]] Answer post( Target const & target, Shape const & asked ) const;
   // Of any size that a box may need, only as it came. JSON has been seen to be JSON.
   [[nodiscard]] Answer getLarge( Target const & target, std::string_view mediaType ) const;
   // An answer that goes on (LineStream.h).
   [[nodiscard]] LineStream lines( Target const & target ) const;

 private:
   std::string controlPath_;
   std::string readPath_;
   std::optional<Clock::time_point> deadline_;
};

}  // namespace Cli

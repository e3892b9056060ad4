// An answer that goes on: lines, one after the other, as they come about, for as long as the client reads and there is
// something to come. It is sent in chunks (RFC 9112, section 7.1), a JSON object a line.
//
// Made by whoever answers a request, owned by the connection that sends it, which asks for lines only while it has room
// for them. So a stream keeps no queue of its own: where many clients read the same it stands on a history that all of
// them share and that is bounded, and knows no more than its place in it. A client that reads so slowly that its place
// has left the history is told, in a last line, where to go on. A client that takes nothing for too long is cut off
// without one, as it would not take that either. Destroyed outside turns, as soon as the client has gone.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace Host {

// What the lines of a stream are called (HttpAnswer::contentType).
constexpr char const * streamType = "application/x-ndjson";

class HttpStream {
 public:
   virtual ~HttpStream() = default;

   // What comes next, not much more than `bytes` of it; empty when there is nothing now. Whole lines, at least one:
   // only one that is much longer than that may be cut, and goes on with the next call. In a turn.
   [[nodiscard]] virtual std::string next( std::size_t bytes ) = 0;
   // Whether nothing will come any more; asked after next().
   [[nodiscard]] virtual bool ended() const = 0;
   // Called when there is something again after next() had nothing, or when it has ended: from inside whatever write
   // brought it about, so it only notes that it was called. Replaces the one before.
   virtual void onMore( std::function<void()> more ) = 0;
   // The agent stops: after this next() gives at most what there is, and as its last the line that says so. Without one
   // of its own a stream just ends. Outside turns.
   virtual void stop() {}
};

}  // namespace Host

// An answer that goes on: lines, one after the other, as they come about, for as long as the client reads and there is
// something to come. It is sent in chunks (RFC 9112, section 7.1), a JSON object a line.
//
// Made by whoever answers a request, owned by the connection that sends it, which asks for lines only while it has room
// for them. So a stream keeps no queue of its own: where many clients read the same it stands on a history that all of
// them share and that is bounded, and knows no more than its place in it. A client that reads so slowly that its place
// has left the history is told, in a last line, where to go on.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace Host {

class HttpStream {
 public:
   virtual ~HttpStream() = default;

   // The next whole lines, not much more than `bytes` of them and at least one; empty when there is none now. In a turn.
   [[nodiscard]] virtual std::string next( std::size_t bytes ) = 0;
   // Whether nothing will come any more; asked after next().
   [[nodiscard]] virtual bool ended() const = 0;
   // Called when there is something again after next() had nothing, or when it has ended: from inside whatever write
   // brought it about, so it only notes that it was called. Replaces the one before.
   virtual void onMore( std::function<void()> more ) = 0;
};

}  // namespace Host

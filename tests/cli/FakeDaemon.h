// A daemon in a child process that behaves as a test says, down to the single byte; it is no maintd and shares no code
// with it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Cli {

struct Reply {
   unsigned status = 200;
   std::string body;
   std::string type = "application/json";

   [[nodiscard]] std::string http() const;
};

// "GET /v1/units/fabric" -> the replies that it gets one after the other; the last one stays.
using Script = std::map<std::string, std::vector<Reply>>;

class FakeDaemon {
 public:
   // What is done with one connection, whose request ("GET /v1/units") has been read; it is closed afterwards.
   using Behave = std::function<void( int connection, std::string const & request )>;

   struct Manner {
      int backlog = 16;
      bool reads = true;  // the request, before anything is done
   };

   // Listens when this returns.
   FakeDaemon( std::string const & socket, Behave const & behave, Manner manner );
   ~FakeDaemon();
   FakeDaemon( FakeDaemon const & ) = delete;
   FakeDaemon & operator=( FakeDaemon const & ) = delete;

   // Stops it as SIGSTOP does, for good.
   void stop() const;

 private:
   pid_t process_;
};

// Writes all of it; false when the reader has gone.
bool sent( int connection, std::string_view text );
// Reads as long as there is something, until the other side closes.
void waitUntilClosed( int connection );

}  // namespace Cli

// The HTTP API of maintd over its unix socket, as a client sees it: one request, one answer, JSON or text.
//
// Opens a connection per request; never retries. Whoever calls decides what a status other than 200 means.
#pragma once

#include <boost/json/value.hpp>
#include <stdexcept>
#include <string>

namespace Cli {

// Nobody at the socket gives an answer that can be read: maintd does not run, may not be reached by this user, or is no
// maintd.
class NotReached : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct Answer {
   unsigned status = 0;      // HTTP status code
   std::string text;         // the body as it came
   boost::json::value body;  // null where that is not JSON

   [[nodiscard]] bool ok() const { return status == 200; }
   // The daemon's reason for a status other than 200.
   [[nodiscard]] std::string error() const;
};

class Client {
 public:
   explicit Client( std::string socketPath ) : socketPath_( std::move( socketPath ) ) {}

   [[nodiscard]] std::string const & socketPath() const { return socketPath_; }

   // Both throw NotReached, also where the answer breaks off or is not the JSON that it says it is.
   [[nodiscard]] Answer get( std::string const & target ) const;
   [[nodiscard]] Answer post( std::string const & target ) const;

 private:
   [[nodiscard]] Answer request( char const * method, std::string const & target ) const;

   std::string socketPath_;
};

// One path component, percent-encoded (RFC 3986).
[[nodiscard]] std::string encoded( std::string const & component );

}  // namespace Cli

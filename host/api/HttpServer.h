// HTTP/1.1 over a unix socket: reads a request, hands it to one handler, writes the answer.
//
// Owned by the agent, driven by the agent's loop; the handler runs inside a turn of the activity loop. One connection
// may carry many requests, one after the other. A request that is not HTTP, too large or too slow in coming ends its
// connection.
#pragma once

#include <boost/asio/local/stream_protocol.hpp>
#include <functional>
#include <string>

#include "loop/AsioLoop.h"

namespace Host {

struct HttpRequest {
   std::string method;
   std::string target;  // path and query, still percent-encoded
   std::string user;    // who asks, by name, or by number where there is none; empty for a GET
};

struct HttpAnswer {
   unsigned status = 200;
   std::string body;
   char const * contentType = "application/json";
};

class HttpServer {
 public:
   using Handler = std::function<HttpAnswer( HttpRequest const & )>;

   // Listens at `path` with mode 0660; a socket file that nobody answers on any more is replaced. Throws
   // std::runtime_error when the path is in use or cannot be bound.
   HttpServer( AsioLoop & loop, std::string path, Handler handler );
   ~HttpServer();

 private:
   void accept();

   AsioLoop & loop_;
   std::string const path_;
   Handler const handler_;
   boost::asio::local::stream_protocol::acceptor acceptor_;
};

}  // namespace Host

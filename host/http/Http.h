// A request to an API and its answer, as the HTTP server and those who answer see them.
#pragma once

#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "http/HttpStream.h"

namespace Host {

struct HttpRequest {
   std::string method;        // a HEAD comes as GET: whoever answers need not know
   std::string target;        // path and query, still percent-encoded; "*" for OPTIONS only
   std::string user;          // who asks, by name, or by number where there is none; empty for a GET, and over TCP
   std::string address = {};  // over TCP: whence he asks, "192.0.2.7:40112"; empty on a unix socket
   std::string authorization = {};  // the field of that name, as it came
   bool hasBody = false;            // of which nobody keeps a byte
};

struct HttpAnswer {
   unsigned status = 200;
   std::string body;
   std::string_view contentType = "application/json";  // for as long as the program runs
   std::string allow = {};  // which methods the target has, comma-separated; for status 405 and OPTIONS
   // Called when the turn of the request is over, and with it whatever follows at its end; may change the answer.
   std::function<void( HttpAnswer & )> afterTurn = {};
   // What came of a change, for the log; one line, of which nothing is a client's own words unescaped.
   std::string outcome = {};
   // Who has asked for the change, where the handler knows better than the connection; for the log.
   std::string by = {};
   // Further fields of the head.
   std::vector<std::pair<char const *, std::string>> fields = {};
   // What follows behind the body, piece by piece; null: nothing does, and the body is all.
   std::shared_ptr<HttpStream> stream = {};
};

using HttpHandler = std::function<HttpAnswer( HttpRequest const & )>;

// { "error": text }
[[nodiscard]] HttpAnswer httpError( unsigned status, std::string text );

// The answer that is nothing but a stream.
[[nodiscard]] HttpAnswer httpLines( std::shared_ptr<HttpStream> stream );

// The head of the message that carries the answer, dated `now` (s, Unix time), up to the empty line behind it.
// `chunks`: of an answer that goes on, whether the client takes it in chunks; one of HTTP/1.0 gets it as it is, until
// the connection ends.
[[nodiscard]] std::string httpHead( HttpAnswer const & answer, bool keepAlive, std::time_t now, bool chunks = true );

}  // namespace Host

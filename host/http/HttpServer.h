// HTTP/1.1 over a unix socket or TCP: takes connections, each of which reads requests, hands them to the one handler,
// and writes the answers.
//
// Owned by the program, driven by its loop; the handler runs inside a turn of the activity loop. No client can
// end the agent or make it swell: a handler that throws costs its request a status 500, a connection too many gets a
// 503, and a descriptor is kept back so that this can be said when no other is left. Then, and where the kernel has no
// memory, connections are taken with pauses that grow. What a connection may take stands in HttpConnection::Limits; the
// 64 together take at most
//
//    16 MB while requests are read: 8 KB of bytes each, and the fields that they may be made of,
//    32 MB of answers that wait to be read, and one answer more, however large that is,
//
// and the 128 streams beside them 32 KB each. What a server's clients take they take from each other only: a crowd at
// the socket for everyone keeps nobody from the one that takes changes.
#pragma once

#include <sys/types.h>

#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <string>

#include "http/HttpConnection.h"
#include "http/ListeningSocket.h"
#include "loop/AsioLoop.h"

namespace Host {

class HttpServer {
 public:
   using Limits = HttpConnection::Limits;
   struct Place {
      std::string path;
      mode_t mode = 0660;
      std::string changesAt = {};      // the path at which changes are taken; empty: this one
      std::string program = "maintd";  // who serves, for people
      // TCP in place of a path: an address of this machine and a port, "127.0.0.1:8080" or "[::1]:8080".
      std::string address = {};
   };

   // Throws std::runtime_error when the path or address is in use, or is not ours to replace, or cannot be bound.
   HttpServer( AsioLoop & loop, Place place, HttpHandler handler ) : HttpServer( loop, place, handler, Limits() ) {}
   HttpServer( AsioLoop & loop, Place place, HttpHandler handler, Limits const & limits );
   HttpServer( HttpServer const & ) = delete;
   HttpServer & operator=( HttpServer const & ) = delete;
   ~HttpServer();

   // Takes no connections any more and has each stream end, with what it has to say last; then calls `done`, once.
   void stop( std::function<void()> done );
   // Lets go of all streams: what they read from is about to go.
   void dropStreams();

 private:
   using Socket = HttpConnection::Socket;

   void accept();
   void take( Socket socket );
   void onTrouble( boost::system::error_code error );
   // Tells everybody who waits that there is no descriptor for him.
   void refuseWithReserve();

   ListeningSocket listening_;
   std::shared_ptr<HttpConnection::Shared> const shared_;
   boost::asio::steady_timer pause_;
   std::chrono::milliseconds pauseLength_{ 0 };  // the last one; 0 while connections are taken
   int reserve_;                                 // a descriptor; -1 while there was none to be had
};

}  // namespace Host

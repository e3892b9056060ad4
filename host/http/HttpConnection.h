// One client's connection: requests are read, answered in a turn of the activity loop, and the answers written, one
// after the other.
//
// An answer that goes on is the last: from then on the connection only asks its stream for pieces, one at a time, each
// when the one before is with the kernel, and waits for the client to go.
//
//    reading --request--> answering --answer--> reading, or parting
//                             '--stream--> streaming <--> waiting for more; both --end--> parting
//
// Lives as long as an operation of its own is under way. What a client can take is bounded: each wait has a deadline,
// there is one answer at a time, and all answers that wait for their readers together are counted. Where a connection
// ends with an answer, what the client still sends is read and dropped for a while, as the kernel would make a client
// that still writes lose the answer.
#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "http/RequestReader.h"
#include "loop/AsioLoop.h"

namespace Host {

class HttpConnection : public std::enable_shared_from_this<HttpConnection> {
 public:
   struct Limits {
      std::size_t connections = 64;                 // the next are refused
      std::size_t refusals = 16;                    // under way at a time; what comes on top is cut off at once
      std::size_t streams = 128;                    // which are no connections any more; the next are refused
      std::size_t unreadBytes = 32 * 1024 * 1024;   // of answers; with more, no GET is answered
      std::chrono::milliseconds idle{ 60'000 };     // until a request begins
      std::chrono::milliseconds request{ 10'000 };  // from its first byte to its last
      std::chrono::milliseconds answer{ 30'000 };   // until it is read, and of a stream anything
      std::chrono::milliseconds parting{ 2'000 };   // until the client has closed its end, too
   };
   // What all connections of a server share. They may outlive the server, in handlers that are never called.
   struct Shared {
      AsioLoop & loop;
      HttpHandler const handler;
      Limits const limits;
      std::string const changesAt;  // the socket that takes changes, where this one does not; else empty
      std::string const program;    // who serves, for people
      std::size_t served = 0;
      std::size_t refused = 0;
      std::size_t streams = 0;
      std::size_t unreadBytes = 0;
      std::set<HttpConnection *> streaming = {};  // as long as something may come
      std::function<void()> allSent = {};         // called once when the last of them has ended
      // Those that have something to send, in the order in which they do: each a piece, and then the loop looks whether
      // a timer is due. A crowd that is told of the same change takes its time from nobody else.
      std::deque<std::weak_ptr<HttpConnection>> due = {};
   };
   using Socket = boost::asio::generic::stream_protocol::socket;  // unix or TCP

   // `count` of the shared ones counts this connection.
   HttpConnection( Socket socket, std::shared_ptr<Shared> shared, std::size_t Shared::*count );
   HttpConnection( HttpConnection const & ) = delete;
   HttpConnection & operator=( HttpConnection const & ) = delete;
   ~HttpConnection();

   // Serves requests until the client has gone.
   void serve();
   // Answers so without having read a request, and ends.
   void refuse( HttpAnswer const & answer );
   // Of one that streams: the agent stops, so what is sent now is the last.
   void stopStream();
   // Closes, whatever was still to be sent.
   void leaveStream();

 private:
   using Error = boost::system::error_code;

   // From now on, instead of the one before; the operation under way ends then, and no other begins.
   void deadlineIs( std::chrono::milliseconds fromNow );
   void expire();
   void read();
   void onRead( Error error, std::size_t bytes );
   void goOn();
   void leaveToSend();
   void answer();
   [[nodiscard]] HttpAnswer answered( HttpRequest const & request ) const;
   void send( HttpAnswer answer, bool keepAlive );
   void onSent( Error error, bool keepAlive );
   void part( std::size_t bytesLeft );

   void stream( HttpAnswer answer );
   // Until the client has closed its end; what it sends meanwhile is dropped.
   void awaitPeerEnd( std::size_t bytesLeft );
   void onPeerEnd( Error error );
   void queueUp();
   static void sendNextOf( std::shared_ptr<Shared> const & shared );
   void goOnStreaming();
   void sendPiece( std::string piece, bool last );
   void onPieceSent( Error error, bool last );
   void nothingMoreToStream();

   std::shared_ptr<Shared> const shared_;
   std::size_t Shared::*count_;
   Socket socket_;
   boost::asio::steady_timer deadline_;
   bool expired_ = false;
   bool sending_ = false;  // an answer
   RequestReader reader_;
   std::string head_;  // of the answer under way
   std::string body_;
   std::shared_ptr<HttpStream> stream_;
   bool queued_ = false;
   bool stopping_ = false;  // as soon as the stream has nothing
};

}  // namespace Host

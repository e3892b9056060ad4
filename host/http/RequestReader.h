// Reads HTTP/1.1 requests from the bytes of one connection, whoever brings them.
//
// Owned by a connection, which puts bytes into room() and looks at state() after each received(). A request may come in
// any pieces, and one behind the other. What a request takes is bounded: its head by headMax, its body by bodyMax, and
// the body, which no request of the API needs, is read and not kept.
//
//    idle --bytes--> reading --> complete --next()--> idle, or reading where the next has begun
//                      '--> refused: no more is read, as nobody knows where another request would begin
#pragma once

#include <array>
#include <boost/beast/core/buffer_traits.hpp>
#include <boost/beast/http/parser.hpp>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "http/Http.h"

namespace Host {

class RequestReader {
 public:
   static constexpr std::size_t headMax = 8 * 1024;
   static constexpr std::size_t bodyMax = 64 * 1024;

   enum class State { idle, reading, complete, refused };

   RequestReader() { begin(); }

   [[nodiscard]] State state() const { return state_; }
   // Of a complete request; its user is left to the connection.
   [[nodiscard]] HttpRequest const & request() const { return request_; }
   // The answer to what is refused.
   [[nodiscard]] HttpAnswer const & refusal() const { return refusal_; }
   // Whether only the head of the answer is asked for.
   [[nodiscard]] bool headOnly() const { return headOnly_; }
   [[nodiscard]] bool keepAlive() const { return state_ == State::complete && keepAlive_; }
   // Whether the client understands an answer in chunks; one of HTTP/1.0 does not.
   [[nodiscard]] bool takesChunks() const { return takesChunks_; }
   // Whether the client waits for leave to send the body (RFC 9110, section 10.1.1); true once.
   [[nodiscard]] bool takeContinue() { return std::exchange( continueDue_, false ); }

   // Where the next bytes go; never empty while a request is idle or being read.
   [[nodiscard]] std::span<char> room();
   // Room for what is dropped once no more is to be read.
   [[nodiscard]] std::span<char> scratch() { return buffer_; }
   // So many bytes were put there.
   void received( std::size_t bytes );
   // No more will come.
   void ended();
   // It took too long.
   void late();
   // The complete request is answered.
   void next();

 private:
   // A body that is read, and counted by the parser, but not kept.
   struct PassedOver {
      struct value_type {};
      struct reader {
         template<bool isRequest, class Fields>
         reader( boost::beast::http::header<isRequest, Fields> &, value_type & ) {}
         void init( boost::optional<std::uint64_t> const &, boost::beast::error_code & error ) { error = {}; }
         template<class Buffers>
         std::size_t put( Buffers const & bytes, boost::beast::error_code & error ) {
            error = {};
            return boost::beast::buffer_bytes( bytes );
         }
         void finish( boost::beast::error_code & error ) { error = {}; }
      };
   };
   using Parser = boost::beast::http::request_parser<PassedOver>;

   void begin();
   void parse();
   // Whether the first line is there and of a version that is spoken here; refuses it where it is not.
   [[nodiscard]] bool lineHolds();
   // What is not complete may fill the buffer, and then it never will be.
   void refuseIfFull();
   void refuseError( boost::beast::error_code error );
   void checkHead();
   [[nodiscard]] bool targetHolds();
   [[nodiscard]] bool hostHolds();
   [[nodiscard]] bool codingHolds();
   [[nodiscard]] bool expectationHolds();
   // False, for whoever checks.
   bool refuse( unsigned status, std::string const & why );
   [[nodiscard]] std::string_view unread() const { return { buffer_.data() + begin_, end_ - begin_ }; }

   std::array<char, headMax> buffer_;
   std::size_t begin_ = 0;  // of what the parser has not taken
   std::size_t end_ = 0;
   std::size_t headBytes_ = 0;  // which the parser has taken
   bool lineSeen_ = false;
   bool headSeen_ = false;
   bool continueDue_ = false;
   bool headOnly_ = false;
   bool keepAlive_ = false;
   bool takesChunks_ = false;
   State state_ = State::idle;
   // Each is good for one message.
   std::optional<Parser> parser_;
   HttpRequest request_;
   HttpAnswer refusal_;
};

}  // namespace Host

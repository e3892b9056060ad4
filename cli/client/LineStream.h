// An answer of maintd that goes on: lines as they come about, for as long as both sides are there.
//
// Made by Client::lines(). It may take all the time and send as much as there is to say; bounded are the time to the
// answer's head, and the length of one line. It is read only when somebody asks for the next line, so a caller that is
// slow slows maintd's sending down and takes no memory. Whoever waits for other things as well polls fd().
#pragma once

#include <memory>
#include <string>

#include "client/Client.h"

namespace Cli {

class LineStream {
 public:
   // A watch begins with the whole of what is watched, in one line.
   static constexpr std::size_t lineMax = 64 * 1024 * 1024;  // bytes

   enum class Got {
      line,
      nothing,  // until the time was over
      end,      // maintd has ended the stream as it should
   };

   // Asks, and waits for the head of the answer until `end`. Throws NotReached.
   LineStream( std::string const & socketPath, Target const & target, Clock::time_point end );
   ~LineStream();
   LineStream( LineStream && ) noexcept;
   LineStream & operator=( LineStream && ) noexcept;

   // Where it is not ok no line comes, and this is why not.
   [[nodiscard]] Answer const & answer() const;
   // Of the connection: may be read when next() had nothing and there is more, or the end.
   [[nodiscard]] int fd() const;
   // The next line, without its end. Throws NotReached where the stream breaks off, or a line is longer than may be.
   [[nodiscard]] Got next( std::string & line, Clock::time_point until );

 private:
   class Impl;
   std::unique_ptr<Impl> impl_;
};

}  // namespace Cli

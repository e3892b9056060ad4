// Standard error that is never waited for: a terminal that was stopped, a pager at the other end of a pipe, a journal
// that hangs must not stop the loop.
//
// While this lives, std::cerr and what C code prints to stderr (traces, failed assertions) end here. Whole lines are
// written as far as they are taken at once. What is not taken waits, up to 64 KiB; after that lines are dropped and
// counted, and how many is said in their place. An error counts as not taken, too: a disk that is full may have room
// again.
//
// Nobody else notices: where waiting is a property of an open file that others share, a second one is opened. Owned by
// main(), for as long as it serves; commands that end by themselves wait for their reader, as everybody expects.
// Expects that SIGPIPE is ignored.
#pragma once

#include <sys/types.h>

#include <boost/asio/steady_timer.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <streambuf>
#include <string>
#include <string_view>

#include "loop/AsioLoop.h"

namespace Host {

class StandardError final : private std::streambuf {
 public:
   static constexpr std::size_t waitingMax = 64 * 1024;  // bytes

   // Redirects what is printed; `fd` stays its owner's.
   explicit StandardError( int fd = 2 );
   // Puts back what was there before. What is not taken now is lost.
   ~StandardError() override;
   StandardError( StandardError const & ) = delete;
   StandardError & operator=( StandardError const & ) = delete;

   // Whether something has not been taken yet.
   [[nodiscard]] bool waits() const { return !waiting_.empty() || dropped_ > 0; }
   // Writes of that as much as is taken now.
   void writeOn();
   // Runs when something has to wait, and nothing did before.
   void onWaiting( std::function<void()> handler ) { onWaiting_ = std::move( handler ); }

 private:
   enum class Kind { pipeOrTerminal, socket, other };

   [[nodiscard]] static Kind kindOf( int fd );
   static ssize_t cookieWrite( void * self, char const * text, std::size_t bytes );
   int_type overflow( int_type character ) override;
   std::streamsize xsputn( char const * text, std::streamsize bytes ) override;

   void take( std::string_view text );
   void takeLine();
   [[nodiscard]] std::size_t written( std::string_view text ) const;

   int const fd_;
   Kind const kind_;
   int const own_;  // a second opening of it that does not wait; -1 where there is none
   std::FILE * const stderrNow_;
   std::FILE * const stderrBefore_;
   std::streambuf * const cerrBefore_;

   std::string line_;      // so far
   std::string waiting_;   // whole lines, but for the first, of which a part may have gone
   uint64_t dropped_ = 0;  // lines that belong behind those
   std::function<void()> onWaiting_;
};

// Writes on, five times a second, what standard error did not take. Owned by the agent.
class StandardErrorRetry {
 public:
   StandardErrorRetry( AsioLoop & loop, StandardError & error );
   ~StandardErrorRetry();
   StandardErrorRetry( StandardErrorRetry const & ) = delete;
   StandardErrorRetry & operator=( StandardErrorRetry const & ) = delete;

 private:
   void await();

   StandardError & error_;
   boost::asio::steady_timer timer_;
};

}  // namespace Host

// Standard output and standard error as a program for people writes them: nothing reaches either of them but what is
// fit for a terminal (tables/Printable.h), whoever has chosen it.
//
// Put in place of a stream's own buffer for as long as it lives; so all that is printed has to go through std::cout and
// std::cerr, and nothing through stdio. Where a write fails the stream goes bad, and what was not written is dropped.
#pragma once

#include <functional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace Cli {

class Output final : public std::streambuf {
 public:
   Output( std::ostream & stream, int fd );
   // What is pending and cannot be written is lost.
   ~Output() override;
   Output( Output const & ) = delete;
   Output & operator=( Output const & ) = delete;

   // The error number of a write that failed, 0 when none has.
   [[nodiscard]] int failure() const { return failure_; }

 protected:
   int_type overflow( int_type c ) override;
   std::streamsize xsputn( char const * text, std::streamsize length ) override;
   int sync() override;

 private:
   bool write();

   std::ostream & stream_;
   std::streambuf * const before_;
   int const fd_;
   std::string pending_;  // printable already
   int failure_ = 0;
};

// Runs the whole of a program that prints, with both streams in place, and returns its exit status. Where it throws, or
// what it printed cannot be written, that is what `complain` returns, who is given a sentence; where only nobody reads
// any more, as when a pager was left, it is 1, and nothing is said.
//
// Descriptors 0 to 2, where the caller has closed one, lead nowhere from then on. Otherwise the next file or socket
// that is opened would get its number, and what is printed would go there.
int runPrinting( std::function<int()> const & program, std::function<int( std::string const & )> const & complain );

}  // namespace Cli

// Signals as something to be read, for as long as this lives: those that end the view, and that of another size.
#pragma once

#include <csignal>

namespace Cli::Watch {

class Signals {
 public:
   Signals();
   ~Signals();
   Signals( Signals const & ) = delete;
   Signals & operator=( Signals const & ) = delete;

   [[nodiscard]] int fd() const { return fd_; }
   // The next one that has come; 0 when there is none.
   [[nodiscard]] int next() const;

 private:
   sigset_t before_{};
   int fd_ = -1;
};

}  // namespace Cli::Watch

// Answers for the live view out of another process: this one never waits for maintd, and an answer that does not come
// holds up nobody who wants to leave.
#pragma once

#include <sys/types.h>

#include <string>

#include "client/Client.h"
#include "watch/Live.h"

namespace Cli {

// One unit, or all of them where its name is empty.
[[nodiscard]] Answer stateOf( Client const & client, std::string const & unit );

class WatchSource final : public Watch::Source {
 public:
   // Begins a child, which ends with this.
   WatchSource( Client const & client, std::string const & unit );
   ~WatchSource() override;
   WatchSource( WatchSource const & ) = delete;
   WatchSource & operator=( WatchSource const & ) = delete;

   void ask( Watch::Question const & question ) override;
   [[nodiscard]] int fd() const override { return fd_; }
   // Throws std::runtime_error when the child has gone.
   [[nodiscard]] std::optional<Watch::News> next() override;

 private:
   pid_t child_ = 0;
   int fd_ = -1;
   std::string received_;
};

}  // namespace Cli

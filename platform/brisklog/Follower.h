// Follows a ring file: gives, at each call, what was written since the last one, oldest first.
//
// It follows the path, as one follows a log. When a new process has put a new ring there, what the one before still
// held is given first, so the last words of a process that died are not lost. A file that is not there, or has gone,
// gives nothing until there is one. A call that finds nothing new reads the file's header and no more. Driven by its
// caller's polling.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "brisklog/Brisklog.h"

namespace Brisklog {

class Follower {
 public:
   // Of one file.
   struct News {
      std::vector<Message> messages;
      uint64_t missed = 0;    // messages overwritten since the last call, before these
      bool newRing = false;   // another ring than that of the call before
      bool damaged = false;   // as Reader says, once for a ring
      bool thisBoot = false;  // as Reader says
   };

   explicit Follower( std::string path ) : path_( std::move( path ) ) {}
   Follower( Follower const & ) = delete;
   Follower & operator=( Follower const & ) = delete;
   ~Follower();

   // None when nothing is new, or when there has been no file yet. Throws RingError for a file that cannot be read or
   // is no ring.
   [[nodiscard]] std::optional<News> next();

 private:
   [[nodiscard]] bool replaced() const;
   [[nodiscard]] std::optional<News> readOn();
   void reopen();

   std::string const path_;
   int fd_ = -1;
   std::optional<uint64_t> head_;  // of the ring when it was last read
   uint64_t sequence_ = 0;         // of the next message
   bool newRing_ = false;
   bool damageTold_ = false;
};

}  // namespace Brisklog

// Reads a ring: of a process that lives or died, or this process's own.
//
// It works on a copy taken at construction and believes none of it. A file that is no ring is refused; inside a ring,
// reading ends at the first record that does not hold, and damaged() says so. Where the writer goes on while the copy
// is taken, what it overwrote meanwhile is left out. It never writes, and the writer never waits for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "brisklog/Brisklog.h"
#include "brisklog/RingLayout.h"

namespace Brisklog {

class Reader {
 public:
   // Throws RingError.
   explicit Reader( std::string const & path );
   // Of an open file; `name` is for error texts. The descriptor stays the caller's.
   Reader( int fd, std::string const & name );
   explicit Reader( RingFile const & ring );

   // The next message, oldest first; none at the end.
   [[nodiscard]] std::optional<Message> next();

   // Whether the ring held something that no writer leaves behind, as after a power failure.
   [[nodiscard]] bool damaged() const { return damaged_; }
   // Whether the ring is of this boot of the machine, so that its times compare with the present CLOCK_BOOTTIME.
   [[nodiscard]] bool thisBoot() const { return thisBoot_; }

 private:
   struct Source;  // what is copied from
   struct OwnedFormat {
      std::vector<ArgType> types;
      std::string text;
   };

   void loadFile( int fd, std::string const & name );
   void load( Source const & source );
   void readFormats( std::span<std::byte const> table );
   [[nodiscard]] std::optional<Message> messageOf( std::span<std::byte const> record );
   [[nodiscard]] std::nullopt_t foundDamage();

   std::vector<OwnedFormat> formats_;
   std::vector<std::byte> ring_;
   uint64_t position_ = 0;
   uint64_t end_ = 0;
   std::optional<uint64_t> sequence_;  // of the next message, once there was one
   bool damaged_ = false;
   bool thisBoot_ = false;
};

}  // namespace Brisklog

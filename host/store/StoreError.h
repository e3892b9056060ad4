// What is wrong with the store, so that an operator knows how to go on.
#pragma once

#include <stdexcept>
#include <string>

namespace Host {

// what() says which file, what is wrong with it and how to go on.
class StoreError : public std::runtime_error {
 public:
   enum class Kind {
      damaged,     // it is ours, and cannot be read as it should be
      foreign,     // no store, or another program's
      newer,       // written by a later maintd
      unwritable,  // permissions, a read-only file system, a device that fails
      full,        // no room on the file system, or a limit on the size of files
      busy,        // another process has it open
   };

   // `what` goes on after the path and a colon.
   StoreError( Kind kind, std::string const & path, std::string const & what );

   [[nodiscard]] Kind kind() const { return kind_; }

 private:
   Kind kind_;
};

}  // namespace Host

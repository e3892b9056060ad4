// The claim to the links of this network namespace: one process at a time has it, maintd or "maintd --release".
//
// It is a name of the namespace itself (an abstract address of unix(7)), so it does not matter which socket, store or
// configuration another agent has, or what it sees of the file system: agents of the same links meet here. The kernel
// gives the name free when the process that has it dies, however it dies. Anybody in the namespace can take it, also
// who may do nothing else: therefore whoever finds it taken is told by whom.
//
// Made before anything is opened or touched that a second agent must leave alone, and kept to the end. Never waits.
#pragma once

#include <stdexcept>

namespace Host {

// Another process has the claim; what() says which and whose.
class NamespaceTaken : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class NamespaceLock {
 public:
   // Throws NamespaceTaken, or std::system_error where the kernel makes no socket.
   NamespaceLock();
   ~NamespaceLock();
   NamespaceLock( NamespaceLock const & ) = delete;
   NamespaceLock & operator=( NamespaceLock const & ) = delete;

 private:
   int const socket_;  // closed in programs that this one starts
};

}  // namespace Host

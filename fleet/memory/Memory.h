// What the owner of a fleet, and the agent of a box, must not forget: texts by key, changed in transactions.
//
// What commit() has returned from is there after a crash of the program or a loss of power; what it has thrown from is
// not there at all.
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace Fleet {

// It cannot be kept, or not be read. The text says which file and why.
class MemoryFault : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// What is there is not what was kept, and trying again changes nothing about that: somebody has to look at it first.
class MemoryDamaged : public MemoryFault {
 public:
   using MemoryFault::MemoryFault;
};

class Memory {
 public:
   using Rows = std::map<std::string, std::string>;
   // Absent: the row goes.
   using Changes = std::map<std::string, std::optional<std::string>>;

   virtual ~Memory() = default;

   [[nodiscard]] virtual Rows rows() const = 0;
   // One transaction. Throws MemoryFault.
   virtual void commit( Changes const & changes ) = 0;
};

}  // namespace Fleet

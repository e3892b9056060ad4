// A memory that also keeps what has happened: a record each, for good.
//
// A record is written in the transaction of the change that it tells of, so there is none of what was not kept, and
// none is missing. It is never changed; the oldest go when they are too old or too many.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "memory/Memory.h"

namespace Fleet {

struct Record {
   uint64_t number = 0;  // larger than those before; given by the ledger
   double time = 0;      // s, Unix time
   // Whom it is about; empty where it is about none.
   std::string box = {};
   std::string unit = {};
   std::string plan = {};
   std::string text = {};  // all else

   bool operator==( Record const & ) const = default;
};

using Records = std::vector<Record>;

// Of which records; what is empty does not matter.
struct RecordQuery {
   std::string box = {};
   std::string unit = {};
   std::string plan = {};
   double since = 0;                                       // s, Unix time
   uint64_t before = std::numeric_limits<int64_t>::max();  // number
   std::size_t most = 1000;
};

class Ledger : public Memory {
 public:
   static constexpr double secondsKept = 400.0 * 86400;
   static constexpr uint64_t recordsKept = 1'000'000;
   // As many old ones go with each transaction at most: it stays short, and a clock that was wrong for a moment does
   // not cost all of the past.
   static constexpr std::size_t droppedAtOnce = 64;

   // Both in one transaction. Throws MemoryFault.
   virtual void commit( Changes const & changes, Records const & happened ) = 0;
   void commit( Changes const & changes ) final { commit( changes, {} ); }
   // The newest of those that were asked for, the newest first. Throws MemoryFault.
   [[nodiscard]] virtual Records happened( RecordQuery const & query ) const = 0;
};

}  // namespace Fleet

// Numbers for what is told in an order, as events are and changes of records: each is greater than all before it, also
// before a restart of the agent.
//
// One for each kind of what is told, owned by whoever tells it. Numbers are reserved in blocks, in a record that the
// store keeps, and each block when half of the one before is left: so it is on disk long before its numbers are given.
// After a restart they go on behind what was reserved last, so they jump then. Used in turns.
#pragma once

#include <cstdint>
#include <string_view>

#include "dovra/EntityManager.h"
#include "kel/Attributes.h"

namespace Service {

class SequenceBlock final : public Kel::Entity {
   KEL_ENTITY( SequenceBlock, "Service::SequenceBlock", Kel::Name, kind )
   KEL_ATTR( uint64_t, reserved )  // no number above it was given
   KEL_ENTITY_END
};

class SequenceDir final : public Kel::Entity {
   KEL_ENTITY( SequenceDir, "Service::SequenceDir", Kel::Name, dirName )
   KEL_CHILDREN( SequenceBlock, Kel::Name, block, onBlock )
   KEL_ENTITY_END
};

// Where they stand in the database: "maintenance/sequence".
inline constexpr char const * sequencePath = "maintenance/sequence";
// Made by whoever asks first.
[[nodiscard]] Kel::Ptr<SequenceDir> sequenceDir( Dovra::EntityManager & database );

class SequenceNumbers {
 public:
   // `kind`: of what is told, and the record's name. `block`: how many are reserved at a time; a restart skips as many.
   SequenceNumbers( Dovra::EntityManager & database, std::string_view kind, uint64_t block );

   [[nodiscard]] uint64_t next();
   // The latest that was given; before the first, one that none of this agent's is equal to.
   [[nodiscard]] uint64_t last() const { return last_; }

 private:
   Kel::Ptr<SequenceBlock> const record_;
   uint64_t const block_;
   uint64_t last_;
   uint64_t reserved_;
};

}  // namespace Service

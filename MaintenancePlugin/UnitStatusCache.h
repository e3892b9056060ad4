// The status records of the units that one interface counts for, as they were looked up last.
//
// A device for speed: with a look-up by name per unit a sample costs about a fifth more (bench/sample_bench). Whoever
// owns the cache says by a number, the epoch, how old it may be: one that was filled in an earlier epoch is stale as a
// whole, and there is no other invalidation. Nearly always there is just one unit, which takes no memory of its own.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "records/Unit.h"

namespace MaintenanceMode {

class UnitStatusCache {
 public:
   using Status = Kel::Ptr<Maintenance::Unit::Status>;

   // Filled in this epoch; epochs begin at 1.
   [[nodiscard]] bool isOf( uint32_t epoch ) const { return epoch_ == epoch; }
   // In their order; null for a unit that has no record.
   void fill( uint32_t epoch, std::vector<Status> units ) {
      epoch_ = epoch;
      size_ = static_cast<uint32_t>( units.size() );
      first_ = units.empty() ? nullptr : units.front();
      others_ = units.size() > 1 ? std::make_unique<std::vector<Status>>( std::move( units ) ) : nullptr;
   }

   [[nodiscard]] uint32_t size() const { return size_; }
   [[nodiscard]] Status const & operator[]( uint32_t i ) const { return i == 0 ? first_ : ( *others_ )[i]; }
   // Whether it is among the first `count`.
   [[nodiscard]] bool holds( Status const & unit, uint32_t count ) const {
      for( uint32_t i = 0; i < std::min( count, size_ ); ++i ) {
         if( ( *this )[i] == unit ) return true;
      }
      return false;
   }

 private:
   uint32_t epoch_ = 0;
   uint32_t size_ = 0;
   Status first_;
   std::unique_ptr<std::vector<Status>> others_;  // all of them, where there is more than one
};

}  // namespace MaintenanceMode

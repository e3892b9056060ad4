// The links as the kernel lists them, with what belongs to each: which row it has, and what its counters lack.
//
// Owned by the counter feed. The kernel lists the links in the same order from one time to the next for as long as none
// comes or goes. So what was found out about the one that came third is kept in the third place, and what is in the
// third place of the next list is it again, unless its index says otherwise: nothing is looked up, and a list is one
// walk through memory in the order in which it lies there, 40 bytes a link. From the first link that is not where it
// was, the rest of that list is found out anew.
//
// A list can name a link twice. It does not allocate once it was as long before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "linux/MonotonicCounter.h"

namespace Host {

class ListedLinks {
 public:
   static constexpr uint32_t noRow = UINT32_MAX;

   struct Link {
      int index;
      uint32_t row;           // noRow: it is none of ours
      Linux::Octets offset;   // to be added to what the device counts
      Linux::Octets counted;  // by the device, in this list
   };

   // A new list begins.
   void begin() { listed_ = 0; }
   // The next link of the list. `find( index )` makes the Link of one that is not where it was.
   template<typename Find>
   void add( int index, Linux::Octets const & counted, Find && find ) {
      bool const asBefore = listed_ < links_.size() && links_[listed_].index == index;
      if( !asBefore ) [[unlikely]] {
         links_.resize( listed_ );
         links_.push_back( find( index ) );
      }
      links_[listed_++].counted = counted;
   }
   // Those of the list so far, in its order.
   [[nodiscard]] std::span<Link const> links() const { return { links_.data(), listed_ }; }

   // What was found out no longer holds. Only between two lists.
   void forget() { links_.clear(); }

 private:
   std::vector<Link> links_;  // of the list before, and of this one as far as it is
   std::size_t listed_ = 0;
};

}  // namespace Host

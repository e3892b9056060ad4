// The numbers of monitors that change with every sample, in the store.
//
// There are thousands of monitors, and all of their numbers go to disk every ten seconds; so they are not in the rows
// of their records. They stand beside the rows as lists, each a series below the path of the monitors' directory:
//
//    maintenance/interface/status/ratemon / passing / 000000000042
//
// A list tells of those monitors that were sampled since the one before, and what it says of a monitor holds until a
// later list says something else. When they have become many, one list of all monitors takes the place of all. A record
// that is new or another one has its numbers in a list of the transaction with its row; so whoever reads rows first and
// then the lists in their order has each as it was. What is said of records that have gone since is of no meaning.
//
// A list is a byte with the version, then for each monitor: how long its name is (four bytes) and the name, which of
// the numbers are not 0 (two bytes), and those, in this machine's bytes.
//
// Owned by the keeper.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "dovra/EntityManager.h"
#include "records/MonIntfStatus.h"
#include "store/Store.h"

namespace Host {

class Passing {
 public:
   using Monitor = Maintenance::MonIntfStatus;

   // Whose rows are without passing attributes.
   [[nodiscard]] static Monitor const * monitor( Kel::Entity const & e );
   // Whether a series with this path is a list.
   [[nodiscard]] static bool isList( std::string_view path );
   // Throws Kel::AttributeError for bytes that are no list; some of the monitors may have their numbers then.
   static void restore( Dovra::EntityManager const & database, std::string_view list );

   // Writes what the store has to have so that the numbers of these are in it, too.
   void write( Dovra::EntityManager const & database, std::vector<Monitor const *> const & monitors,
               Store::Transaction & to );
   // The transaction that had what was written last is on disk.
   void written() { inStore_ = added_; }

 private:
   struct Lists {
      uint64_t next = 0;         // number of the next
      std::size_t monitors = 0;  // in all of them
      bool known = false;        // not after a start
   };

   Lists inStore_;
   Lists added_;
};

}  // namespace Host

// Per Ethernet interface its counters, read straight from shared memory.
//
// The directory and its entries are the counter reader's; a plug-in only looks things up. Reading costs no system call
// and no copy beyond the row.
#pragma once

#include "kel/Attributes.h"
#include "kel/InBlocks.h"
#include "quill/CounterTable.h"
#include "quill/EntityManager.h"
#include "records/IntfId.h"

namespace Interface {

// The counters of one interface at one moment. A direction may be without a value.
struct IntfStatistics {
   KEL_VALUE( IntfStatistics, "Interface::IntfStatistics" )
   KEL_FIELD( Brim::MaybeU63, inOctets )
   KEL_FIELD( Brim::MaybeU63, outOctets )
   KEL_VALUE_END( IntfStatistics )
};

namespace IntfCounterMasquerade {

// The name of the set that stands for what the hardware counts now.
[[nodiscard]] inline Kel::Name const & currentName() {
   static Kel::Name const name( "current" );
   return name;
}

// Of a row that is just being written, or was never read.
[[nodiscard]] IntfStatistics statisticsOfUnsettledRow( KelQuill::EntityManager const & tables,
                                                       KelQuill::CounterTable::Row const & row );
// What a row of the table says, as of this turn of the activity loop. Neither direction has a value when the writer
// died in the middle of the row.
[[nodiscard]] inline IntfStatistics statisticsOf( KelQuill::EntityManager const & tables,
                                                  KelQuill::CounterTable::Row const & row ) {
   tables.freshen();
   KelQuill::CounterTable::Counters found;
   if( KelQuill::CounterTable::readOnce( row, found ) && found.readTime != 0 ) [[likely]]
      return { found.inOctets, found.outOctets };
   return statisticsOfUnsettledRow( tables, row );
}

// One set of counters. Good for as long as it is in the directory: afterwards the row may be another interface's.
class IntfCounter final : public Kel::Entity, public Kel::InBlocks<IntfCounter> {
   KEL_MACHINE( IntfCounter, "Interface::IntfCounter", Kel::Name, counterName )
   KEL_ENTITY_END

   IntfCounter( Kel::Name const & name, Kel::Ptr<KelQuill::EntityManager> const & tables, uint32_t row )
      : counterName_( name ), tables_( tables ), row_( tables->table().row( row ) ) {}

   [[nodiscard]] IntfStatistics statistics() const { return statisticsOf( *tables_, row_ ); }
   // What the row says, and since when, as it stands: nothing is read from the source for it. None when the writer died
   // in the middle of the row.
   [[nodiscard]] std::optional<KelQuill::CounterTable::LastRead> lastRead() const { return lastRead( row_ ); }
   [[nodiscard]] static std::optional<KelQuill::CounterTable::LastRead> lastRead(
      KelQuill::CounterTable::Row const & row ) {
      KelQuill::CounterTable::LastRead found;
      if( KelQuill::CounterTable::readOnce( row, found ) ) [[likely]]
         return found;
      return KelQuill::CounterTable::read( row );
   }
   // Where it reads: the way of those who ask often, and look it up again when the directory's generation moves.
   [[nodiscard]] KelQuill::CounterTable::Row const & row() const { return row_; }
   [[nodiscard]] bool reads( KelQuill::CounterTable::Row const & row ) const { return &row == &row_; }

 private:
   Kel::Ptr<KelQuill::EntityManager> const tables_;
   KelQuill::CounterTable::Row const & row_;
};

// The sets of counters of one interface.
class IntfCounterDir final : public Kel::Entity, public Kel::InBlocks<IntfCounterDir> {
   KEL_ENTITY( IntfCounterDir, "Interface::IntfCounterDir", Lumo::IntfId, intfId )
   KEL_CHILDREN( IntfCounter, Kel::Name, intfCounter, onIntfCounter )
   KEL_ENTITY_END
};

class AllEthIntfCounterPtrDir final : public Kel::Entity {
   KEL_ENTITY( AllEthIntfCounterPtrDir, "Interface::AllEthIntfCounterPtrDir", Kel::Name, dirName )
   KEL_CHILDREN( IntfCounterDir, Lumo::IntfId, intfCounterDir, onIntfCounterDir )
   // Moves, quietly, before an interface's counters come or go: whoever keeps what it looked up compares it.
   KEL_ATTR( uint32_t, generation )
   KEL_ENTITY_END

   // One of counters that are in these tables. A directory without tables never has any.
   AllEthIntfCounterPtrDir( Kel::Name const & name, Kel::Ptr<KelQuill::EntityManager> const & tables )
      : dirName_( name ), tables_( tables ) {}

   [[nodiscard]] Kel::Ptr<KelQuill::EntityManager> const & tables() const { return tables_; }

   // The "current" counters of an interface, null when it has none.
   [[nodiscard]] Kel::Ptr<IntfCounter const> currentStatistics( Lumo::IntfId intf ) const {
      auto const sets = intfCounterDir( intf );
      return sets ? sets->intfCounter( currentName() ) : nullptr;
   }

 private:
   Kel::Ptr<KelQuill::EntityManager> const tables_;
};

// The "current" counters of one interface, for somebody who asks with every sample: looked up once for as long as no
// interface's come or go, and from then on read without a look at their entry. Always asked about the same directory
// and interface.
class KeptCounter {
 public:
   // Whether the interface has counters at present.
   [[nodiscard]] bool isIn( AllEthIntfCounterPtrDir const & dir, Lumo::IntfId intf ) {
      if( !row_ || generation_ != dir.generation() ) [[unlikely]]
         lookUp( dir, intf );
      return row_ != nullptr;
   }
   // As IntfCounter::statistics(); neither direction has a value where there are no counters.
   [[nodiscard]] IntfStatistics statistics( AllEthIntfCounterPtrDir const & dir, Lumo::IntfId intf ) {
      if( !isIn( dir, intf ) ) [[unlikely]]
         return { Brim::MaybeU63::none(), Brim::MaybeU63::none() };
      return statisticsOf( *dir.tables(), *row_ );
   }

 private:
   [[gnu::cold]] void lookUp( AllEthIntfCounterPtrDir const & dir, Lumo::IntfId intf );

   KelQuill::CounterTable::Row const * row_ = nullptr;
   uint32_t generation_ = 0;  // of the directory when the row was looked up
};

}  // namespace IntfCounterMasquerade
}  // namespace Interface

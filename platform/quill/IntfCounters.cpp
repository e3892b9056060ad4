#include "quill/IntfCounters.h"

KEL_TYPE( Interface::IntfCounterMasquerade::IntfCounter )
KEL_TYPE( Interface::IntfCounterMasquerade::IntfCounterDir )
KEL_TYPE( Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir )

namespace Interface::IntfCounterMasquerade {

IntfStatistics statisticsOfUnsettledRow( KelQuill::EntityManager const & tables,
                                         KelQuill::CounterTable::Row const & row ) {
   // Here the read may wait, up to a second for a writer that has died: never in the path of an ordinary sample.
   auto counters = KelQuill::CounterTable::read( row );
   if( counters && counters->readTime == 0 ) {
      // The row may have come after the turn's refresh. Its zeros as a reference would make the next rate enormous.
      tables.freshenNewRows();
      counters = KelQuill::CounterTable::read( row );
   }
   // Of a row whose first read has failed nothing is known. Its zeros would make the row of a link that was made again
   // look like counters that went backwards.
   bool const known = counters && counters->readTime != 0;
   if( !known ) return { Brim::MaybeU63::none(), Brim::MaybeU63::none() };
   return { counters->inOctets, counters->outOctets };
}

void KeptCounter::lookUp( AllEthIntfCounterPtrDir const & dir, Lumo::IntfId intf ) {
   auto const counter = dir.currentStatistics( intf );
   row_ = counter ? &counter->row() : nullptr;
   generation_ = dir.generation();
}

}  // namespace Interface::IntfCounterMasquerade

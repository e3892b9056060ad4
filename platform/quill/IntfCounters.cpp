#include "quill/IntfCounters.h"

KEL_TYPE( Interface::IntfCounterMasquerade::IntfCounter )
KEL_TYPE( Interface::IntfCounterMasquerade::IntfCounterDir )
KEL_TYPE( Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir )

namespace Interface::IntfCounterMasquerade {

IntfStatistics IntfCounter::statisticsOfUnsettledRow() const {
   // Here the read may wait, up to a second for a writer that has died: never in the path of an ordinary sample.
   auto counters = KelQuill::CounterTable::read( row_ );
   if( counters && counters->readTime == 0 ) {
      // The row may have come after the turn's refresh. Its zeros as a reference would make the next rate enormous.
      tables_->freshenNewRows();
      counters = KelQuill::CounterTable::read( row_ );
   }
   // Of a row whose first read has failed nothing is known. Its zeros would make the row of a link that was made again
   // look like counters that went backwards.
   bool const known = counters && counters->readTime != 0;
   if( !known ) return { Brim::MaybeU63::none(), Brim::MaybeU63::none() };
   return { counters->inOctets, counters->outOctets };
}

}  // namespace Interface::IntfCounterMasquerade

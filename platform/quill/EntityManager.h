// The manager of the shared-memory counter tables, as plug-ins are handed it.
//
// Owned by the host. On the first read in a turn of the activity loop it has the writer bring the table up to date,
// once: so all interfaces that are sampled in a turn are one snapshot, and nothing is read from the source while
// nothing is sampled.
#pragma once

#include <functional>

#include "kel/ActivityLoop.h"
#include "quill/CounterTable.h"

namespace KelQuill {

// Which rows a refresh reads. A second one in a turn reads only rows that never were: what is sampled already has gone
// by the rows as they stood, and a row that was unread then must not pass for read in this turn.
enum class Rows { all, neverRead };

class EntityManager final : public Kel::PtrInterface {
 public:
   using Refresher = std::function<void( Rows )>;

   // `table` outlives this. The refresher writes the table's rows; empty for a table that others keep up to date.
   explicit EntityManager( CounterTable const & table ) : table_( table ) {}
   void refresherIs( Refresher refresher ) { refresher_ = std::move( refresher ); }

   [[nodiscard]] CounterTable const & table() const { return table_; }

   // Brings the rows that the turn began with up to date for this turn. A load and a compare when they already are.
   void freshen() const {
      if( Kel::activityLoop().turnNumber() != freshTurn_ ) refresh( Rows::all );
   }
   // After it in the same turn: so are the rows that came since, for a reader that meets a row which was never read.
   void freshenNewRows() const {
      if( table_.generation() != freshGeneration_ ) refresh( Rows::neverRead );
   }

 private:
   void refresh( Rows rows ) const {
      // Noted before the work: a refresher that reads a row must not end up here again, and a row that comes while it
      // works must count as new.
      freshTurn_ = Kel::activityLoop().turnNumber();
      freshGeneration_ = table_.generation();
      if( refresher_ ) refresher_( rows );
   }

   CounterTable const & table_;
   Refresher refresher_;
   mutable uint64_t freshTurn_ = UINT64_MAX;  // no turn has that number
   mutable uint32_t freshGeneration_ = 0;
};

}  // namespace KelQuill

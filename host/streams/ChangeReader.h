// One who reads the history of changes: a path and a place.
//
// What concerns a path is what changes at it, below it, and at an entry that it is part of: with the entry goes, or
// comes, what is at the path. Owned by whoever sends the lines; the history outlives it.
#pragma once

#include "streams/ChangeHistory.h"

namespace Host {

class ChangeReader {
 public:
   // Reads what comes from now on. An empty path stands for everything. Throws Kel::AttributeError for one that leads
   // nowhere; an entry that is absent may still come.
   ChangeReader( ChangeHistory & history, Dovra::StateComponents const & path );
   ChangeReader( ChangeReader const & ) = delete;
   ChangeReader & operator=( ChangeReader const & ) = delete;
   ~ChangeReader();

   // The number of the oldest change of the path that is kept; of the next where none is.
   [[nodiscard]] uint64_t oldest() const;
   // Goes on behind that change. False, and nothing is changed, when what came after it is not all here.
   [[nodiscard]] bool placeIs( uint64_t number );
   // Up to which everything was read.
   [[nodiscard]] uint64_t place() const;
   // Whether it was too slow: lines behind its place are gone.
   [[nodiscard]] bool lost() const;

   // The path as of now, as a line. Null when too much of the kind waits to be read by others.
   [[nodiscard]] std::shared_ptr<ChangeHistory::Snapshot const> snapshot();
   // The lines behind the place, not much more than `bytes` of them, and moves it there; empty when there are none, and
   // then the next is told. Not when lost.
   [[nodiscard]] std::string next( std::size_t bytes );
   // Called once for each next() that gave nothing, from inside the write that changes something.
   void onMore( std::function<void()> more ) { more_ = std::move( more ); }
   // As if something had come.
   void wake();

 private:
   friend class ChangeHistory;
   using Written = ChangeHistory::Written;

   [[nodiscard]] bool concerns( std::string_view path ) const;
   void take( Written const & block, std::size_t bytes, std::string & lines );

   ChangeHistory & history_;
   Dovra::StateComponents const path_;  // as changes have it; empty: everything
   std::string const text_;             // the same as JSON, as lines have it
   std::vector<std::string> mounted_;
   uint64_t place_;
   bool waiting_ = false;  // then its place is the end
   std::function<void()> more_;
};

}  // namespace Host

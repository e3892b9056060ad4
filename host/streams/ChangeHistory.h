// What has changed in the state database of late, as lines that all watchers share.
//
//    {"seq": 7, "t": 12.5, "change": ["maintenance/unit/status", "status", "fabric"], "value": {...}}
//
// One in an agent, owned by the API. A change is kept when it is made, once, however many watch: the text of its value,
// and its place, which its neighbours share. Lines are put together from that a block at a time as they are read, and
// kept for the others who read at about the same place. A watcher knows its path and its place and nothing else.
//
// Followed are the mounted directories that somebody watches, and for a while after the last has gone, so that he can
// go on where he was: where nobody watches, nothing is followed and a write costs nothing. The oldest changes go as new
// ones come: the more are kept as long as somebody still has to read them, and those of the present turn, which nobody
// could have read yet. A reader whose place goes with them has lost it.
//
// Used in turns, but for the destruction of readers.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dovra/Watches.h"
#include "events/SequenceNumbers.h"
#include "kel/ActivityLoop.h"

namespace Host {

class ChangeReader;

class ChangeHistory final : private Dovra::Watches::Listener {
 public:
   struct Limits {
      std::size_t bytes = 512UL * 1024;                // of changes that everybody has read
      std::size_t unreadBytes = 8UL * 1024 * 1024;     // of those that somebody has still to read
      std::size_t turnBytes = 32UL * 1024 * 1024;      // as long as they are of the present turn
      std::size_t blockBytes = 32 * 1024;              // in which they come and go
      std::size_t writtenBlocks = 4;                   // that are kept as lines, too
      std::size_t snapshotBytes = 32UL * 1024 * 1024;  // of all that are still being read
      double keptSeconds = 60;                         // after the last reader of a directory has gone
   };
   // What is there, as the first line of a watch; shared by those who ask at the same moment.
   struct Snapshot {
      Snapshot( uint64_t number, std::string line, std::shared_ptr<std::size_t> all );
      Snapshot( Snapshot const & ) = delete;
      Snapshot & operator=( Snapshot const & ) = delete;
      ~Snapshot();

      uint64_t const number;
      std::string const line;

    private:
      std::shared_ptr<std::size_t> const all_;  // bytes
   };

   explicit ChangeHistory( Dovra::EntityManager & database ) : ChangeHistory( database, Limits() ) {}
   ChangeHistory( Dovra::EntityManager & database, Limits const & limits );
   ChangeHistory( ChangeHistory const & ) = delete;
   ChangeHistory & operator=( ChangeHistory const & ) = delete;
   // After the last reader.
   ~ChangeHistory();

   // The number of the latest change.
   [[nodiscard]] uint64_t last() const { return numbers_.last(); }
   // The memory that the changes take.
   [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
   friend class ChangeReader;
   class Expiry;

   struct Change {
      Kel::Ptr<Dovra::WatchedPlace const> entity;  // null: a number without a line
      std::string const * name;                    // of the attribute, as Watches tells it
      double time;                                 // s
      uint32_t keyBegin;                           // in the text of the block; up to the value there
      uint32_t valueBegin;
   };
   struct Block {
      uint64_t first;  // number of the first change; one after the other from there
      std::string text;
      std::vector<Change> changes;
      [[nodiscard]] uint64_t end() const { return first + changes.size(); }
      [[nodiscard]] std::size_t bytes() const { return text.capacity() + changes.capacity() * sizeof( Change ); }
   };
   // Where the path of a line stands in it.
   struct Line {
      uint32_t begin;
      uint32_t pathBegin;
      uint32_t pathSize;
   };
   // The lines of a block.
   struct Written {
      uint64_t first;
      std::string text;
      std::vector<Line> lines;
      [[nodiscard]] std::string_view path( Line const & line ) const {
         return std::string_view( text ).substr( line.pathBegin, line.pathSize );
      }
   };
   // A mounted directory.
   struct Followed {
      std::unique_ptr<Dovra::Watches> watches;
      uint64_t since = 0;  // what changed after this number, of which there is no line, is in the history
      std::size_t readers = 0;
      double idleSince = 0;  // s; where there are no readers
   };

   Followed & follow( std::string const & mounted );
   void leave( std::string const & mounted );
   void forgetIdle();
   void onChange( Dovra::Watches::Change const & change, Kel::Value const & value ) override;
   // Of those that wait, by its last change.
   void wakeConcerned( Block const & block );
   // A number without a line.
   uint64_t addNothing();
   // The last one, with room for a change of that number.
   [[nodiscard]] Block & blockFor( uint64_t number );
   void forgetOldest();
   [[nodiscard]] bool isUnread( Block const & block ) const;
   // As JSON.
   static void appendPath( std::string & text, Block const & block, Change const & change );
   static void write( Block const & block, Written & written );
   // Good until the next is asked for.
   [[nodiscard]] Written const & written( Block const & block );
   [[nodiscard]] std::shared_ptr<Snapshot const> snapshot( Dovra::StateComponents const & path );
   [[nodiscard]] Kel::Value valueAt( Dovra::StateComponents const & path ) const;

   Dovra::EntityManager & database_;
   Limits const limits_;
   Service::SequenceNumbers numbers_;
   std::map<std::string, Followed> followed_;  // by mounted path
   std::deque<Block> blocks_;
   std::size_t bytes_ = 0;        // of the blocks
   uint64_t forgotten_;           // all lines up to this number
   std::deque<Written> written_;  // those asked for last, the latest last
   std::vector<ChangeReader *> readers_;
   std::vector<ChangeReader *> waiting_;
   std::shared_ptr<std::size_t> const snapshotBytes_ = std::make_shared<std::size_t>( 0 );
   std::map<Dovra::StateComponents, std::weak_ptr<Snapshot const>> snapshots_;
   std::unique_ptr<Expiry> const expiry_;
};

}  // namespace Host

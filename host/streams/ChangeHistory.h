// What has changed in the state database of late, as lines that all watchers share.
//
//    {"seq": 7, "t": 12.5, "change": ["maintenance/unit/status", "status", "fabric"], "value": {...}}
//
// One in an agent, owned by the API. A change becomes a line when it is made, once, however many watch; a watcher knows
// its path and its place and nothing else. Followed are the mounted directories that somebody watches, and for a while
// after the last has gone, so that he can go on where he was: where nobody watches, nothing is followed and a write
// costs nothing. The oldest lines go as new ones come, but for those of the present turn, which nobody could have read
// yet: where a thousand interfaces are sampled at once, that is more than all that is kept otherwise. A reader whose
// place goes with them has lost it.
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

class ChangeHistory {
 public:
   struct Limits {
      std::size_t bytes = 8UL * 1024 * 1024;           // of the lines, with what it takes to find one
      std::size_t turnBytes = 32UL * 1024 * 1024;      // as long as they are of the present turn
      std::size_t blockBytes = 64 * 1024;              // in which they come and go
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
   // The memory that the lines take.
   [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
   friend class ChangeReader;
   class Expiry;

   // Where the path of a line stands in it.
   struct Line {
      uint32_t begin;
      uint32_t pathBegin;
      uint32_t pathSize;
   };
   struct Block {
      uint64_t first;   // number of the first line; one after the other from there
      double time = 0;  // s, of the last line
      std::string text;
      std::vector<Line> lines;
      [[nodiscard]] std::string_view path( Line const & line ) const {
         return std::string_view( text ).substr( line.pathBegin, line.pathSize );
      }
      [[nodiscard]] std::size_t bytes() const { return text.capacity() + lines.capacity() * sizeof( Line ); }
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
   void add( Dovra::StateComponents const & path, Kel::Value const & value );
   // A number without a line.
   uint64_t addNothing();
   // The last one, with room for a line of that number.
   [[nodiscard]] Block & blockFor( uint64_t number );
   [[nodiscard]] std::shared_ptr<Snapshot const> snapshot( Dovra::StateComponents const & path );
   [[nodiscard]] Kel::Value valueAt( Dovra::StateComponents const & path ) const;

   Dovra::EntityManager & database_;
   Limits const limits_;
   Service::SequenceNumbers numbers_;
   std::map<std::string, Followed> followed_;  // by mounted path
   std::deque<Block> blocks_;
   std::size_t bytes_ = 0;  // of the blocks
   uint64_t forgotten_;     // all lines up to this number
   std::vector<ChangeReader *> waiting_;
   std::shared_ptr<std::size_t> const snapshotBytes_ = std::make_shared<std::size_t>( 0 );
   std::map<Dovra::StateComponents, std::weak_ptr<Snapshot const>> snapshots_;
   std::unique_ptr<Expiry> const expiry_;
};

}  // namespace Host

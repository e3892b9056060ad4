// The turns of maintd that a recording tells of, the latest of them: what all recordings that are being made read.
//
// Written by the recorder, read by each recording at its own pace. It is bounded: turns that are older go, and a
// recording that had not read them yet is over, because one with a hole would tell a story that was not.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <set>
#include <string>

namespace Host {

class Journal {
 public:
   struct Turn {
      double reach = 0;   // s: until shortly before it things happened as they were due
      double at = 0;      // s, its time; what was due since `reach` came late
      std::string lines;  // what happened, lines of a scenario, with commas between them; empty: nothing
   };

   // `bytes`: how much is kept, at least the latest turn.
   explicit Journal( std::size_t bytes ) : bytesMax_( bytes ) {}

   void add( Turn turn );
   [[nodiscard]] uint64_t begin() const { return begin_; }  // number of the oldest that is there
   [[nodiscard]] uint64_t end() const { return begin_ + turns_.size(); }
   [[nodiscard]] Turn const & turn( uint64_t number ) const { return turns_[number - begin_]; }

   // Called when something was added.
   using More = std::function<void()>;
   void listenerIs( More const * more ) { listeners_.insert( more ); }
   void listenerDel( More const * more ) { listeners_.erase( more ); }

 private:
   std::size_t const bytesMax_;
   std::deque<Turn> turns_;
   uint64_t begin_ = 0;
   std::size_t bytes_ = 0;
   std::set<More const *> listeners_;
};

}  // namespace Host

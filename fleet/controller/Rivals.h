// Whether somebody else owns the same fleet at the same broker. Two owners would each keep the budgets by its own
// books, and neither would keep them.
//
// Each owner says once a second that it is there, and hears what the others say. After it has connected it listens
// before it orders anything, for longer than another would be silent. So of two each hears the other before its first
// order, or before its next; then neither orders anything until one of them has been silent for a while.
//
// Counted in turns of half a second and not by a clock, which may be set.
#pragma once

#include <string>

namespace Fleet {

class Rivals {
 public:
   // `where`: this owner's own machine and process, for people.
   explicit Rivals( std::string const & where );

   // What this owner says of itself, and whether it is time to.
   [[nodiscard]] std::string const & saying() const { return saying_; }
   [[nodiscard]] bool due() const { return turns_ % sayEveryTurns == 0; }

   void turn() { ++turns_; }
   // What was said while nobody listened is not known: begins anew.
   void listenAnew() { listenedFrom_ = turns_; }
   // What an owner says, be it this one.
   void heard( std::string const & text );

   [[nodiscard]] bool listened() const { return turns_ - listenedFrom_ >= listenTurns; }
   // Who was heard and is not gone: its machine and process; empty when there is nobody.
   [[nodiscard]] std::string const & other() const;

   static constexpr unsigned sayEveryTurns = 2;
   static constexpr unsigned listenTurns = 8;
   static constexpr unsigned goneTurns = 20;

 private:
   std::string const mark_;  // no two lives of any owner have the same
   std::string const saying_;
   unsigned long turns_ = 0;
   unsigned long listenedFrom_ = 0;
   std::string other_;
   unsigned long otherAt_ = 0;
};

}  // namespace Fleet

// Whose turn it is to have its series written: the rates of windows that are under way, which grow with every sample
// and tell nobody, one interface after the other, so that each has its turn once in a period and no turn of the loop
// writes them all.
//
// Owned by the keeper.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "store/Follower.h"

namespace Host {

class SeriesTurns {
 public:
   static constexpr double period = 300;  // s

   explicit SeriesTurns( double now ) : asked_( now ) {}

   // A window, or an interface of one that was added before. What is not in the store yet is due at once.
   void add( Follower & follower, bool inStore );
   void remove( Follower & follower );

   // All of the window's: a stage of it may have ended. For the last time if the window has.
   void windowDue( Follower const & window );
   void allDue();
   void someDue( double now );

   [[nodiscard]] std::vector<Follower *> const & due() const { return due_; }
   // What was due is on disk.
   void written();

 private:
   void isDue( Follower & intf );
   void allOfIsDue( Follower const & window );
   void turnsAre( std::size_t turns );

   std::map<std::string, Follower const *> growing_;  // windows by their names; those below them have turns
   std::vector<Follower *> due_;                      // each knows its place
   std::set<Follower const *> ended_;                 // windows
   std::string window_;                               // of whose interfaces one had its turn last
   std::string intf_;                                 // that
   double asked_;                                     // s
   double owed_ = 0;                                  // turns, less than one
};

}  // namespace Host

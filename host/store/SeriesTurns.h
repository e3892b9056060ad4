// Whose turn it is to have its series written: the rates of windows that are under way, which grow with every sample
// and tell nobody, one interface after the other, so that each has its turn once in a period and no turn of the loop
// writes them all.
//
// Owned by the keeper.
#pragma once

#include <map>
#include <set>
#include <string_view>
#include <vector>

#include "store/Follower.h"

namespace Host {

class SeriesTurns {
 public:
   static constexpr double period = 300;  // s

   explicit SeriesTurns( double now ) : asked_( now ) {}

   // A window, or an interface of one that was added before. What is not in the store yet is due at once.
   void add( Follower const & follower, bool inStore );
   void remove( Follower const & follower );

   // All of the window's: a stage of it may have ended. For the last time if the window has.
   void windowDue( Follower const & window );
   void allDue();
   void someDue( double now );

   [[nodiscard]] std::set<Follower const *> const & due() const { return due_; }
   // What was due is on disk.
   void written();

 private:
   using ByPath = std::map<std::string_view, Follower const *>;

   [[nodiscard]] Follower const * windowOf( Follower const & intf ) const;
   [[nodiscard]] std::vector<Follower const *> growingIn( Follower const & window ) const;

   ByPath windows_;
   ByPath growing_;
   std::set<Follower const *> due_;
   std::set<Follower const *> ended_;
   std::string position_;  // the path of the one that had its turn last
   double asked_;          // s
   double owed_ = 0;       // turns, less than one
};

}  // namespace Host

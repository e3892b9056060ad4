// Follows records by path and reports every change at or below the paths that are watched, in the order in which they
// happen.
//
// A mounted directory of which something is watched is followed whole, by a watcher on each of its entities that comes
// and goes with it. A change is reported once, however many of the watched paths it is below. It is reported before the
// plug-in's handlers hear of it, so what they change in answer comes after it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dovra/StatePath.h"

namespace Dovra {

class Watches {
 public:
   // `path` has the mounted path, without the prefix of the first cell, as its first component. Null stands for what
   // was removed.
   using Report = std::function<void( StateComponents const & path, Kel::Value const & value )>;

   Watches( EntityManager const & database, Report report );
   ~Watches();

   // A path as changes at it are reported: what is mounted, names and keys, one component each. Throws
   // Kel::AttributeError for one that leads nowhere.
   [[nodiscard]] static StateComponents reported( EntityManager const & database, StateComponents const & path );

   // What is there already is not reported. Throws Kel::AttributeError for a path that leads nowhere; entries that are
   // absent may still come.
   void watch( StateComponents const & path );

   // While muted, changes are followed and not reported.
   void muted( bool muted ) { muted_ = muted; }

 private:
   class Follower;

   void report( StateComponents const & path, Kel::Value const & value ) const;

   EntityManager const & database_;
   Report const report_;
   std::vector<StateComponents> watched_;
   std::map<std::string, std::unique_ptr<Follower>> followers_;  // by mounted path
   bool muted_ = false;
};

}  // namespace Dovra

// Follows records by path and reports every change at or below the paths that are watched, in the order in which they
// happen.
//
// A mounted directory of which something is watched is followed whole, by a watcher on each of its entities that comes
// and goes with it. A change is reported once, however many of the watched paths it is below. It is reported before the
// plug-in's handlers hear of it, so what they change in answer comes after it.
//
// Whoever keeps many changes hears of them as places, which share what their paths have in common.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dovra/StatePath.h"

namespace Dovra {

// Where a followed entity stands: below which other, under which attribute and key. It outlives the entity for those
// who still speak of it.
struct WatchedPlace final : Kel::PtrInterface {
   WatchedPlace( Kel::Ptr<WatchedPlace const> from, std::string const * attribute, std::string text )
      : above( std::move( from ) ), name( attribute ), key( std::move( text ) ) {}

   Kel::Ptr<WatchedPlace const> const above;  // null for what is mounted
   std::string const * const name;            // of the attribute above; null where that is a directory, which has none
   std::string const key;                     // of what is mounted: its path, without the prefix of the first cell
};

class Watches {
 public:
   // Of an attribute, or of its entry.
   struct Change {
      Kel::Ptr<WatchedPlace const> const & entity;
      std::string const * name;  // of the attribute; null where the entity is a directory
      std::string const * key;   // of the entry; null: the attribute is meant
   };
   // Hears of all that changes in the mounted directories, at any path.
   class Listener {
    public:
      virtual void onChange( Change const & change, Kel::Value const & value ) = 0;

    protected:
      ~Listener() = default;
   };
   // `path` has the mounted path, without the prefix of the first cell, as its first component. Null stands for what
   // was removed.
   using Report = std::function<void( StateComponents const & path, Kel::Value const & value )>;

   Watches( EntityManager const & database, Report report );
   // Who outlives this.
   Watches( EntityManager const & database, Listener & listener );
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

   void report( Change const & change, Kel::Value const & value ) const;

   EntityManager const & database_;
   Report const report_;
   Listener * const listener_ = nullptr;  // null where reports are asked for
   std::vector<StateComponents> watched_;
   std::map<std::string, std::unique_ptr<Follower>> followers_;  // by mounted path
   bool muted_ = false;
};

}  // namespace Dovra

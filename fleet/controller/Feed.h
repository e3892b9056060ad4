// GET /v1/stream: the fleet as it changes, as server-sent events.
//
//    event: fleet    as GET /v1/fleet
//    event: boxes    { "now", "first": true, "boxes": [...] }: those that are another than before, as in GET /v1/boxes
//
// Of a client's first events of boxes, which have all of them, the very first says so: what it knew before is over. So
// it is again when the inventory has changed. What is told at most once a second is made once for all who listen, and
// only what has changed: that a box was heard again, and nothing else, is no change. With nobody listening nothing is
// made. A stream keeps its place and no queue, so one that is read slowly gets fewer and newer events. A comment shows
// every 15 s that somebody is there.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "controller/Views.h"
#include "http/HttpStream.h"

namespace Fleet {

class Feed {
 public:
   struct Parts {
      Dispatcher const & dispatcher;
      std::function<double()> now;  // s, Unix time
      std::function<Surroundings()> surroundings;
   };

   // Outlives its streams.
   explicit Feed( Parts parts ) : parts_( std::move( parts ) ) {}

   [[nodiscard]] std::shared_ptr<Host::HttpStream> stream();
   // Once a turn, twice a second.
   void handleTurn();
   void handleInventory();

   static constexpr uint64_t commentSeconds = 15;

 private:
   // The owner's time stands still where his clock has gone back. That is to be told, too, and who listens is not to
   // take the connection for dead: after so many turns there is something to look at even so.
   static constexpr unsigned standingTurns = 4;

   class Stream;

   // What was told of a box last.
   struct Told {
      uint64_t life = 0;
      uint64_t sequence = 0;
      bool silent = false;
      std::vector<Standing> units = {};
      std::string text = {};  // JSON, but for when it was heard
      uint64_t version = 0;

      [[nodiscard]] bool is( Survey::BoxLook const & look ) const;
   };

   void refresh();
   void refreshBox( Survey::BoxLook const & look );
   [[nodiscard]] std::string boxText( std::string const & name, Told const & told ) const;

   Parts const parts_;
   double refreshedAt_ = 0;  // s, Unix time
   unsigned turns_ = 0;      // since then
   uint64_t refreshes_ = 0;  // so far
   uint64_t version_ = 0;    // of the latest change of a box
   uint64_t inventory_ = 0;  // how often it has changed
   std::string fleet_;       // JSON, but for the time
   uint64_t fleetVersion_ = 0;
   std::map<std::string, Told> told_;                   // by box
   std::map<uint64_t, std::string const *> byVersion_;  // boxes, the one that changed last at the end
   std::set<Stream *> streams_;
};

}  // namespace Fleet

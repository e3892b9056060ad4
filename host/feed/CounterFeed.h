// The kernel's octet counters in the shared counter table, one bulk read at a time.
//
// Owned by the agent. The counter manager calls refresh() on the first read in a turn, and once more where a row has
// come since. So all interfaces that are sampled in a turn come from one bulk read, and nothing is read while nothing
// is sampled. A published counter never goes backwards: an interface whose kernel counters start again goes on from
// where it stood, and its row is marked.
//
// A row's time moves only when its link was in an answer that came to its end. A read that fails moves none, also those
// of links that came before it failed, so that a turn is one snapshot or none. Links that came in an answer which the
// kernel calls interrupted were read all the same; one that it passed by keeps its time.
#pragma once

#include <unordered_map>
#include <utility>

#include "feed/LinkFeed.h"
#include "feed/ListedLinks.h"
#include "linux/MonotonicCounter.h"
#include "linux/StatsReader.h"
#include "quill/CounterWriter.h"

namespace Host {

class CounterFeed {
 public:
   // Both outlive this. Throws Linux::NetlinkError.
   CounterFeed( LinkFeed const & links, KelQuill::CounterWriter & counters, Tell tell )
      : links_( links ), counters_( counters ), tell_( std::move( tell ) ) {}

   // Reads all links' statistics, and writes these rows. A read that fails leaves the counters and their time as they
   // were; the next one makes up for it. The first of several that fail is told, and that they are read again.
   void refresh( KelQuill::Rows rows );

   // How many bulk reads of the kernel there have been.
   [[nodiscard]] uint64_t reads() const { return stats_.reads(); }

 private:
   [[nodiscard]] std::string readAll();
   [[nodiscard]] ListedLinks::Link found( int index ) const;
   [[nodiscard]] bool publish( ListedLinks::Link const & listed, KelQuill::Rows rows );

   LinkFeed const & links_;
   KelQuill::CounterWriter & counters_;
   Tell const tell_;
   Linux::StatsReader stats_;
   bool failing_ = false;
   ListedLinks listed_;  // and read, by the bulk read under way
   // Those of links and rows, by which the listed links were found.
   std::pair<uint32_t, uint32_t> generations_;
   // Of interfaces whose counters have started again, also of those that went: they may come back under their name.
   std::unordered_map<Lumo::IntfId, Linux::Octets> offsets_;
};

}  // namespace Host

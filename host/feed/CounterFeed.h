// The kernel's octet counters in the shared counter table, one bulk read at a time.
//
// Owned by the agent. The counter manager calls refresh() on the first read in a turn, and once more where a row has
// come since. So all interfaces that are sampled in a turn come from one bulk read, and nothing is read while nothing
// is sampled. A published counter never goes backwards: an interface whose kernel counters start again goes on from
// where it stood.
#pragma once

#include <unordered_map>

#include "feed/LinkFeed.h"
#include "linux/MonotonicCounter.h"
#include "linux/StatsReader.h"
#include "quill/CounterWriter.h"

namespace Host {

class CounterFeed {
 public:
   // Both outlive this.
   CounterFeed( LinkFeed const & links, KelQuill::CounterWriter & counters ) : links_( links ), counters_( counters ) {}

   // Reads all links' statistics. A read that fails leaves the counters as they were; the next one makes up for it.
   void refresh();

   // How many bulk reads of the kernel there have been.
   [[nodiscard]] uint64_t reads() const { return stats_.reads(); }

 private:
   LinkFeed const & links_;
   KelQuill::CounterWriter & counters_;
   Linux::StatsReader stats_;
   // Kept when a link goes: it may come back under its name.
   std::unordered_map<Lumo::IntfId, Linux::MonotonicCounter> octets_;
};

}  // namespace Host

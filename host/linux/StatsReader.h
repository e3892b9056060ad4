// The counters of all links of this box, in one bulk read of the kernel's 64-bit link statistics (RTM_GETSTATS).
//
// Owned by the counter feed, which calls read() at most once in a turn of the loop and only while something is
// monitored. The answer is there before the call returns: the kernel gives it within the reader's own system calls, and
// the wait is bounded all the same. Keeps no history: a device that starts again from 0 is MonotonicCounter's business.
#pragma once

#include <linux/if_link.h>

#include <cstdint>
#include <functional>

#include "linux/NetlinkExchange.h"

namespace Host::Linux {

class StatsReader {
 public:
   using Row = std::function<void( int index, rtnl_link_stats64 const & stats )>;

   // Calls `row` for every link, in the kernel's order, without allocating. When links come or go meanwhile the kernel
   // is asked again, and a link can have a second, later row; on a box that never comes to rest it may have none.
   // Throws NetlinkError, also after some of the rows; the next call starts afresh.
   void read( Row const & row );

   // How often the kernel was asked.
   [[nodiscard]] std::uint64_t reads() const { return reads_; }

 private:
   NetlinkExchange kernel_;
   std::uint64_t reads_ = 0;
};

// Hands on what an RTM_NEWSTATS message says; nothing for one that says nothing.
void parseStats( nlmsghdr const & message, StatsReader::Row const & row );

}  // namespace Host::Linux

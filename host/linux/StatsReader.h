// The byte and packet counters of all links, in one bulk read: RTM_GETSTATS with the 64-bit link statistics and nothing else.
#pragma once

#include <linux/if_link.h>

#include <cstdint>
#include <functional>

#include "linux/NetlinkSocket.h"

namespace Host::Linux {

class StatsReader {
 public:
   using Row = std::function<void( int ifindex, rtnl_link_stats64 const & stats )>;

   StatsReader() : socket_( 0 ) {}

   // Asks the kernel and calls `row` for every link. Throws NetlinkError; rows that were called then stay called.
   void read( Row const & row );

   // How many bulk reads there have been.
   [[nodiscard]] uint64_t reads() const { return reads_; }

 private:
   NetlinkSocket socket_;
   uint64_t reads_ = 0;
};

}  // namespace Host::Linux

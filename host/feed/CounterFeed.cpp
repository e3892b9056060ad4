#include "feed/CounterFeed.h"

#include <iostream>

#include "kel/ActivityLoop.h"

namespace Host {

void CounterFeed::refresh() {
   try {
      stats_.read( [this]( int index, rtnl_link_stats64 const & stats ) {
         auto const link = links_.interfaces().find( index );
         if( link == links_.interfaces().end() ) return;  // new, and its notice not read yet
         // By name and not by index: a device that is made again has another index, and must go on under its name.
         auto const octets = octets_[link->second].value( { stats.rx_bytes, stats.tx_bytes } );
         counters_.countersIs( link->second, { octets.in, octets.out, Kel::now() } );
      } );
   } catch( Linux::NetlinkError const & error ) {
      // Not passed on: the caller is a sample of the plug-in, which can do nothing about it. The rows keep values and
      // time.
      std::cerr << "maintd: reading the links' counters: " << error.what() << "\n";
   }
}

}  // namespace Host

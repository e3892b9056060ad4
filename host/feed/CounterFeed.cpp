#include "feed/CounterFeed.h"

namespace Host {

// Returns what went wrong. It is not passed on: the caller is a sample of the plug-in, which can do nothing about it.
std::string CounterFeed::readAll() {
   read_.clear();
   try {
      stats_.read( [this]( int index, rtnl_link_stats64 const & stats ) {
         read_.push_back( { index, { stats.rx_bytes, stats.tx_bytes } } );
      } );
   } catch( Linux::NetlinkError const & error ) {
      return error.what();
   }
   return {};
}

void CounterFeed::refresh( KelQuill::Rows rows ) {
   std::string const trouble = readAll();
   bool const failed = !trouble.empty();
   bool const toTell = std::exchange( failing_, failed ) != failed && tell_;
   if( toTell )
      tell_( failed ? "the links' counters cannot be read: " + trouble : "the links' counters are read again", failed );
   if( failed ) return;
   // In the order in which they came: a link that is listed twice may have restarted in between.
   for( Row const & row : read_ ) {
      auto const link = links_.interfaces().find( row.index );
      if( link == links_.interfaces().end() ) continue;  // new, and its notice not read yet
      if( counters_.wants( link->second, rows ) ) publish( link->second, row.octets );
   }
}

void CounterFeed::publish( Lumo::IntfId intf, Linux::Octets const & raw ) {
   // By name and not by index: a device that is made again has another index, and must go on under its name.
   auto const value = octets_[intf].value( raw );
   if( value ) counters_.readIs( intf, { value->octets.in, value->octets.out, value->restarted } );
}

}  // namespace Host

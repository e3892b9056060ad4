#include "feed/CounterFeed.h"

#include <utility>

namespace Host {

using KelQuill::Rows;

ListedLinks::Link CounterFeed::found( int index ) const {
   ListedLinks::Link link{ index, ListedLinks::noRow, {}, {} };
   Lumo::IntfId const intf = links_.interface( index );
   if( intf.empty() ) return link;  // new, and its notice not read yet
   link.row = counters_.row( intf ).value_or( ListedLinks::noRow );
   if( auto const offset = offsets_.find( intf ); offset != offsets_.end() ) link.offset = offset->second;
   return link;
}

// Returns what went wrong. It is not passed on: the caller is a sample of the plug-in, which can do nothing about it.
std::string CounterFeed::readAll() {
   std::pair const generations{ links_.generation(), counters_.table().generation() };
   if( std::exchange( generations_, generations ) != generations ) listed_.forget();
   listed_.begin();
   try {
      stats_.read( [this]( int index, Linux::Octets const & octets ) {
         listed_.add( index, octets, [this]( int i ) { return found( i ); } );
      } );
   } catch( Linux::NetlinkError const & error ) {
      return error.what();
   }
   return {};
}

void CounterFeed::refresh( Rows rows ) {
   std::string const trouble = readAll();
   bool const failed = !trouble.empty();
   bool const toTell = std::exchange( failing_, failed ) != failed && tell_;
   if( toTell )
      tell_( failed ? "the links' counters cannot be read: " + trouble : "the links' counters are read again", failed );
   if( failed ) return;
   // In the order in which they came: a link that is listed twice may have restarted in between. Its other place knows
   // nothing of that, so from there on nothing goes by what the places know.
   bool restarted = false;
   for( ListedLinks::Link const & link : listed_.links() ) {
      if( link.row == ListedLinks::noRow ) continue;
      auto const [in, out] = link.offset + link.counted;
      bool const done = rows == Rows::all && !restarted && counters_.grewTo( link.row, in, out );
      if( !done && publish( link, rows ) ) restarted = true;
   }
   if( restarted ) listed_.forget();
}

// Whether its counters have started again.
bool CounterFeed::publish( ListedLinks::Link const & listed, Rows rows ) {
   // By name and not by index: a device that is made again has another index, and must go on under its name.
   Lumo::IntfId const intf = links_.interface( listed.index );
   if( !counters_.wants( intf, rows ) ) return false;
   auto const offset = offsets_.find( intf );
   auto const last = counters_.lastCounters( intf );
   Linux::MonotonicCounter counter( offset == offsets_.end() ? Linux::Octets{} : offset->second,
                                    { last.inOctets.value(), last.outOctets.value() } );
   auto const value = counter.value( listed.counted );
   if( !value ) return false;
   if( value->restarted ) offsets_.insert_or_assign( intf, counter.offset() );
   counters_.readIs( intf, { value->octets.in, value->octets.out, value->restarted } );
   return value->restarted;
}

}  // namespace Host

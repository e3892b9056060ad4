#include "linux/LinkMonitor.h"

#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>

namespace Host::Linux {
namespace {

// A box whose links change without end could spoil every dump. After so many requests in one call the loop gets its
// turn; the answer to the last one is pending then, so the descriptor is readable and the monitor goes on at once.
constexpr int requestsPerCall = 16;

constexpr double firstPauseSeconds = 1;
constexpr double longestPauseSeconds = 60;

// Of a descriptor that is no socket any more, whatever became of it.
bool socketIsLost( int error ) { return error == EBADF || error == ENOTSOCK || error == ENOTCONN; }

}  // namespace

LinkMonitor::LinkMonitor( LinkListener & links, TroubleListener & trouble )
   : trouble_( trouble ), socket_( std::chrono::milliseconds( 0 ) ), table_( links ) {
   socket_.subscribe( RTNLGRP_LINK );
   socket_.subscribe( RTNLGRP_BRVLAN );
}

void LinkMonitor::handleReadable() {
   try {
      readPending();
   } catch( NetlinkError const & error ) {
      if( socketIsLost( error.code().value() ) ) throw;
      handleError( error.code().value() );
   }
   if( table_.known() && pauseSeconds_ > 0 ) {
      pauseSeconds_ = 0;
      trouble_.onRecovered();
   }
   table_.settle();
}

// The kernel drops notices from the moment its queue is full until the queue has been emptied, and says so once, at the
// beginning (NETLINK_S_CONGESTED in net/netlink/af_netlink.c; ENOBUFS in netlink(7)). A dump that starts before the
// queue is empty can therefore miss a change, so it is asked for only when nothing is pending.
void LinkMonitor::readPending() {
   for( int requestsLeft = requestsPerCall; requestsLeft > 0; ) {
      Received const received = socket_.receive( "reading the links" );
      switch( received.outcome ) {
         case Received::Outcome::messages:
            // Busy: the kernel is still at an earlier dump, which stopped half way for want of memory. The reading of
            // this very message lets it go on, and when it is through, a new one is asked for.
            if( int const error = table_.handle( received.messages ); error && error != EBUSY ) handleError( error );
            break;
         case Received::Outcome::lost: table_.handleLoss(); break;
         case Received::Outcome::nothing:
            if( paused_ || table_.missing() == LinkTable::Missing::nothing ) return;
            request();
            --requestsLeft;
            break;
      }
   }
}

void LinkMonitor::request() {
   auto const missing = table_.missing();
   if( missing == LinkTable::Missing::links ) {
      DumpRequest request( RTM_GETLINK );
      request.putBody<ifinfomsg>();
      // Counters would make the larger part of the answer, and some drivers have to ask their hardware for them.
      mnl_attr_put_u32( &request.header(), IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS );
      socket_.send( request.header(), "asking for the links" );
   } else {
      DumpRequest request( RTM_GETVLAN );
      request.putBody<br_vlan_msg>().family = AF_BRIDGE;
      socket_.send( request.header(), "asking for the VLANs of bridges" );
   }
   // After the send: where that throws, it stays missing.
   table_.askedIs( missing );
}

// Once for each pause, however many errors there are.
void LinkMonitor::handleError( int error ) {
   table_.handleLoss();
   if( paused_ ) return;
   paused_ = true;
   pauseSeconds_ = std::clamp( 2 * pauseSeconds_, firstPauseSeconds, longestPauseSeconds );
   trouble_.onTrouble( std::string( "the links cannot be read: " ) + std::generic_category().message( error ),
                       pauseSeconds_ );
}

void LinkMonitor::resume() {
   paused_ = false;
   handleReadable();
}

}  // namespace Host::Linux

#include "linux/LinkMonitor.h"

#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <utility>

namespace Host::Linux {
namespace {

// A box whose links change without end could spoil every dump. After so many in one call the loop gets its turn; the
// answer to the last one is pending then, so the descriptor is readable and the monitor goes on at once.
constexpr int dumpsPerCall = 8;

constexpr char readingLinks[] = "reading the links";

}  // namespace

LinkMonitor::LinkMonitor( Report changed, Report removed )
   : changed_( std::move( changed ) ), removed_( std::move( removed ) ), socket_( std::chrono::milliseconds( 0 ) ) {
   socket_.subscribe( RTNLGRP_LINK );
}

// Begins as after a loss: nothing is known, a dump is due. Notices that are pending already are older than the dump and
// only go by.
void LinkMonitor::start() {
   handleLoss();
   handleReadable();
}

// The kernel drops notices from the moment its queue is full until the queue has been emptied, and says so once, at the
// beginning (NETLINK_S_CONGESTED in net/netlink/af_netlink.c; ENOBUFS in netlink(7)). A dump that starts before the
// queue is empty can therefore miss a change, so it is asked for only when nothing is pending.
void LinkMonitor::handleReadable() {
   for( int dumpsLeft = dumpsPerCall; dumpsLeft > 0; ) {
      Received const received = socket_.receive( readingLinks );
      switch( received.outcome ) {
         case Received::Outcome::messages:
            forEachMessage( received.messages, [this]( nlmsghdr const & message ) { handleMessage( message ); } );
            break;
         case Received::Outcome::lost: handleLoss(); break;
         case Received::Outcome::nothing:
            if( !dumpDue_ ) return;
            requestDump();
            --dumpsLeft;
            break;
      }
   }
}

void LinkMonitor::requestDump() {
   DumpRequest request( RTM_GETLINK );
   request.putBody<ifinfomsg>();
   // Counters would make the larger part of the answer, and some drivers have to ask their hardware for them.
   mnl_attr_put_u32( &request.header(), IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS );
   socket_.send( request.header(), "asking for the links" );
   // After the send: where that throws, the dump stays due.
   fresh_.emplace();
   dumpDue_ = false;
}

void LinkMonitor::handleMessage( nlmsghdr const & message ) {
   // A change overtook the dump, which may lack a link now (NLM_F_DUMP_INTR in linux/netlink.h). Its rest is read and
   // counts for nothing.
   if( message.nlmsg_flags & NLM_F_DUMP_INTR ) handleLoss();
   switch( message.nlmsg_type ) {
      case RTM_NEWLINK:
         if( auto link = parseLink( message ) ) handleLink( std::move( *link ) );
         break;
      case RTM_DELLINK:
         if( auto const index = parseRemoval( message ) ) handleRemoval( *index );
         break;
      // Both bring an errno: a dump can be refused, and it can fail on its way.
      case NLMSG_DONE:
      case NLMSG_ERROR:
         if( int const error = errorOf( message ) ) {
            handleError( error );
         } else {
            handleDumpEnd();
         }
         break;
      default: break;
   }
}

void LinkMonitor::handleLink( Link link ) {
   if( fresh_ ) {
      fresh_->insert_or_assign( link.index, std::move( link ) );
      return;
   }
   // A link not known before begins here with the index 0, which the kernel gives to none.
   Link & known = links_[link.index];
   if( known == link ) return;
   Link const before = std::exchange( known, std::move( link ) );
   // The old name goes first, as the next message may give it to another link.
   if( before.index != 0 && before.name != known.name ) removed_( before );
   changed_( known );
}

void LinkMonitor::handleRemoval( int index ) {
   if( fresh_ ) {
      fresh_->erase( index );
      return;
   }
   if( auto const gone = links_.extract( index ) ) removed_( gone.mapped() );
}

void LinkMonitor::handleDumpEnd() {
   // The end of a dump with a gap; the whole one is still to come.
   if( !fresh_ || dumpDue_ ) return;
   auto const before = std::exchange( links_, std::move( *fresh_ ) );
   fresh_.reset();
   reportDifferences( before );
}

// Busy: the kernel is still at an earlier dump, which stopped half way for want of memory. The reading of this very
// message lets it go on. When it is through, a new one is asked for. Any other error is thrown, with the next dump due.
void LinkMonitor::handleError( int error ) {
   handleLoss();
   if( error != EBUSY ) throw NetlinkError( error, readingLinks );
}

void LinkMonitor::handleLoss() {
   dumpDue_ = true;
   fresh_.emplace();
}

void LinkMonitor::reportDifferences( std::map<int, Link> const & before ) const {
   // All removals before any change: names may have passed from one link to another.
   for( auto const & [index, link] : before ) {
      auto const now = links_.find( index );
      if( now == links_.end() || now->second.name != link.name ) removed_( link );
   }
   for( auto const & [index, link] : links_ ) {
      auto const known = before.find( index );
      if( known == before.end() || known->second != link ) changed_( link );
   }
}

}  // namespace Host::Linux

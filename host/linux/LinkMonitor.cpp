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

// Notices that are pending already are older than the dump: they only go by.
void LinkMonitor::start() {
   handleLoss();
   handleReadable();
}

// The kernel drops notices from the moment its queue is full until the queue has been emptied, and says so once, at the
// beginning. A dump that starts before the queue is empty can therefore miss a change, so it is asked for only when
// nothing is pending.
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
   fresh_.emplace();
   dumpDue_ = false;
}

void LinkMonitor::handleMessage( nlmsghdr const & message ) {
   if( message.nlmsg_flags & NLM_F_DUMP_INTR ) handleLoss();
   switch( message.nlmsg_type ) {
      case RTM_NEWLINK:
         if( auto link = parseLink( message ) ) handleLink( std::move( *link ) );
         break;
      case RTM_DELLINK:
         if( auto const index = parseRemoval( message ) ) handleRemoval( *index );
         break;
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
   Link & known = links_[link.index];
   if( known == link ) return;
   Link const before = std::exchange( known, std::move( link ) );
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
   if( !fresh_ || dumpDue_ ) return;
   auto const before = std::exchange( links_, std::move( *fresh_ ) );
   fresh_.reset();
   reportDifferences( before );
}

// Busy means that an earlier dump ran out of kernel memory half way. Reading this very message lets it go on; its end
// is followed by a new one.
void LinkMonitor::handleError( int error ) {
   handleLoss();
   if( error != EBUSY ) throw NetlinkError( error, readingLinks );
}

void LinkMonitor::handleLoss() {
   dumpDue_ = true;
   fresh_.emplace();
}

void LinkMonitor::reportDifferences( std::map<int, Link> const & before ) const {
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

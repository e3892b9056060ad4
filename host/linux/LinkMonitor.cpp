#include "linux/LinkMonitor.h"

#include <linux/rtnetlink.h>

#include <array>
#include <cerrno>
#include <utility>

namespace Host::Linux {

LinkMonitor::LinkMonitor( Report changed, Report removed )
   : changed_( std::move( changed ) ), removed_( std::move( removed ) ), socket_( RTMGRP_LINK ) {}

// The socket hears of changes already, so nothing is lost between the dump and the first message.
void LinkMonitor::start() { takePicture(); }

void LinkMonitor::takePicture() {
   std::map<int, Link> picture;
   while( !dumpInto( picture ) ) picture.clear();
   std::map<int, Link> const before = links_;
   for( auto const & [index, link] : before ) {
      if( !picture.contains( index ) ) gone( index );
   }
   for( auto const & [index, link] : picture ) present( link );
}

// False when links changed under the dump, which may then be inconsistent.
bool LinkMonitor::dumpInto( std::map<int, Link> & picture ) {
   NetlinkSocket socket( 0 );
   alignas( nlmsghdr ) std::array<char, 256> buffer{};
   nlmsghdr * const request = mnl_nlmsg_put_header( buffer.data() );
   request->nlmsg_type = RTM_GETLINK;
   mnl_nlmsg_put_extra_header( request, sizeof( ifinfomsg ) );
   uint32_t const sequence = socket.requestDump( request );
   bool done = false;
   bool consistent = true;
   while( !done ) {
      socket.receive( true ).forEach( [&]( nlmsghdr const & message ) {
         if( message.nlmsg_seq != sequence ) return;
         if( ( message.nlmsg_flags & NLM_F_DUMP_INTR ) != 0 ) consistent = false;
         if( message.nlmsg_type == NLMSG_DONE ) done = true;
         if( message.nlmsg_type == NLMSG_ERROR ) {
            auto const * const error = static_cast<nlmsgerr const *>( mnl_nlmsg_get_payload( &message ) );
            throw NetlinkError( "listing the links", -error->error );
         }
         if( message.nlmsg_type != RTM_NEWLINK ) return;
         if( auto link = parseLink( message ) ) picture.insert_or_assign( link->index, std::move( *link ) );
      } );
   }
   return consistent;
}

void LinkMonitor::handleReadable() {
   while( true ) {
      try {
         auto const messages = socket_.receive( false );
         if( messages.empty() ) return;
         messages.forEach( [this]( nlmsghdr const & message ) { handleMessage( message ); } );
      } catch( NetlinkError const & error ) {
         if( !error.messagesLost() ) throw;
         takePicture();
      }
   }
}

void LinkMonitor::handleMessage( nlmsghdr const & message ) {
   if( message.nlmsg_type == RTM_DELLINK ) {
      if( auto const index = parseRemoval( message ) ) gone( *index );
   } else if( message.nlmsg_type == RTM_NEWLINK ) {
      if( auto const link = parseLink( message ) ) present( *link );
   }
}

void LinkMonitor::present( Link const & link ) {
   auto const known = links_.find( link.index );
   if( known != links_.end() ) {
      if( known->second == link ) return;
      if( known->second.name != link.name ) gone( link.index );
   }
   links_.insert_or_assign( link.index, link );
   changed_( link );
}

void LinkMonitor::gone( int index ) {
   auto const known = links_.find( index );
   if( known == links_.end() ) return;
   Link const link = known->second;
   links_.erase( known );
   removed_( link );
}

}  // namespace Host::Linux

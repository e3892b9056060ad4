#include "linux/LinkTable.h"

#include <linux/rtnetlink.h>

#include <cerrno>
#include <utility>

#include "linux/NetlinkSocket.h"

namespace Host::Linux {

Link const * LinkTable::link( int index ) const {
   auto const found = links_.find( index );
   return found == links_.end() ? nullptr : &found->second;
}

bool LinkTable::carries( int port, int vlanId ) const {
   auto const found = vlans_.find( port );
   return found != vlans_.end() && vlanId >= 0 && static_cast<std::size_t>( vlanId ) < found->second.size() &&
          found->second[static_cast<std::size_t>( vlanId )];
}

LinkTable::Missing LinkTable::missing() const {
   switch( stage_ ) {
      case Stage::linksMissing: return Missing::links;
      case Stage::vlansMissing: return Missing::vlans;
      case Stage::known:
      case Stage::linksAsked:
      case Stage::vlansAsked: break;
   }
   return Missing::nothing;
}

void LinkTable::askedIs( Missing what ) {
   if( what == Missing::vlans ) {
      stage_ = Stage::vlansAsked;
      return;
   }
   stage_ = Stage::linksAsked;
   fresh_ = {};
}

int LinkTable::handle( std::span<std::byte const> messages ) {
   int failed = 0;
   forEachMessage( messages, [&]( nlmsghdr const & message ) {
      if( int const error = handleMessage( message ) ) failed = error;
   } );
   return failed;
}

void LinkTable::handleLoss() {
   stage_ = Stage::linksMissing;
   fresh_ = {};
}

int LinkTable::handleMessage( nlmsghdr const & message ) {
   // A change overtook the dump, which may lack something now (NLM_F_DUMP_INTR in linux/netlink.h). Its rest is read
   // and counts for nothing.
   if( message.nlmsg_flags & NLM_F_DUMP_INTR ) handleLoss();
   switch( message.nlmsg_type ) {
      case RTM_NEWLINK:
         if( auto link = parseLink( message ) ) handleLink( std::move( *link ) );
         break;
      case RTM_DELLINK:
         if( auto const index = parseRemoval( message ) ) handleRemoval( *index );
         break;
      case RTM_NEWVLAN:
      case RTM_DELVLAN:
         if( auto const vlans = parseVlans( message ) ) handleVlans( *vlans, message.nlmsg_type == RTM_NEWVLAN );
         break;
      // Both bring an errno: a dump can be refused, and it can fail on its way.
      case NLMSG_DONE:
      case NLMSG_ERROR: return handleEnd( errorOf( message ) );
      default: break;
   }
   return 0;
}

void LinkTable::handleLink( Link link ) {
   if( !known() ) {
      // The kernel goes through the ports by their place in the list of links and says nothing where one was passed
      // over because that list had moved.
      bool const isNew = fresh_.links.insert_or_assign( link.index, std::move( link ) ).second;
      if( isNew && stage_ == Stage::vlansAsked ) handleLoss();
      return;
   }
   // A link not known before begins here with the index 0, which the kernel gives to none.
   Link & present = links_[link.index];
   if( present == link ) return;
   Link const before = std::exchange( present, std::move( link ) );
   // The old name goes first, as the next message may give it to another link.
   if( before.index != 0 && before.name != present.name ) listener_.onLinkGone( before );
   listener_.onLink( present );
}

void LinkTable::handleRemoval( int index ) {
   if( !known() ) {
      fresh_.links.erase( index );
      fresh_.vlans.erase( index );
      if( stage_ == Stage::vlansAsked ) handleLoss();
      return;
   }
   vlans_.erase( index );
   if( auto const gone = links_.extract( index ) ) listener_.onLinkGone( gone.mapped() );
}

void LinkTable::handleVlans( PortVlans const & changed, bool there ) {
   auto & tables = known() ? vlans_ : fresh_.vlans;
   VlanSet & vlans = tables[changed.port];
   VlanSet const before = vlans;
   VlanSet const now = there ? before | changed.vlans : before & ~changed.vlans;
   vlans = now;
   if( now.none() ) tables.erase( changed.port );
   if( known() && now != before ) listener_.onVlans( changed.port );
}

int LinkTable::handleEnd( int error ) {
   switch( stage_ ) {
      // The end of a dump with a gap; the whole one is still to come.
      case Stage::known:
      case Stage::linksMissing:
      case Stage::vlansMissing: return error;
      case Stage::linksAsked:
         if( !error ) stage_ = Stage::vlansMissing;
         break;
      case Stage::vlansAsked:
         // A kernel in which no bridge was ever made, or whose bridges know no VLANs, has no such tables.
         if( error == EOPNOTSUPP ) error = 0;
         if( !error ) handleKnown();
         break;
   }
   if( error ) handleLoss();
   return error;
}

void LinkTable::handleKnown() {
   stage_ = Stage::known;
   Picture const before{ std::exchange( links_, std::move( fresh_.links ) ),
                         std::exchange( vlans_, std::move( fresh_.vlans ) ) };
   fresh_ = {};
   // All removals before any change: names may have passed from one link to another.
   for( auto const & [index, link] : before.links ) {
      auto const now = links_.find( index );
      if( now == links_.end() || now->second.name != link.name ) listener_.onLinkGone( link );
   }
   for( auto const & [index, link] : links_ ) {
      auto const former = before.links.find( index );
      if( former == before.links.end() || former->second != link ) listener_.onLink( link );
   }
   for( auto const & [port, vlans] : vlans_ ) {
      auto const former = before.vlans.find( port );
      if( former == before.vlans.end() || former->second != vlans ) listener_.onVlans( port );
   }
   for( auto const & [port, vlans] : before.vlans ) {
      if( !vlans_.contains( port ) ) listener_.onVlans( port );
   }
}

}  // namespace Host::Linux

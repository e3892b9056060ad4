// What comes from a netlink socket, whatever it is: links, VLAN tables, the ends of dumps, counters. The records that
// are made of it name the links that the messages have told of, and no others.
//
//    build/fuzz/fuzz/netlink_fuzz -max_len=2048 WORK_DIR tests/fuzz/corpus/netlink
#include <linux/rtnetlink.h>

#include <cstring>
#include <set>
#include <vector>

#include "Targets.h"
#include "feed/LinkFeed.h"
#include "kel/Assert.h"
#include "linux/StatsReader.h"
#include "state/MaintenanceState.h"

namespace {

using namespace Host;
using Linux::LinkTable;
using Messages = std::vector<std::byte>;  // of its own memory, so that reading on is noticed

class Kernel {
 public:
   Kernel() { table_.askedIs( LinkTable::Missing::links ); }

   void say( Messages const & messages ) {
      static_cast<void>( table_.handle( messages ) );
      table_.settle();
      // As the monitor does.
      if( auto const missing = table_.missing(); missing != LinkTable::Missing::nothing ) table_.askedIs( missing );
      check();
   }

 private:
   void check() {
      for( auto const & [index, link] : table_.links() ) seen_.insert( index );
      for( int const index : seen_ ) {
         auto const * const link = table_.link( index );
         KEL_ASSERT( feed_.interface( index ) == ( link ? Lumo::IntfId( link->name ) : Lumo::IntfId() ) );
      }
   }

   Kel::Ptr<Dovra::EntityManager> const database_{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state_{ *database_ };
   KelQuill::CounterWriter writer_{ state_.counterWriterStatus, "" };
   Service::LinkRecords records_{ state_ };
   LinkFeed feed_{ records_, writer_, {} };
   LinkTable table_{ feed_ };
   std::set<int> seen_;  // indices
};

// Whether there is something in it for somebody.
bool says( nlmsghdr const & message ) {
   switch( message.nlmsg_type ) {
      case RTM_NEWLINK: return Linux::parseLink( message ).has_value();
      case RTM_DELLINK: return Linux::parseRemoval( message ).has_value();
      case RTM_NEWVLAN:
      case RTM_DELVLAN: return Linux::parseVlans( message ).has_value();
      case RTM_NEWSTATS: return Linux::parseStats( message ).has_value();
      case NLMSG_DONE: return true;
      case NLMSG_ERROR: return Linux::errorOf( message ) != 0;
      default: return false;
   }
}

}  // namespace

bool Fuzz::netlink( Bytes input ) {
   Messages const all( reinterpret_cast<std::byte const *>( input.data() ),
                       reinterpret_cast<std::byte const *>( input.data() ) + input.size() );
   Kernel kernel;
   std::size_t taken = 0;
   Linux::forEachMessage( std::span( all ), [&]( nlmsghdr const & message ) {
      std::size_t const bytes = NLMSG_ALIGN( message.nlmsg_len );
      auto const * const begin = reinterpret_cast<std::byte const *>( &message );
      Messages const alone( begin, begin + bytes );
      if( says( *reinterpret_cast<nlmsghdr const *>( alone.data() ) ) ) taken += bytes;
      kernel.say( alone );
   } );
   // And at one go, as the answer to what is asked by then.
   kernel.say( all );
   return taken == input.size();
}

extern "C" int LLVMFuzzerTestOneInput( unsigned char const * bytes, std::size_t size ) {
   static_cast<void>( Fuzz::netlink( { bytes, size } ) );
   return 0;
}

#include "feed/LinkFeed.h"

namespace Host {

namespace {

Interface::IntfOperStatus operStatus( Linux::Oper oper ) {
   switch( oper ) {
      case Linux::Oper::unknown: return Interface::IntfOperStatus::unknown;
      case Linux::Oper::up: return Interface::IntfOperStatus::up;
      case Linux::Oper::down: return Interface::IntfOperStatus::down;
   }
   return Interface::IntfOperStatus::unknown;
}

}  // namespace

void LinkFeed::changed( Linux::Link const & link ) {
   // Every kind of link is sampled by its own counters, as an Ethernet interface is.
   auto const intf = Lumo::IntfId::declare( link.name, Lumo::IntfKind::ethernet );
   // Row before record: whoever hears of the interface finds its counters. The index before both, so that every read
   // from here on fills the row.
   interfaces_.insert_or_assign( link.index, intf );
   counters_.rowIs( intf );
   auto status = state_.intfStatus->intfStatus( intf );
   if( !status ) {
      // With its state before it is inserted: nobody is to hear of a link that is neither up nor down.
      status = new Interface::IntfStatus( intf );
      status->operStatusIs( operStatus( link.oper ) );
      state_.intfStatus->intfStatusIs( status );
      return;
   }
   status->operStatusIs( operStatus( link.oper ) );
}

void LinkFeed::removed( Linux::Link const & link ) {
   Lumo::IntfId const intf( link.name );
   // The other way round. The index first, because a read that still found it would write to a row that is not there,
   // which is a failed assertion.
   interfaces_.erase( link.index );
   state_.intfStatus->intfStatusDel( intf );
   counters_.rowDel( intf );
}

}  // namespace Host

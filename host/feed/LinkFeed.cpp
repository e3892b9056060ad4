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
   interfaces_.insert_or_assign( link.index, intf );
   counters_.rowIs( intf );
   auto status = state_.intfStatus->intfStatus( intf );
   if( !status ) {
      status = new Interface::IntfStatus( intf );
      status->operStatusIs( operStatus( link.oper ) );
      state_.intfStatus->intfStatusIs( status );
      return;
   }
   status->operStatusIs( operStatus( link.oper ) );
}

void LinkFeed::removed( Linux::Link const & link ) {
   Lumo::IntfId const intf( link.name );
   interfaces_.erase( link.index );
   state_.intfStatus->intfStatusDel( intf );
   counters_.rowDel( intf );
}

}  // namespace Host

#include "feed/LinkFeed.h"

namespace Host {

void LinkFeed::changed( Linux::Link const & link ) {
   // Every kind of link is sampled by its own counters, as an Ethernet interface is.
   auto const intf = Lumo::IntfId::declare( link.name, Lumo::IntfKind::ethernet );
   // Row before record: whoever hears of the interface finds its counters. The index before both, so that every read
   // from here on fills the row.
   interfaces_.insert_or_assign( link.index, intf );
   counters_.rowIs( intf );
   Service::LinkReport report;
   report.up = link.oper == Linux::Oper::up;
   links_.linkIs( intf, report );
}

void LinkFeed::removed( Linux::Link const & link ) {
   Lumo::IntfId const intf( link.name );
   // The other way round. The index first, because a read that still found it would write to a row that is not there,
   // which is a failed assertion.
   interfaces_.erase( link.index );
   links_.linkDel( intf );
   counters_.rowDel( intf );
}

}  // namespace Host

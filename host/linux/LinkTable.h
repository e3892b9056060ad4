// The links of this box and the VLAN tables of its bridges' ports, made of rtnetlink messages.
//
// Owned by LinkMonitor, which asks the kernel for what missing() says and hands in every byte that comes; has no socket
// itself. What it has is either known, or has a gap: at the start, after messages were lost, or after a dump that a
// change overtook. Then it holds its reports back until two dumps, of the links and of the VLAN tables, have come in
// whole, and reports the true differences. It reports only what differs from its last report, in an order that lets
// the receiver key links by name: a name is removed before another link appears under it.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <unordered_map>

#include "linux/Link.h"
#include "linux/Vlans.h"

namespace Host::Linux {

class LinkTable;

// Who hears of links. Called with the table already as it is afterwards; must not hand in messages in turn.
class LinkListener {
 public:
   // It is new or differs in anything but its name.
   virtual void onLink( Link const & link ) = 0;
   // With what was known last. A rename is both: gone under the old name, then there under the new one.
   virtual void onLinkGone( Link const & link ) = 0;
   // A bridge's port, which may be no link any more or none yet, has another VLAN table.
   virtual void onVlans( int port ) = 0;
   // All that was pending has been reported.
   virtual void onSettled( LinkTable const & table ) = 0;

 protected:
   ~LinkListener() = default;
};

class LinkTable {
 public:
   // What is to be asked for next, as soon as no message is pending. An answer that is under way is not missing.
   enum class Missing { nothing, links, vlans };

   explicit LinkTable( LinkListener & listener ) : listener_( listener ) {}

   // By index. As of the last time at which they were known.
   [[nodiscard]] std::map<int, Link> const & links() const { return links_; }
   // The link of this index, null when there is none.
   [[nodiscard]] Link const * link( int index ) const;
   // Whether a port's VLAN table has the VLAN.
   [[nodiscard]] bool carries( int port, int vlanId ) const;

   [[nodiscard]] bool known() const { return stage_ == Stage::known; }
   [[nodiscard]] Missing missing() const;
   // It has been asked for: its end is the next that comes.
   void askedIs( Missing what );

   // Between batches of messages: all that was pending has been handed in.
   void settle() { listener_.onSettled( *this ); }

   // Takes in messages as they come from the kernel, which may be anything at all. Returns the errno of a dump that
   // the kernel refused or broke off, 0 for none; it is missing again then.
   [[nodiscard]] int handle( std::span<std::byte const> messages );
   // Messages were lost, or nothing was known to begin with.
   void handleLoss();

 private:
   enum class Stage { known, linksMissing, linksAsked, vlansMissing, vlansAsked };
   using Vlans = std::unordered_map<int, VlanSet>;
   // What the dumps under way and the notices since have told so far.
   struct Picture {
      std::map<int, Link> links;
      Vlans vlans;
   };

   [[nodiscard]] int handleMessage( nlmsghdr const & message );
   void handleLink( Link link );
   void handleRemoval( int index );
   void handleVlans( PortVlans const & changed, bool there );
   [[nodiscard]] int handleEnd( int error );
   void handleKnown();

   LinkListener & listener_;
   std::map<int, Link> links_;
   Vlans vlans_;
   Stage stage_ = Stage::linksMissing;
   Picture fresh_;  // while not known
};

}  // namespace Host::Linux

// The links of this box, as they are and as they change, from rtnetlink.
//
// Owned by the agent, which calls start() once, then watches fd() on the loop and calls handleReadable(). The monitor
// subscribes before it asks for a dump, so nothing falls between the two. When the kernel had to throw notices away, or
// a dump was overtaken by a change, it holds its reports back, takes another dump and reports the true differences. It
// reports only what differs from its last report, in an order that lets the receiver key links by name: a name is
// removed before another link appears under it. It never changes a link and never waits.
#pragma once

#include <functional>
#include <map>
#include <optional>

#include "linux/Link.h"
#include "linux/NetlinkSocket.h"

namespace Host::Linux {

class LinkMonitor {
 public:
   using Report = std::function<void( Link const & )>;

   // changed: a link is new or differs in anything but its name. removed: comes with what was known last. A rename is
   // both: removed under the old name, then changed under the new one. Both are called from start() and
   // handleReadable() only, with links() already as it is afterwards, and must not call those in turn. Throws
   // NetlinkError.
   LinkMonitor( Report changed, Report removed );

   [[nodiscard]] int fd() const { return socket_.fd(); }

   // By index. Empty until start().
   [[nodiscard]] std::map<int, Link> const & links() const { return links_; }

   // Reports every link there is. Throws NetlinkError.
   void start();

   // Takes in everything that is pending. After a NetlinkError the next call takes a new dump.
   void handleReadable();

 private:
   void requestDump();
   void handleMessage( nlmsghdr const & message );
   void handleLink( Link link );
   void handleRemoval( int index );
   void handleDumpEnd();
   void handleError( int error );
   void handleLoss();
   void reportDifferences( std::map<int, Link> const & before ) const;

   Report const changed_;
   Report const removed_;
   NetlinkSocket socket_;
   std::map<int, Link> links_;
   // What the dump under way and the notices since have told so far. Present exactly while links_ cannot be relied on.
   std::optional<std::map<int, Link>> fresh_;
   bool dumpDue_ = false;  // fresh_ has a gap: its end does not count, another dump has to follow
};

}  // namespace Host::Linux

// The box's links, as rtnetlink tells of them: a dump at the start, then every change as it happens.
//
// Owned by the agent, driven by its loop. Keeps the present picture and reports true differences only. When the kernel could
// not deliver a message the picture is taken anew from another dump, and what is no longer there is reported removed. A link
// that is renamed goes under its old name and appears under its new one.
#pragma once

#include <functional>
#include <map>

#include "linux/Link.h"
#include "linux/NetlinkSocket.h"

namespace Host::Linux {

class LinkMonitor {
 public:
   using Report = std::function<void( Link const & )>;

   LinkMonitor( Report changed, Report removed );

   // Reports every link there is. Throws NetlinkError.
   void start();

   // Readable when there is something to handle.
   [[nodiscard]] int fd() const { return socket_.fd(); }
   // Handles all that is there. Throws NetlinkError.
   void handleReadable();

   [[nodiscard]] std::map<int, Link> const & links() const { return links_; }  // by index

 private:
   void takePicture();
   [[nodiscard]] bool dumpInto( std::map<int, Link> & picture );
   void handleMessage( nlmsghdr const & message );
   void present( Link const & link );
   void gone( int index );

   Report const changed_;
   Report const removed_;
   NetlinkSocket socket_;  // hears the multicast group; dumps go over a socket of their own, so the two never mix
   std::map<int, Link> links_;
};

}  // namespace Host::Linux

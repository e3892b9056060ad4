// The links of this box, as they are and as they change, from rtnetlink.
//
// Owned by the agent, which calls start() once, then watches fd() on the loop and calls handleReadable(). The monitor
// subscribes before it asks for dumps, so nothing falls between the two. When the kernel had to throw notices away, it
// takes new dumps. It never changes a link and never waits.
//
// An error of the kernel ends nothing: what was known stands, and new dumps are asked for after a pause that doubles
// from one second to one minute. The pause is its owner's: onTrouble() says when resume() is due. Only when the socket
// itself is lost, so that nothing can come any more, does it throw.
#pragma once

#include <string>

#include "linux/LinkTable.h"
#include "linux/NetlinkSocket.h"

namespace Host::Linux {

class TroubleListener {
 public:
   // The links cannot be read. resume() is to be called after so many seconds.
   virtual void onTrouble( std::string const & text, double pauseSeconds ) = 0;
   // They can be, after trouble.
   virtual void onRecovered() = 0;

 protected:
   ~TroubleListener() = default;
};

class LinkMonitor {
 public:
   // Both outlive this; they are called from start(), handleReadable() and resume() only, and must not call those in
   // turn. Throws NetlinkError.
   LinkMonitor( LinkListener & links, TroubleListener & trouble );

   [[nodiscard]] int fd() const { return socket_.fd(); }
   [[nodiscard]] LinkTable const & table() const { return table_; }
   [[nodiscard]] std::map<int, Link> const & links() const { return table_.links(); }

   // Reports every link there is, unless there is trouble: then nothing is known yet. Throws NetlinkError as below.
   void start() { handleReadable(); }
   // Takes in everything that is pending. Throws NetlinkError when the socket is lost.
   void handleReadable();
   // The pause after trouble is over.
   void resume();

 private:
   void readPending();
   void request();
   void handleError( int error );

   TroubleListener & trouble_;
   NetlinkSocket socket_;
   LinkTable table_;
   double pauseSeconds_ = 0;  // the last one since the links were known; 0: none
   bool paused_ = false;
};

}  // namespace Host::Linux

// What the service manager is told of maintd, if one has started it and wants to know (sd_notify(3)): that it is ready,
// reloads, stops; one line on how things stand; and that its loop still turns.
//
// Owned by the agent. The sign of life is sent by the loop itself, between its turns, twice in the time that the
// manager allows: a loop that hangs sends none, and maintd is started anew, which changes no link. The line is made
// after turns only, as nothing changes without one, at most once a second, and sent when it is another than before.
// Without a service manager nothing happens. Sends and never waits for an answer.
#pragma once

#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <string>

#include "loop/AsioLoop.h"

namespace Host {

class ServiceManager {
 public:
   using Line = std::function<std::string()>;

   explicit ServiceManager( AsioLoop & loop );
   ~ServiceManager();
   ServiceManager( ServiceManager const & ) = delete;
   ServiceManager & operator=( ServiceManager const & ) = delete;

   // It serves. From now on it gives signs of life, and tells how things stand, which `line` knows: plain text, called
   // between turns.
   void ready( Line line );
   // A reload begins, and is over, whatever came of it.
   void reloading();
   void reloaded();
   // It ends: no line and no sign of life any more.
   void stopping();

 private:
   void awaitBeat();
   void handleTurn();
   void tellLine();

   AsioLoop & loop_;
   std::string const listener_;            // name of the socket of who wants to know; empty: nobody
   std::chrono::microseconds const beat_;  // between two signs of life; 0: none are wanted
   Line line_;
   std::string told_;
   bool lineIsDue_ = false;
   boost::asio::steady_timer beatTimer_;
   boost::asio::steady_timer lineTimer_;
};

}  // namespace Host

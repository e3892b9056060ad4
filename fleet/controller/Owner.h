// The owner of the fleet between its memory and the broker: letters go to the dispatcher, orders to the broker, and
// twice a second all is decided that time has brought about.
//
//    broker --statuses, checked--> Dispatcher --orders, kept--> broker
//
// Before it reaches for any box it reads what the broker has of an earlier life: its own first orders would replace it,
// and with it the proof that the books are older than the fleet. It also listens whether another owner is there. What
// cannot be kept is not decided, told, and tried again; nothing is sent meanwhile. Its time never goes back: where the
// clock does, it stands still.
//
// Driven by whoever has the loop, with turn(); never waits.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>

#include "broker/Broker.h"
#include "controller/Rivals.h"
#include "controller/Views.h"
#include "events/Events.h"
#include "plan/Dispatcher.h"

namespace Fleet {

class Owner final : private Dispatcher::Outlet {
 public:
   struct Parts {
      Ledger & memory;  // with the broker it outlives this
      Broker & broker;
      std::function<double()> wallTime;  // s, Unix time
      std::function<void( Service::Severity, std::string const & )> log;
      std::string where = {};  // this owner's machine and process, for people who find that there are two
   };

   // Throws MemoryFault.
   Owner( Inventory inventory, Parts parts );

   // Twice a second.
   void turn();
   // After a request was carried out: what follows from it, at once.
   void decide();
   void inventoryIs( Inventory inventory );

   [[nodiscard]] double now() const { return now_; }  // s, Unix time, whole; does not move within a turn
   [[nodiscard]] Dispatcher & dispatcher() { return dispatcher_; }
   [[nodiscard]] Dispatcher const & dispatcher() const { return dispatcher_; }
   [[nodiscard]] Surroundings surroundings() const;
   // For the service manager: "40 units, 2 out; plan-7 paused".
   // Made anew every few seconds: it takes a look at every unit.
   [[nodiscard]] std::string const & line();

   static constexpr double sayAgainSeconds = 60;
   static constexpr double foundSeconds = 2;  // for the broker's answers, from the last question on
   static constexpr double awaySeconds = 3;   // a turn that comes so much later may have missed what others said

 private:
   void desiredIs( Desired const & desired ) override;
   void told( std::string const & text ) override { parts_.log( Service::Severity::notice, text ); }

   void readClock();
   void connectedIs( bool connected );
   void lookForRivals();
   void take( Broker::Letter const & letter );
   void takeStatus( std::string const & box, std::string const & text );
   void takeDesired( std::string const & box, std::string const & text );
   // Why nothing may be ordered yet, or no more.
   [[nodiscard]] std::string hold() const;
   // Asks the broker for what it has of an earlier life; true when that has been told.
   [[nodiscard]] bool found();
   // Of a box at most once a minute.
   void complain( std::string const & box, std::string const & what );

   Parts const parts_;
   double now_ = 0;
   std::string clockTrouble_;
   std::string memoryTrouble_;
   double memoryToldAt_ = 0;                     // s, Unix time
   std::map<std::string, double> complainedAt_;  // likewise, by box
   Dispatcher dispatcher_;
   Rivals rivals_;
   std::string rival_;   // as of this turn
   bool asked_ = false;  // the broker for desired orders, as long as it is connected
   bool found_ = false;
   std::deque<std::string> toAsk_;  // boxes
   double askedAt_ = 0;             // s, Unix time, the last of them
   bool connected_ = false;
   std::string line_;
   double lineAt_ = 0;  // s, Unix time
};

}  // namespace Fleet

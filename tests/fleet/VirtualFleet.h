// A fleet on a virtual clock: the owner's dispatcher, an agent and a maintd for each box, and a broker between them
// that loses, repeats, reorders and delays what it is given. Owner and agents can die at any write to their memory, and
// start again with what was kept.
//
// It holds the promises against what really is the case, at every step: no group has more units out than its budget
// allows, no order is carried out twice, a unit that counts as back in service is in service, and no plan orders
// anything while a brake is on for one of its units. What does not hold is in `broken`, in words.
#pragma once

#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "BookLedger.h"
#include "box/BoxAgent.h"
#include "plan/Dispatcher.h"

namespace FleetTest {

using namespace Fleet;

// The program has died; what it has not kept is gone.
struct Death {};

// A memory that lives on when its owner dies, and that can kill it: before a write, or just after.
class MortalMemory final : public BookLedger {
 public:
   using BookLedger::commit;
   void commit( Changes const & changes, Records const & happened ) override;

   void restored( Rows rows ) { kept = std::move( rows ); }
   // From now on a write kills with this probability.
   double deadly = 0;
   std::mt19937 * random = nullptr;
   // Or the write that so many others come before kills, once.
   void deathIs( int writes, bool before ) {
      writesLeft_ = writes;
      before_ = before;
   }
   [[nodiscard]] bool died() const { return writesLeft_ < 0; }

 private:
   int writesLeft_ = std::numeric_limits<int>::max();
   bool before_ = false;
};

// What may go wrong, as probabilities a second or a message.
struct Trouble {
   double lost = 0;
   double repeated = 0;
   double mostDelay = 0.2;  // s
   double death = 0;        // of owner or agent, at a write
   double brokerGone = 0;   // for up to two minutes
   double boxOff = 0;       // agent and maintd, for up to two minutes
   double noAnswer = 0;     // of maintd, to a request
   double refusal = 0;      // by maintd
   double rollback = 0;     // by maintd, of a drain, a second
   double byHand = 0;       // somebody takes a unit out or back on the box, a second
   double neverQuiet = 0;   // of a drain: its traffic does not leave by itself
   double skew = 0;         // s, of a box's clock, at most
};

class VirtualFleet final : public Dispatcher::Outlet {
 public:
   VirtualFleet( std::string inventory, unsigned seed );
   ~VirtualFleet();

   Trouble trouble;

   // Lets time pass, in steps of half a second.
   void advance( double seconds );
   [[nodiscard]] double now() const { return now_; }

   // Null while it is dead.
   [[nodiscard]] Dispatcher * owner() const { return owner_.get(); }
   // A request to the owner; it may die of it. Refusals are thrown on.
   void ask( std::function<void( Dispatcher & )> const & what );
   [[nodiscard]] std::string plan( PlanRequest const & request );  // its id; empty when the owner died of it
   [[nodiscard]] Plan const & planOf( std::string const & id ) const;
   // Puts a brake on, or releases it, where that is not so already.
   void brakeIs( std::string const & site, bool on );
   // Has a unit of a site of which it was said that its brake is on.
   [[nodiscard]] bool isBraked( Plan const & plan ) const;

   // By hand, on the box.
   void trafficLeaves( std::string const & box );
   void trafficStays( std::string const & box );
   // Nothing is out that was taken out by hand, and traffic leaves.
   void tidied( std::string const & box );
   void boxIs( std::string const & box, bool on );
   void enteredByHand( UnitName const & unit );
   void exitedByHand( UnitName const & unit );
   [[nodiscard]] UnitState stateOf( UnitName const & unit ) const;
   // How often an order has sent it out.
   [[nodiscard]] int drainsOf( UnitName const & unit ) const;

   void brokerIs( bool there );
   void kill();  // the owner
   void killAgent( std::string const & box );
   MortalMemory & ownersMemory() { return memory_; }

   std::vector<std::string> log;     // what the owner has told
   std::vector<std::string> broken;  // promises

 private:
   class VirtualMaintd;
   struct VirtualBox;
   struct Letter {
      double due = 0;
      std::string box;  // whose desired or status it is
      std::string text;
      bool desired = false;
   };

   void desiredIs( Desired const & desired ) override;
   void told( std::string const & text ) override { log.push_back( text ); }

   bool happens( double probability );
   double upTo( double most );
   void step();
   void stepBroker();
   void stepBoxes();
   void stepOwner();
   void deliver();
   void post( Letter letter );
   void judge();
   void judgeClosed();
   void judgeBraked();

   std::mt19937 random_;
   std::string const inventory_;
   Inventory const known_;
   double now_ = 1'000'000'000;
   MortalMemory memory_;
   std::unique_ptr<Dispatcher> owner_;
   double ownerBack_ = 0;
   std::map<std::string, std::unique_ptr<VirtualBox>> boxes_;
   std::deque<Letter> letters_;
   std::map<std::string, std::string> desired_;  // as the broker has it
   bool broker_ = true;
   double brokerBack_ = 0;
   double ownerReaches_ = 0;       // the broker, from then on
   std::set<UnitName> open_;       // slots, at the last step
   std::set<std::string> brakes_;  // sites of which the owner has said that their brake is on
   uint64_t newest_ = 0;           // order that was judged
};

}  // namespace FleetTest

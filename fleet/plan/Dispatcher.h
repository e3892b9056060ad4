// The owner of the fleet: grants units leave to go out of service, within the budgets of all their groups, takes plans
// through their waves, and stops at any doubt.
//
//    requests --> Dispatcher --> Books (kept first) --> Orders that go out to the boxes
//    statuses -->
//
// A unit is *out* from the order that sends it out until fresh evidence says that it is back: a status that was made in
// knowledge of the newest order, of a unit that is in service and has nothing more to do. Whatever else is the case, as
// that its box was not heard for three heartbeats, it is out. A grant is judged and kept in one step, over all groups
// of the unit, so that two that would not fit together cannot both be given.
//
// Time is handed in and need not be exact; it must not be more than a minute from the boxes' own.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "plan/Books.h"
#include "plan/Event.h"
#include "plan/Standing.h"

namespace Fleet {

class Dispatcher {
 public:
   // What goes out, after it is kept. Called from inside whatever changed it.
   struct Outlet {
      virtual void desiredIs( Desired const & desired ) = 0;
      // For the log and for people: what was decided and why.
      virtual void told( std::string const & text ) = 0;

    protected:
      ~Outlet() = default;
   };

   static constexpr double orderSeconds = 120;  // an order that no box has begun by then is never begun
   static constexpr int silentHeartbeats = 3;
   static constexpr double lateSeconds = 60;  // what comes from an agent that has gone is no later than that

   // Orders of an earlier life go out again with the first turn. Throws MemoryFault.
   Dispatcher( Inventory inventory, Ledger & memory, Outlet & outlet );

   // Throws nothing: units that are no longer in it keep their slots, and plans that have them stop.
   void inventoryIs( Inventory inventory );
   // Of the inventory's boxes only; older ones than the last change nothing. True when it was taken. One of an earlier
   // life, long after a later one, is from a second machine that says that it is this box: then neither is believed.
   bool statusIs( Status const & status, double now );
   // What the broker has of an earlier life, as it is found there.
   void desiredFound( Desired const & desired );
   // Why nothing may be ordered now, whatever the books say, as that another owner is there; empty when it may.
   void holdIs( std::string const & why ) { hold_ = why; }
   // Whether boxes can be reached at all: nothing is granted while they cannot.
   void reachableIs( bool reachable, double now );
   // Decides all that time and statuses have brought about. Once a second, and after a request. Throws MemoryFault;
   // then nothing has been decided.
   void turn( double now );

   // Requests, each kept when it returns. All throw Refused, with nothing changed, or MemoryFault.
   [[nodiscard]] std::string planMade( PlanRequest const & request, double now );  // its id
   void planPaused( std::string const & id, std::string const & by, double now );
   // `without`: units that it leaves as they are and goes on without.
   void planResumed( std::string const & id, std::vector<UnitName> const & without, std::string const & by,
                     double now );
   // It orders nothing more; what is out stays out.
   void planCancelled( std::string const & id, std::string const & by, double now );
   // Back to service, whoever has sent them out.
   void returned( std::vector<UnitName> const & units, std::string const & by, double now );
   // Stops every plan that has a unit of the site; "" is every site. They go on when it is gone and somebody resumes
   // them.
   void braked( std::string const & site, std::string const & by, double now );
   void unbraked( std::string const & site, std::string const & by, double now );
   // The books are older than the fleet: a person has looked, and goes on with them. What was ordered since is
   // withdrawn, and its units count as out until they are seen in service.
   void doubtAccepted( std::string const & by, double now );

   [[nodiscard]] std::vector<Room> roomFor( std::vector<UnitName> const & units, double now ) const;
   [[nodiscard]] Standing standing( UnitName const & unit, double now ) const;
   // What a plan waits for, a sentence each; empty when it is over.
   [[nodiscard]] std::vector<std::string> waitsFor( Plan const & plan, double now ) const;
   // Why nothing is ordered at all; empty when nothing speaks against it.
   [[nodiscard]] std::string const & doubt() const { return hold_.empty() ? oldBooks_ : hold_; }

   [[nodiscard]] Inventory const & inventory() const { return inventory_; }
   [[nodiscard]] Books const & books() const { return books_; }
   struct Heard {
      Status status = {};
      double at = 0;                    // s, Unix time
      double lifeAt = 0;                // likewise, the first of this life of its agent
      std::optional<double> otherAt{};  // likewise, the last of another agent by its name
   };
   [[nodiscard]] Heard const * heard( std::string const & box ) const;  // null: never, in this life
   // Why what a box has said is not to be believed; empty where it is.
   [[nodiscard]] std::string troubleOf( Heard const & heard, double now ) const;

 private:
   // What the evidence says of a step: nothing yet, that it is over, or what the plan is to be paused for.
   struct Finding {
      bool over = false;
      std::string fault;
   };
   // How many of each group are out. Counted once for all that is decided in a turn.
   using Census = std::map<Group const *, std::size_t>;

   [[nodiscard]] UnitStatus const * statusOf( UnitName const & unit ) const;
   [[nodiscard]] std::string silence( std::string const & box, double now ) const;
   // Another machine says that it is this box, too.
   [[nodiscard]] bool isDoubled( Heard const & heard, double now ) const;
   // Whether boxes that are silent may be so because nobody could hear them.
   [[nodiscard]] bool listening( double now ) const;
   [[nodiscard]] std::string brakeOn( UnitName const & unit ) const;
   [[nodiscard]] std::vector<std::string> brakesOn( Plan const & plan ) const;
   [[nodiscard]] Plan planUnderWay( std::string const & id ) const;
   [[nodiscard]] Census censusAt( double now ) const;
   [[nodiscard]] std::vector<UnitName> outOf( Group const & group, double now ) const;
   [[nodiscard]] std::string listed( std::vector<UnitName> const & units, double now ) const;
   // The group that has no room for one more, and who takes it; empty when there is none.
   [[nodiscard]] std::string fullGroup( UnitName const & unit, Census const & census, double now ) const;
   [[nodiscard]] std::string standingOfSlot( Slot const & slot, UnitStatus const & unit ) const;

   // Why an order is given: for a plan, or because somebody has asked.
   struct Cause {
      std::string plan;                       // empty: for none
      std::string by;                         // who
      PlanRequest const * request = nullptr;  // null: nothing was asked for but that
   };
   void order( UnitName const & unit, Want want, Cause const & cause, std::vector<Event::Filled> budgets, double now );
   void noteOutcomes();
   void closeSlots( double now );
   void advance( Plan & plan, Census & census, double now );
   void advanceWave( Plan & plan, Census & census, double now );
   void advanceSoak( Plan & plan, double now );
   // Takes an order further along its way; what the plan is to be paused for, or empty.
   [[nodiscard]] std::string advanceMember( Plan const & plan, Member & member, double now );
   [[nodiscard]] std::string grant( Plan const & plan, Member & member, Census & census, double now );
   [[nodiscard]] Finding find( Plan const & plan, Member const & member, double now ) const;
   [[nodiscard]] std::string faultOf( UnitName const & unit, double now ) const;
   [[nodiscard]] Step stepAnew( Plan const & plan, Member const & member, double now );
   void forgetOldPlans();
   void pause( Plan & plan, std::string const & why, std::string const & by );
   void keep( double now );
   void send( double now );
   void noteSeen( UnitName const & unit, uint64_t number, std::string const & where );

   Inventory inventory_;
   Books books_;
   Outlet & outlet_;
   std::map<std::string, Heard> heard_;           // by box
   std::map<std::string, double> sentAt_;         // s, Unix time, when a box's orders went out last
   std::set<std::string> unsent_;                 // boxes with orders that did not go out yet
   std::map<UnitName, uint64_t> unknownNumbers_;  // that boxes have seen and the books have not
   bool reachable_ = false;
   double reachableSince_ = 0;  // s, Unix time
   std::string hold_;
   std::string oldBooks_;       // by what it is known that the books are older than the fleet; empty when they are not
   std::vector<Event> toTell_;  // of what is being decided; told when that is kept
};

}  // namespace Fleet

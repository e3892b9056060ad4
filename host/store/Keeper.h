// Keeps the persistent part of the state database in the store (store/Records.h says which).
//
// Owned by the agent. The constructor puts back what an earlier agent kept, before anybody else looks at the database.
// From then on every change is noted as it is made, and written at the end of the turn in one transaction; keep() does
// so at once, for whoever is about to do something that must be on record first. What changes with every sample (rates,
// counters) does not cause a transaction by itself: it goes along with its record's next change, at the latest after
// ten seconds; nor does the keeper hear of it again until then. The rates of windows are rewritten every five minutes,
// each interface's at a time of its own, so that no turn writes them all; and all of a window's when one of its stages
// or the window ends.
//
// Where the store cannot be written, nothing is lost but on disk: what is noted stays noted, the reason is told, and it
// is tried again with a pause that grows to ten seconds. Until then keep() answers false, requests are refused and no
// link is touched. The first failure of all comes at the end of a turn, or in keep(): whoever answers a request asks
// trouble() after the turn.
//
// Rows that fit no record are refused, unknown attributes too: nobody knows what a later maintd meant by them. What a
// record has in addition to its row stays as it is made.
//
// Times in the records are those of the agent's clock, which goes on over a restart of the machine: clockShift() says
// by how much it is ahead of the kernel's.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "dovra/EntityManager.h"
#include "store/Store.h"

namespace Host {

class Keeper {
 public:
   struct Parts {
      Kel::Ptr<Dovra::EntityManager> database;
      Store & store;                                         // outlives this
      std::function<void( std::string const & text )> tell;  // trouble, and its end
      std::function<void()> writable;                        // it can be written again
      std::function<double()> wallTime;                      // s, Unix time
      std::string boot;                                      // identity of this boot of the machine
      double clockShift = 0;                                 // s, as below
   };

   // What is to be added to the kernel's CLOCK_BOOTTIME so that times kept in the store stay in the past, as far back
   // as the wall clock says they are; in the boot in which the store was written last what it was then, and 0 for a new
   // store. A wall clock that has gone back counts as one that stood still.
   [[nodiscard]] static double clockShift( Store::Moment const & kept, std::string const & boot, double bootTime,
                                           double wallTime );

   // Throws StoreError for what it cannot put back; the database is of no use then. Made where the activity loop is.
   explicit Keeper( Parts parts );
   // Writes what is left to write, if it can, and notes nothing from here on: what a teardown writes afterwards does
   // not reach the store.
   ~Keeper();

   // Everything noted so far is on disk when it returns true. While there is trouble it does not try.
   [[nodiscard]] bool keep();
   // Why it cannot; empty when it can.
   [[nodiscard]] std::string const & trouble() const;

 private:
   class Impl;
   std::unique_ptr<Impl> const impl_;
};

}  // namespace Host

// The stage manager's pen in the windows: opens one per stay, notes each stage as it begins and ends, closes it, and
// drops the oldest when there are too many.
//
// Owned by the stage manager, which alone calls it. What happened to the interfaces meanwhile is written by the Ledger.
// Every write here may run anyone's handler, so whoever calls this has finished its own bookkeeping.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "evidence/Ledger.h"
#include "state/MaintenanceState.h"

namespace Service {

class WindowBook {
 public:
   using Op = Maintenance::Unit::MaintenanceOp;

   // Whether a window that has ended is needed all the same, because its unit is still on its way out.
   using Needed = std::function<bool( Evidence::Window const & )>;

   // All outlive this.
   WindowBook( Maintenance::MaintenanceState const & state, Evidence::Ledger & ledger, Needed needed )
      : state_( state ), ledger_( ledger ), needed_( std::move( needed ) ) {}

   // A window that begins now; nobody sees it before it is added.
   [[nodiscard]] static Kel::Ptr<Evidence::Window> make( Kel::Name const & unit, uint32_t generation );
   void add( Kel::Ptr<Evidence::Window> const & window );
   // Interfaces that the window does not have yet are added; those to be left out are, the others stay as they were.
   void intfsAre( Evidence::Window & window, std::vector<Lumo::IntfId> const & intfs,
                  std::set<Lumo::IntfId> const & leftOut );
   [[nodiscard]] static std::set<Lumo::IntfId> leftOut( Evidence::Window const & window );

   // The unit's window of the highest generation; null when none is kept.
   [[nodiscard]] Kel::Ptr<Evidence::Window> last( Kel::Name const & unit ) const;

   // The number that the next stage of the window will have.
   [[nodiscard]] static uint32_t nextRun( Evidence::Window const & window ) {
      return static_cast<uint32_t>( window.stageRuns() );
   }
   static void stageBegins( Evidence::Window & window, Kel::String8 const & stage, Op op );
   static void deadlinePassed( Evidence::Window & window, uint32_t run );
   // Its hook has failed.
   static void hookFailed( Evidence::Window & window, uint32_t run, std::string const & why );
   // The verdicts of the moment, as those of the stage with that number.
   void noteVerdicts( Evidence::Window & window, uint32_t run );
   // With the verdicts of its end; those of a stage of the exit are of its beginning, when somebody still wanted proof.
   void stageEnds( Evidence::Window & window, uint32_t run, Evidence::StageResult result );

   // Ends it; one that has ended stays as it is.
   void end( Evidence::Window & window, Evidence::Outcome outcome );

   [[nodiscard]] std::vector<Kel::Ptr<Evidence::Window>> underway() const;

 private:
   [[nodiscard]] Kel::Ptr<Evidence::WindowDir> const & dir() const { return ledger_.windows(); }
   void dropOldest();

   Maintenance::MaintenanceState const & state_;
   Evidence::Ledger & ledger_;
   Needed const needed_;
};

}  // namespace Service

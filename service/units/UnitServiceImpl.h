// The inside of the stage manager: what is under way, and how it goes on. For the sources of UnitService only.
//
// Each unit on its way in or out has one instance here. It stands in the table before the first write that tells of it
// and is taken out before the last, and every write may run a handler that asks for something else: so whatever has
// more to do after a write asks first whether its instance is still the unit's.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kel/ReactorMap.h"
#include "state/TurnEndRank.h"
#include "units/UnitService.h"
#include "units/WindowBook.h"

namespace Service {

class UnitService::Impl final {
 public:
   explicit Impl( Parts const & parts );
   Impl( Impl const & ) = delete;
   Impl & operator=( Impl const & ) = delete;
   ~Impl();

   Answer enter( std::string const & unit, std::vector<std::string> const & without, std::string const & requestedBy );
   Answer exit( std::string const & unit, std::string const & requestedBy );
   [[nodiscard]] Answer wouldEnter( std::string const & unit, std::vector<std::string> const & without ) const;
   [[nodiscard]] std::string neverProven( Lumo::IntfId intf ) const;
   [[nodiscard]] std::vector<Lumo::IntfId> shutBy( std::string const & unit,
                                                   std::vector<std::string> const & without ) const;
   [[nodiscard]] std::string neverShut( Lumo::IntfId intf ) const;
   [[nodiscard]] std::string stage( Kel::Name const & unit ) const;
   [[nodiscard]] Kel::Ptr<Evidence::Window const> window( Kel::Name const & unit ) const { return book_.last( unit ); }
   [[nodiscard]] std::vector<std::string> refusals( Config::Config const & config ) const;
   void handleConfig();

 private:
   using Op = Maintenance::Unit::MaintenanceOp;
   using State = Maintenance::Unit::State;
   using Ended = Evidence::Outcome;
   class Advance;
   class KelComplete;
   class KelUnits;
   class KelUnit;
   class KelAccounts;
   class KelUnitAccounts;
   class Deadline;

   enum class Hook { none, toRun, running, over };

   // One stage instance. Its list of stages is that of the configuration with which it was started.
   struct Instance {
      Kel::Name unit;
      Op op;
      uint32_t generation;
      Kel::Name name;
      std::vector<Config::Stage> stages;
      Kel::Ptr<Evidence::Window> window;
      std::size_t at = 0;           // in stages: the one that runs, or the next to begin
      std::optional<uint32_t> run;  // number in the window of the stage that runs; none between two stages
      Hook hook = Hook::none;
      std::string failure;              // of a hook that is over; empty when it succeeded
      unsigned failures = 0;            // of the stage's hook, while it is run again and again
      double runAgain = 0;              // s; the hook is not run before
      double deadline = Kel::never;     // s; `never` also when it has passed and the stage goes on
      std::unique_ptr<Deadline> timer;  // for the deadline, or for the hook's next run
   };
   using InstancePtr = std::shared_ptr<Instance>;

   // Requests.
   void objectTo( std::string const & unit, std::vector<std::string> const & without, bool alsoToLinks,
                  std::vector<std::string> & why ) const;
   void startEnter( Maintenance::Unit::Status & record, Answer & answer, std::vector<std::string> const & without,
                    std::string const & requestedBy );
   void leaveOut( std::string const & unit, std::vector<std::string> const & without, std::string const & requestedBy );
   [[nodiscard]] std::set<Lumo::IntfId> intfsNamed( std::vector<std::string> const & names ) const;
   void intfsAre( Kel::Name const & unit, Evidence::Window & window, std::set<Lumo::IntfId> const & leftOut );
   // With the generation that the unit has now.
   void tell( EventKind kind, Kel::Name const & unit, std::string const & text,
              Severity severity = Severity::notice ) const;

   // Instances.
   [[nodiscard]] InstancePtr find( Kel::Name const & unit ) const;
   [[nodiscard]] bool current( InstancePtr const & i ) const { return find( i->unit ) == i; }
   [[nodiscard]] uint32_t nextGeneration( Maintenance::Unit::Status const & unit ) const;
   InstancePtr newInstance( Maintenance::Unit::Status & unit, Op op, Kel::Ptr<Evidence::Window> const & window );
   void start( InstancePtr const & i );
   void giveUp( Instance & former );
   void stateIs( Instance const & i, State state );
   void removeInstance( Instance const & i );
   [[nodiscard]] Maintenance::StageState & stageState( Op op ) const;
   [[nodiscard]] std::vector<Config::Stage> const & stagesOf( Op op ) const;

   // Stages.
   void advance();
   void advance( InstancePtr const & i );
   void beginStage( InstancePtr const & i );
   void runHook( InstancePtr const & i );
   void giveUpHook( Instance & i );
   void armDeadline( Instance & i, double began );
   [[nodiscard]] bool stageOver( Instance const & i );
   void passDeadline( InstancePtr const & i );
   void handleHookFailure( InstancePtr const & i, Evidence::StageResult result, std::string const & why );
   void runHookAgain( InstancePtr const & i, bool late );
   void endStage( InstancePtr const & i, Evidence::StageResult result );
   void goOn( InstancePtr const & i, Evidence::StageResult result );
   void bringBack( InstancePtr const & i, Evidence::StageResult result );
   void finish( InstancePtr const & i );
   void finishEnter( InstancePtr const & i );
   void finishExit( InstancePtr const & i );
   void fail( InstancePtr const & i );
   [[nodiscard]] static Evidence::Outcome outcomeOf( Evidence::Window const & window );

   // After a restart.
   void restore();
   void restore( Maintenance::Unit::Status & unit );
   InstancePtr restoredInstance( Maintenance::Unit::Status const & unit, Op op,
                                 Kel::Ptr<Evidence::Window> const & window );
   void restoreEntering( Maintenance::Unit::Status & unit );
   void restoreLeaving( Maintenance::Unit::Status & unit );
   Kel::Ptr<Evidence::Window> inventedWindow( Maintenance::Unit::Status const & unit );
   void findPlace( Instance & i );
   void goOnAfterRestart( Instance & i );
   [[nodiscard]] static bool rateMonHasEnded( Evidence::Window const & window );
   void keepRateMon( Instance const & i );
   void abandonWindows();
   void removeStrayInstances();

   void handleUnitDel( Kel::Name const & unit );
   void handleReady( Evidence::UnitAccounts const & unit );
   void handleDisturbed( Evidence::UnitAccounts const & unit );

   Parts const parts_;
   WindowBook book_;
   std::map<Kel::Name, InstancePtr> running_;
   bool restoring_ = true;  // until what an earlier service left has been taken up
   std::unique_ptr<Advance> const advance_;
   Kel::ReactorMap<KelUnit, Kel::String8, Impl> unit_;
   Kel::ReactorMap<KelUnitAccounts, Kel::Name, Impl> unitAccounts_;
   std::unique_ptr<KelUnits> units_;
   std::unique_ptr<KelAccounts> accounts_;
   std::unique_ptr<KelComplete> enterComplete_;
   std::unique_ptr<KelComplete> exitComplete_;
};

// Stages go on at the end of the turn, when the accounts have been judged.
class UnitService::Impl::Advance final : public Kel::TurnEnd {
 public:
   explicit Advance( Impl & owner ) : TurnEnd( Maintenance::stagesGoOn ), owner_( owner ) {}
   void onTurnEnd() override { owner_.advance(); }

 private:
   Impl & owner_;
};

class UnitService::Impl::Deadline final : public Kel::Clock::NotifieeConst {
 public:
   explicit Deadline( Advance & advance )
      : NotifieeConst( Kel::activityManager().config().clock() ), advance_( advance ) {}
   void onTimeMin() override { advance_.due(); }

 private:
   Advance & advance_;
};

// By whom a unit is brought back that nobody asked to leave.
inline constexpr char const * ownName = "maintd";

}  // namespace Service

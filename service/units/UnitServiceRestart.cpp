// What an earlier service left under way, taken up again. All of it happens before the plug-in is loaded, so that the
// plug-in finds each unit as it is to go on. Hooks are run anew; nothing of them is run before the first turn's end.
#include <algorithm>

#include "records/Names.h"
#include "units/UnitServiceImpl.h"

namespace Service {

using Evidence::StageResult;
using Evidence::StageRun;
using Evidence::Window;
using Maintenance::Unit::Status;

void UnitService::Impl::restore() {
   for( auto [name, unit] : parts_.state.unitStatus->statusIterator() ) restore( *unit );
   abandonWindows();
   removeStrayInstances();
   // Here already, and not at the end of a turn, what has become of stages meanwhile: the plug-in is to find the stage
   // that goes on.
   advance();
   restoring_ = false;
   advance_->due();
}

void UnitService::Impl::restore( Status & unit ) {
   switch( unit.state() ) {
      case State::entering: return restoreEntering( unit );
      case State::leaving: return restoreLeaving( unit );
      case State::inMaintenance: {
         auto window = book_.last( unit.unitName() );
         if( !window || window->outcome() != Ended::underway ) {
            window = inventedWindow( unit );
            window->enteredIs( Kel::now() );
         }
         return intfsAre( unit.unitName(), *window, {} );
      }
      case State::unknown:
      case State::active:
      case State::failed: return;
   }
}

// For a unit whose window is not there. Nobody knows who asked and when.
Kel::Ptr<Window> UnitService::Impl::inventedWindow( Status const & unit ) {
   auto const window = WindowBook::make( unit.unitName(), unit.genId() );
   if( parts_.wallClockOffset ) window->wallClockOffsetIs( parts_.wallClockOffset() );
   book_.add( window );
   return window;
}

UnitService::Impl::InstancePtr UnitService::Impl::restoredInstance( Status const & unit, Op op,
                                                                    Kel::Ptr<Window> const & window ) {
   auto const i = std::make_shared<Instance>();
   i->unit = unit.unitName();
   i->op = op;
   i->generation = unit.genId();
   i->name = op == Op::enter ? unit.maintEnterInstanceName() : unit.maintExitInstanceName();
   i->stages = stagesOf( op );
   i->window = window;
   running_[i->unit] = i;
   intfsAre( i->unit, *window, {} );
   return i;
}

void UnitService::Impl::restoreEntering( Status & unit ) {
   auto window = book_.last( unit.unitName() );
   bool const known = window && window->outcome() == Ended::underway;
   if( !known ) window = inventedWindow( unit );
   auto const i = restoredInstance( unit, Op::enter, window );
   // Without its window nobody knows how far it has come, nor what was left out: out again.
   if( !known ) {
      exit( i->unit.str(), ownName );
      return;
   }
   findPlace( *i );
   goOnAfterRestart( *i );
}

void UnitService::Impl::restoreLeaving( Status & unit ) {
   auto window = book_.last( unit.unitName() );
   if( !window ) window = inventedWindow( unit );
   auto const i = restoredInstance( unit, Op::exit, window );
   findPlace( *i );
   goOnAfterRestart( *i );
}

// The stage that runs, by its name, as the list may be another one now; where it is not there any more, the one after
// the last that has ended.
void UnitService::Impl::findPlace( Instance & i ) {
   auto const place = [&]( StageRun const & run ) {
      return static_cast<std::size_t>( std::ranges::find( i.stages, run.stage.str(), &Config::Stage::name ) -
                                       i.stages.begin() );
   };
   for( uint32_t number = WindowBook::nextRun( *i.window ); number-- > 0; ) {
      StageRun const run = *i.window->stageRun( number );
      if( run.op != i.op ) return;
      std::size_t const at = place( run );
      bool const running = run.result == StageResult::running;
      if( at < i.stages.size() ) {
         i.at = running ? at : at + 1;
         if( running ) i.run = number;
         return;
      }
      if( running ) book_.stageEnds( *i.window, number, StageResult::givenUp );
   }
}

void UnitService::Impl::goOnAfterRestart( Instance & i ) {
   auto const & records = stageState( i.op );
   records.completion->statusIs( i.name );
   if( i.run ) {
      StageRun const run = *i.window->stageRun( *i.run );
      Config::Stage const & stage = i.stages[i.at];
      if( !stage.run.empty() ) i.hook = Hook::toRun;
      // One that is held has its time anew each time that it is run.
      if( !run.why.empty() ) i.failures = 1;
      // A clock that was started anew, with the machine, tells nothing of the time before: the stage has all its time
      // once more.
      if( run.deadlinePassed == 0 ) armDeadline( i, std::min( run.began, Kel::now() ) );
      records.progress->progressIs( i.name )->stageIs( run.stage, true );
   }
   if( i.op == Op::exit ) return;
   if( rateMonHasEnded( *i.window ) ) keepRateMon( i );
}

bool UnitService::Impl::rateMonHasEnded( Window const & window ) {
   for( auto [number, run] : window.stageRunIteratorConst() ) {
      bool const ended = run.op == Op::enter && run.result != StageResult::running;
      if( ended && run.stage == Maintenance::rateMonStage ) return true;
   }
   return false;
}

// So that the plug-in monitors and holds the unit's interfaces as before. Its mark counts no more.
void UnitService::Impl::keepRateMon( Instance const & i ) {
   stageState( i.op ).progress->progressIs( i.name )->stageIs( Kel::String8( Maintenance::rateMonStage ), true );
}

// Windows that no unit is in: the configuration has taken it away.
void UnitService::Impl::abandonWindows() {
   for( auto const & window : book_.underway() ) {
      auto const unit = parts_.state.unitStatus->status( window->unit() );
      bool const staying = find( window->unit() ) || ( unit && unit->state() == State::inMaintenance );
      if( staying && book_.last( window->unit() ) == window ) continue;
      book_.end( *window, Ended::abandoned );
   }
}

// A configuration takes away only units that are active. Whoever else deletes the record of one ends its stay.
void UnitService::Impl::handleUnitDel( Kel::Name const & unit ) {
   InstancePtr const i = find( unit );
   running_.erase( unit );
   abandonWindows();
   parts_.ledger.unitDel( unit );
   if( !i ) return;
   i->timer.reset();
   giveUpHook( *i );
   removeInstance( *i );
}

// Records of instances that are nobody's.
void UnitService::Impl::removeStrayInstances() {
   auto const stray = [this]( Op op, Kel::Name const & name ) {
      return std::ranges::none_of(
         running_, [&]( auto const & entry ) { return entry.second->op == op && entry.second->name == name; } );
   };
   for( Op const op : { Op::enter, Op::exit } ) {
      auto const & records = stageState( op );
      for( auto [name, progress] : records.progress->progressIterator() ) {
         if( stray( op, name ) ) records.progress->progressDel( name );
      }
      for( auto [name, status] : records.completion->statusIterator() ) {
         if( stray( op, name ) ) records.completion->statusDel( name );
      }
   }
}

}  // namespace Service

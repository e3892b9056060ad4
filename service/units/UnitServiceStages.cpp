// How an instance goes on from stage to stage, and what becomes of the unit at its end.
#include <algorithm>
#include <cmath>

#include "kel/QuantityText.h"
#include "records/Names.h"
#include "units/UnitServiceImpl.h"

namespace Service {

using Evidence::StageResult;
using Evidence::Window;
using Kel::durationText;

static_assert( Config::rateMonStage == Maintenance::rateMonStage, "the file names the stage that the plug-in serves" );

UnitService::Impl::InstancePtr UnitService::Impl::find( Kel::Name const & unit ) const {
   auto const found = running_.find( unit );
   return found == running_.end() ? nullptr : found->second;
}

Maintenance::StageState & UnitService::Impl::stageState( Op op ) const {
   return op == Op::enter ? parts_.state.enter : parts_.state.exit;
}

std::vector<Config::Stage> const & UnitService::Impl::stagesOf( Op op ) const {
   auto const & lists = parts_.config.config().stages;
   return op == Op::enter ? lists.maintEnter : lists.maintExit;
}

std::string UnitService::Impl::stage( Kel::Name const & unit ) const {
   auto const i = find( unit );
   return i && i->run ? i->stages[i->at].name : "";
}

// A unit that was taken out of the configuration and put back in has windows, by whose generations they are named.
uint32_t UnitService::Impl::nextGeneration( Maintenance::Unit::Status const & unit ) const {
   auto const window = book_.last( unit.unitName() );
   return std::max( unit.genId(), window ? std::max( window->generation(), window->exitGeneration() ) : 0 ) + 1;
}

// In the table, in the place of one that is there, and with its generation in the unit's record.
UnitService::Impl::InstancePtr UnitService::Impl::newInstance( Maintenance::Unit::Status & unit, Op op,
                                                               Kel::Ptr<Window> const & window ) {
   auto const i = std::make_shared<Instance>();
   i->unit = unit.unitName();
   i->op = op;
   i->generation = nextGeneration( unit );
   i->name = Maintenance::Unit::StageMgrInstKey( i->unit, i->generation ).instanceName();
   i->stages = stagesOf( op );
   i->window = window;
   // First, so that whoever is told of what is written now, and asks for something himself, finds it under way.
   running_[i->unit] = i;
   unit.genIdIs( i->generation );
   if( op == Op::enter ) {
      unit.maintEnterInstanceNameIs( i->name );
   } else {
      unit.maintExitInstanceNameIs( i->name );
   }
   return i;
}

void UnitService::Impl::start( InstancePtr const & i ) {
   // Of the generation, the instance and the state only the state notifies, and whoever hears of it reads the others.
   stateIs( *i, i->op == Op::enter ? State::entering : State::leaving );
   // After the state, by which units take precedence, and before the stage: the monitors that it starts, or leaves to
   // other units, take the profile that is selected then.
   parts_.config.selectProfiles();
   if( !current( i ) ) return;
   // Completion status first: the plug-in may mark the stage within the write of the progress record, and a mark whose
   // instance has no status looks like one that was left behind.
   stageState( i->op ).completion->statusIs( i->name );
   if( current( i ) ) beginStage( i );
}

// Of a unit whose record a handler has taken away there is no state to write.
void UnitService::Impl::stateIs( Instance const & i, State state ) {
   if( auto const unit = parts_.state.unitStatus->status( i.unit ) ) unit->stateIs( state );
}

void UnitService::Impl::removeInstance( Instance const & i ) {
   // The other way round: without the progress record nothing is marked any more, so the mark that the plug-in takes
   // back with the completion status is the last.
   stageState( i.op ).progress->progressDel( i.name );
   stageState( i.op ).completion->statusDel( i.name );
}

// What another instance has taken the place of.
void UnitService::Impl::giveUp( Instance & former ) {
   former.timer.reset();
   auto const run = std::exchange( former.run, std::nullopt );
   giveUpHook( former );
   if( run ) {
      parts_.ledger.ready( former.unit );  // for verdicts of this moment
      book_.stageEnds( *former.window, *run, StageResult::givenUp );
      tell( EventKind::stage, former.unit, former.stages[former.at].name + ": given up" );
   }
   removeInstance( former );
}

void UnitService::Impl::giveUpHook( Instance & i ) {
   if( std::exchange( i.hook, Hook::none ) == Hook::running ) parts_.hooks.giveUp( i.unit.str() );
}

void UnitService::Impl::advance() {
   // Not in a walk through the table: what is done for one may start or end another.
   std::vector<InstancePtr> all;
   for( auto const & [unit, i] : running_ ) all.push_back( i );
   for( InstancePtr const & i : all ) {
      if( current( i ) ) advance( i );
   }
}

void UnitService::Impl::advance( InstancePtr const & i ) {
   if( !i->run ) return i->at < i->stages.size() ? beginStage( i ) : finish( i );
   if( i->hook == Hook::toRun && !restoring_ && Kel::now() >= i->runAgain ) runHook( i );
   if( !current( i ) || !i->run ) return;
   // Whether it is over comes before its deadline: a stage that is over at that very moment is over.
   if( stageOver( *i ) ) return goOn( i, StageResult::done );
   if( i->hook == Hook::over ) return handleHookFailure( i, StageResult::failed, i->failure );
   if( Kel::now() >= i->deadline ) passDeadline( i );
}

void UnitService::Impl::beginStage( InstancePtr const & i ) {
   Config::Stage const & stage = i->stages[i->at];
   Kel::String8 const name( stage.name );
   i->hook = stage.run.empty() ? Hook::none : Hook::toRun;
   i->failure.clear();
   i->failures = 0;
   i->runAgain = 0;
   i->run = WindowBook::nextRun( *i->window );
   armDeadline( *i, Kel::now() );
   // It may be over at once; a hook is run then, too, when all that is written here has been heard.
   advance_->due();
   WindowBook::stageBegins( *i->window, name, i->op );
   tell( EventKind::stage, i->unit, stage.name + ": begins" );
   if( !current( i ) ) return;
   auto const progress = stageState( i->op ).progress->progressIs( i->name );
   if( current( i ) ) progress->stageIs( name, true );
   if( restoring_ && i->op == Op::enter && rateMonHasEnded( *i->window ) ) keepRateMon( *i );
}

void UnitService::Impl::armDeadline( Instance & i, double began ) {
   auto const & timeout = i.stages[i.at].timeoutSeconds;
   i.deadline = timeout ? began + *timeout : Kel::never;
   i.timer.reset();
   if( !timeout ) return;
   i.timer = std::make_unique<Deadline>( *advance_ );
   i.timer->timeMinIs( i.deadline );
}

void UnitService::Impl::runHook( InstancePtr const & i ) {
   i->hook = Hook::running;
   Config::Stage const & stage = i->stages[i->at];
   if( i->failures > 0 ) armDeadline( *i, Kel::now() );
   // The instance is kept no longer than the table keeps it, and the run tells one hook of it from the next.
   auto const done = [this, weak = std::weak_ptr( i ), run = i->run]( std::string const & failure ) {
      auto const instance = weak.lock();
      if( !instance || instance->run != run || instance->hook != Hook::running ) return;
      instance->hook = Hook::over;
      instance->failure = failure;
      advance_->due();
   };
   parts_.hooks.run( { stage.name, stage.run, i->unit.str(), i->op, i->generation }, done );
}

// Whether the stage that runs is done.
bool UnitService::Impl::stageOver( Instance const & i ) {
   Config::Stage const & stage = i.stages[i.at];
   if( !stage.run.empty() ) return i.hook == Hook::over && i.failure.empty();
   if( stage.name == Maintenance::verifyStage ) return parts_.ledger.ready( i.unit );
   Stage::AgentStatusKey const mark{ Kel::String8( stage.name ), i.name };
   return stageState( i.op ).agentStatus->complete( mark ) != nullptr;
}

void UnitService::Impl::passDeadline( InstancePtr const & i ) {
   Config::Stage const & stage = i->stages[i->at];
   std::string const late = "not over after " + durationText( *stage.timeoutSeconds );
   i->deadline = Kel::never;
   if( !stage.run.empty() ) return handleHookFailure( i, StageResult::timedOut, late );
   auto const tellOf = [&]( char const * what ) {
      tell( EventKind::deadline, i->unit, stage.name + " is " + late + ": " + what, Severity::warning );
   };
   switch( stage.onTimeout ) {
      case Config::OnTimeout::hold:
         WindowBook::deadlinePassed( *i->window, *i->run );
         return tellOf( "it goes on waiting" );
      case Config::OnTimeout::proceed:
         tellOf( "the unit goes on without it" );
         if( current( i ) ) goOn( i, StageResult::timedOut );
         return;
      case Config::OnTimeout::rollback:
         tellOf( "the unit is brought back" );
         if( current( i ) ) bringBack( i, StageResult::timedOut );
         return;
   }
}

// It has ended badly, or is ended because it takes too long. On the way out holding would leave the unit where nobody
// can ask it for anything, so it fails; an operator who has mended the cause has it leave once more.
void UnitService::Impl::handleHookFailure( InstancePtr const & i, StageResult result, std::string const & why ) {
   auto const onTimeout = i->stages[i->at].onTimeout;
   bool const held = onTimeout == Config::OnTimeout::hold && i->op == Op::enter;
   bool const goesOn = onTimeout == Config::OnTimeout::proceed;
   bool const late = result == StageResult::timedOut;
   i->failure = why;
   giveUpHook( *i );
   WindowBook::hookFailed( *i->window, *i->run, why );
   if( held ) return current( i ) ? runHookAgain( i, late ) : void();
   if( late ) {
      char const * const what = goesOn               ? "the unit goes on without it"
                                : i->op == Op::enter ? "the unit is brought back"
                                                     : "the unit fails";
      tell( EventKind::deadline, i->unit, i->stages[i->at].name + " is " + why + ": " + what, Severity::warning );
   }
   if( !current( i ) ) return;
   if( goesOn ) return goOn( i, result );
   bringBack( i, result );
}

// Soon at first, as what it needs may just be starting, and more and more seldom, up to every five minutes.
void UnitService::Impl::runHookAgain( InstancePtr const & i, bool late ) {
   double const pause = std::min( 300.0, 10 * std::exp2( std::min( i->failures++, 5U ) ) );
   i->runAgain = Kel::now() + pause;
   i->hook = Hook::toRun;
   i->deadline = Kel::never;
   i->timer = std::make_unique<Deadline>( *advance_ );
   i->timer->timeMinIs( i->runAgain );
   if( late ) WindowBook::deadlinePassed( *i->window, *i->run );
   tell( late ? EventKind::deadline : EventKind::stage, i->unit,
         i->stages[i->at].name + ": " + i->failure + ": it is run again in " + durationText( pause ),
         Severity::warning );
}

// The stage that runs is over, and the unit goes on.
void UnitService::Impl::goOn( InstancePtr const & i, StageResult result ) {
   endStage( i, result );
   if( !current( i ) ) return;
   if( i->at < i->stages.size() ) return beginStage( i );
   finish( i );
}

// The stage that runs has ended the unit's way in or out.
void UnitService::Impl::bringBack( InstancePtr const & i, StageResult result ) {
   endStage( i, result );
   if( !current( i ) ) return;
   if( i->op == Op::exit ) return fail( i );
   exit( i->unit.str(), ownName );
}

void UnitService::Impl::endStage( InstancePtr const & i, StageResult result ) {
   Config::Stage const & stage = i->stages[i->at];
   uint32_t const run = *std::exchange( i->run, std::nullopt );
   ++i->at;
   i->timer.reset();
   giveUpHook( *i );
   book_.stageEnds( *i->window, run, result );
   double const took = Kel::now() - i->window->stageRun( run )->began;
   bool const well = result == StageResult::done || result == StageResult::givenUp;
   tell( EventKind::stage, i->unit,
         stage.name + ": " + enumName( result ) + " after " + durationText( took ) +
            ( result == StageResult::failed ? ": " + i->failure : "" ),
         well ? Severity::notice : Severity::warning );
   // Whole, and never the stage in it: a change inside a record that lives would be a new request.
   stageState( i->op ).progress->progressDel( i->name );
}

void UnitService::Impl::finish( InstancePtr const & i ) {
   if( i->op == Op::enter ) return finishEnter( i );
   finishExit( i );
}

void UnitService::Impl::finishEnter( InstancePtr const & i ) {
   running_.erase( i->unit );
   i->window->enteredIs( Kel::now() );
   // Profiles are not selected anew: a unit in maintenance has the precedence of one that enters, and one that leaves
   // no more than an active one.
   stateIs( *i, State::inMaintenance );
   removeInstance( *i );
}

void UnitService::Impl::finishExit( InstancePtr const & i ) {
   running_.erase( i->unit );
   // Until the state says active nobody can ask the unit to enter, so all this is over before anything new begins.
   book_.end( *i->window, outcomeOf( *i->window ) );
   parts_.ledger.unitDel( i->unit );
   parts_.config.leftOutIs( i->unit.str(), {} );
   stateIs( *i, State::active );
   removeInstance( *i );
}

// The exit cannot be carried out. What is left out stays so until a later one can.
void UnitService::Impl::fail( InstancePtr const & i ) {
   running_.erase( i->unit );
   book_.end( *i->window, Ended::failed );
   parts_.ledger.unitDel( i->unit );
   stateIs( *i, State::failed );
   removeInstance( *i );
}

Evidence::Outcome UnitService::Impl::outcomeOf( Window const & window ) {
   if( window.entered() == 0 ) {
      return window.exitRequestedBy() == ownName ? Ended::rolledBack : Ended::abandoned;
   }
   for( auto [number, run] : window.stageRunIteratorConst() ) {
      bool const missed = run.result == StageResult::timedOut || run.result == StageResult::failed;
      if( run.op == Op::enter && missed ) return Ended::deadline;
   }
   return Ended::completed;
}

}  // namespace Service

#include "units/WindowBook.h"

#include <tuple>

#include "kel/ActivityLoop.h"

namespace Service {

using Evidence::Outcome;
using Evidence::StageResult;
using Evidence::StageRun;
using Evidence::Window;
using Evidence::WindowIntf;

namespace {

constexpr std::size_t windowsKept = 100;

}  // namespace

Kel::Ptr<Window> WindowBook::make( Kel::Name const & unit, uint32_t generation ) {
   Kel::Ptr<Window> const window( new Window( Maintenance::Unit::StageMgrInstKey( unit, generation ).instanceName() ) );
   window->unitIs( unit );
   window->generationIs( generation );
   window->requestedIs( Kel::now() );
   return window;
}

void WindowBook::add( Kel::Ptr<Window> const & window ) {
   dir()->windowIs( window );
   dropOldest();
}

void WindowBook::dropOldest() {
   while( dir()->windows() > windowsKept ) {
      Kel::Ptr<Window> oldest;
      // Of those that ended in the same moment the one that was asked for first.
      auto const age = []( Window const & w ) { return std::tuple( w.ended(), w.requested(), w.generation() ); };
      for( auto [name, window] : dir()->windowIterator() ) {
         if( window->outcome() == Outcome::underway || needed_( *window ) ) continue;
         if( !oldest || age( *window ) < age( *oldest ) ) oldest = window;
      }
      if( !oldest ) return;
      dir()->windowDel( oldest->windowName() );
   }
}

void WindowBook::intfsAre( Window & window, std::vector<Lumo::IntfId> const & intfs,
                           std::set<Lumo::IntfId> const & leftOut ) {
   for( Lumo::IntfId const intf : intfs ) {
      if( Kel::Ptr<WindowIntf> const present = window.intf( intf ) ) {
         if( leftOut.contains( intf ) ) present->leftOutIs( true );
         continue;
      }
      Kel::Ptr<WindowIntf> const made( new WindowIntf( intf ) );
      made->leftOutIs( leftOut.contains( intf ) );
      made->seenIs( state_.intfStatus->intfStatus( intf ) != nullptr );
      window.intfIs( made );
   }
}

std::set<Lumo::IntfId> WindowBook::leftOut( Window const & window ) {
   std::set<Lumo::IntfId> found;
   for( auto [intf, record] : window.intfIteratorConst() ) {
      if( record->leftOut() ) found.insert( intf );
   }
   return found;
}

Kel::Ptr<Window> WindowBook::last( Kel::Name const & unit ) const {
   Kel::Ptr<Window> found;
   for( auto [name, window] : dir()->windowIterator() ) {
      if( window->unit() != unit ) continue;
      if( !found || window->generation() > found->generation() ) found = window;
   }
   return found;
}

void WindowBook::stageBegins( Window & window, Kel::String8 const & stage, Op op ) {
   StageRun run{};
   run.stage = stage;
   run.op = op;
   run.began = Kel::now();
   window.stageRunIs( nextRun( window ), run );
}

void WindowBook::deadlinePassed( Window & window, uint32_t number ) {
   StageRun run = *window.stageRun( number );
   run.deadlinePassed = Kel::now();
   window.stageRunIs( number, run );
}

void WindowBook::hookFailed( Window & window, uint32_t number, std::string const & why ) {
   StageRun run = *window.stageRun( number );
   run.why = why;
   window.stageRunIs( number, run );
}

void WindowBook::noteVerdicts( Window & window, uint32_t number ) {
   auto const accounts = ledger_.accounts()->unit( window.unit() );
   if( !accounts ) return;
   for( auto [intf, account] : accounts->accountIterator() ) {
      if( auto const record = window.intf( intf ) ) record->verdictAtIs( number, account->verdict() );
   }
}

void WindowBook::stageEnds( Window & window, uint32_t number, StageResult result ) {
   StageRun run = *window.stageRun( number );
   // The verdicts first: whoever hears of the end finds them.
   if( run.op == Op::enter ) noteVerdicts( window, number );
   run.ended = Kel::now();
   run.result = result;
   window.stageRunIs( number, run );
}

void WindowBook::end( Window & window, Outcome outcome ) {
   if( window.outcome() != Outcome::underway ) return;
   window.endedIs( Kel::now() );
   window.outcomeIs( outcome );
}

std::vector<Kel::Ptr<Window>> WindowBook::underway() const {
   std::vector<Kel::Ptr<Window>> found;
   for( auto [name, window] : dir()->windowIterator() ) {
      if( window->outcome() == Outcome::underway ) found.push_back( window );
   }
   return found;
}

}  // namespace Service

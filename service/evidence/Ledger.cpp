#include "evidence/Ledger.h"

#include <algorithm>
#include <cmath>

#include "evidence/Accounting.h"
#include "kel/QuantityText.h"
#include "records/Names.h"

namespace Evidence {

using Kel::durationText;
using Kel::rateText;

namespace {

Kel::Ptr<UnitAccountsDir> accountsDir( Dovra::EntityManager & database ) {
   auto const dir = unitAccountsDir( database );
   // What an earlier service knew is not known now.
   dir->unitDelAll();
   return dir;
}

// For people, in whole seconds: what has passed is never said to be more than it is, what lacks never less.
std::string passedText( double seconds ) { return durationText( std::floor( seconds + 1e-6 ) ); }
std::string lackingText( double seconds ) { return durationText( std::ceil( seconds - 1e-6 ) ); }

std::string waitingText( Run const & run ) {
   // A run that goes on with its next reading, if that comes.
   if( run.lastReading() ) return "its last reading is " + passedText( Kel::now() - *run.lastReading() ) + " old";
   std::string const trouble = run.trouble();
   return trouble.empty() ? "no reading yet" : "no reading yet: " + trouble;
}

// To one digit or two: it is an estimate, and a person who reads "about 37.4 s" believes all of it.
double aboutSeconds( double seconds ) {
   for( double const step : { 5.0, 15.0, 60.0, 300.0 } ) {
      if( seconds <= 12 * step ) return std::max( std::ceil( seconds / step ), 1.0 ) * step;
   }
   return std::ceil( seconds / 1800 ) * 1800;
}

std::string loudWhy( std::string const & rate, Pace const & pace, std::string const & threshold ) {
   switch( pace.kind ) {
      case Pace::Kind::unknown: break;
      case Pace::Kind::slow:
         return rate + ( pace.quietIn ? ", falling, below " + threshold + " in about " +
                                           durationText( aboutSeconds( *pace.quietIn ) )
                                      : ", falling slowly, has to fall below " + threshold );
      case Pace::Kind::stuck:
         return rate + ", stuck for " + passedText( pace.stuckFor ) + ", has to fall below " + threshold;
   }
   return rate + ", has to fall below " + threshold;
}
}  // namespace

std::string whyOf( Place const & p ) {
   Watched & w = *p.subject;
   Run const & run = w.run();
   auto const & prof = w.profile();
   std::string const threshold = prof ? rateText( prof->thresholdBitsRate() ) : "its threshold";
   std::string const lacks = p.judgement.settled ? "" : ", " + lackingText( w.lacks( p.judgement ) ) + " still needed";
   switch( p.judgement.verdict ) {
      case Verdict::missing: return "there is no such link";
      case Verdict::unwatched: return w.unwatched();
      case Verdict::waiting: return waitingText( run );
      case Verdict::loud: return loudWhy( loudText( Run::loudReading( w.rates(), 0 ) ), w.pace(), threshold );
      case Verdict::quiet: return "below " + threshold + " for " + passedText( run.quietSeconds() ) + lacks;
      case Verdict::down:
      case Verdict::gone: {
         std::string text =
            p.judgement.verdict == Verdict::down ? "its link has been down for " : "its link has been gone for ";
         text += passedText( Kel::now() - p.judgement.countsFrom.value_or( Kel::now() ) );
         return text.append( lacks );
      }
      case Verdict::held: return "shut down by its profile, and its link is down";
      case Verdict::leftOut: return "on request";
   }
   return "";
}

Ledger::Ledger( Dovra::EntityManager & database, Maintenance::MaintenanceState const & state,
                Kel::Ptr<KelQuill::EntityManager> const & counters, NeverWatched neverWatched,
                Service::EventLog & events )
   : accounts_( accountsDir( database ) ),
     windows_( windowDir( database ) ),
     accounting_( std::make_unique<Accounting>( accounts_, state, counters, std::move( neverWatched ), events ) ) {}

Ledger::~Ledger() = default;

void Ledger::unitIs( Kel::Name const & unit, std::vector<Lumo::IntfId> const & intfs,
                     Kel::Ptr<Window> const & window ) {
   accounting_->unitIs( unit, intfs, window );
}

void Ledger::unitDel( Kel::Name const & unit ) { accounting_->unitDel( unit ); }

void Ledger::handleProfiles() { accounting_->allTouched(); }

void Ledger::noteLink( Lumo::IntfId intf, std::string const & text ) {
   if( auto const subject = accounting_->find( intf ) ) subject->onIntfEvent( "shutdown", text );
}

bool Ledger::ready( Kel::Name const & unit ) {
   auto const b = accounting_->book( unit );
   if( !b ) return false;
   accounting_->judge( *b );
   return b->open && b->record->ready();
}

std::optional<double> Ledger::provenUntil( Kel::Name const & unit ) const {
   auto const b = accounting_->book( unit );
   if( !b || !b->record->ready() ) return std::nullopt;
   std::optional<double> earliest;
   for( auto const & p : b->places ) {
      auto const last = p->watched().run().lastReading();
      if( p->judgement.verdict == Verdict::quiet && last ) earliest = std::min( earliest.value_or( *last ), *last );
   }
   return earliest;
}

std::string Ledger::why( Kel::Name const & unit, Lumo::IntfId intf ) const {
   Place const * const p = accounting_->place( unit, intf );
   return p ? whyOf( *p ) : "";
}

std::optional<double> Ledger::stillNeeded( Kel::Name const & unit, Lumo::IntfId intf ) const {
   Place const * const p = accounting_->place( unit, intf );
   if( !p ) return std::nullopt;
   if( p->judgement.settled ) return 0;
   switch( p->judgement.verdict ) {
      case Verdict::quiet:
      case Verdict::down:
      case Verdict::gone: return p->watched().lacks( p->judgement );
      case Verdict::missing:
      case Verdict::unwatched:
      case Verdict::waiting:
      case Verdict::loud:
      case Verdict::held:
      case Verdict::leftOut: break;
   }
   return std::nullopt;
}

Pace Ledger::pace( Kel::Name const & unit, Lumo::IntfId intf ) const {
   Place const * const p = accounting_->place( unit, intf );
   return p && p->judgement.verdict == Verdict::loud ? p->subject->pace() : Pace();
}

std::optional<Interface::IntfRates> Ledger::rates( Lumo::IntfId intf ) const {
   auto const s = accounting_->find( intf );
   if( !s || !s->run().lastReading() ) return std::nullopt;
   return s->rates();
}

Kel::Ptr<IntfMaintenanceProfile::Config const> Ledger::profile( Lumo::IntfId intf ) const {
   return accounting_->sources().profile( intf );
}

}  // namespace Evidence

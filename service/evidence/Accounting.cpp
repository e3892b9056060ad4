#include "evidence/Accounting.h"

#include <algorithm>
#include <utility>

#include "kel/FetchAhead.h"
#include "kel/QuantityText.h"
#include "state/TurnEndRank.h"

namespace Evidence {

using Maintenance::Unit::State;
using Service::EventKind;
using Service::Severity;

// What happens

Accounting::Accounting( Kel::Ptr<UnitAccountsDir> const & accounts, Maintenance::MaintenanceState const & state,
                        Kel::Ptr<KelQuill::EntityManager> const & counters, Ledger::NeverWatched neverWatched,
                        Service::EventLog & events )
   : TurnEnd( Maintenance::accountsJudged ),
     accounts_( accounts ),
     state_( state ),
     events_( events ),
     alarm_( *this ),
     sources_( state, counters, std::move( neverWatched ), *this ) {}

Accounting::~Accounting() {
   // Each refers to the other.
   for( auto const & [intf, s] : subjects_ ) {
      for( auto const & p : Kel::Few( s->places ) ) s->placeDel( p );
   }
   for( auto const & [unit, b] : books_ ) b->places.clear();
}

Kel::Ptr<Subject> Accounting::find( Lumo::IntfId intf ) const {
   auto const found = subjects_.find( intf );
   return found == subjects_.end() ? nullptr : found->second;
}

Kel::Ptr<Subject> Accounting::subject( Lumo::IntfId intf ) {
   auto & s = subjects_[intf];
   if( !s ) s = new Subject( *this, intf );
   sources_.subjectIs( intf, s.get() );
   return s;
}

void Accounting::touch( Subject & s ) {
   due();
   Watched::Marks & marks = s.marks();
   if( marks.touched ) return;
   marks.touched = true;
   touched_.push_back( { &s } );
   // An account that somebody still holds may be all that keeps a forgotten one, and go before its turn.
   if( !marks.kept ) forgotten_.emplace_back( &s );
}

// The interface itself is not touched: it is far away, and there is nothing to hand on. apply() looks for itself.
void Accounting::onSample( Subject & s, uint32_t & noted ) {
   if( std::exchange( noted, walk_ ) == walk_ ) return;
   due();
   touched_.push_back( { &s } );
}

void Accounting::allTouched() {
   allTouched_ = true;
   due();
}

void Accounting::onLink( Lumo::IntfId intf, LinkChange change ) {
   auto const s = find( intf );
   if( !s ) return;
   s->handleLink( change );
   touch( *s );
}

void Accounting::onMonitor( Lumo::IntfId intf, MonitorChange change ) {
   // From its beginning on, also while no unit has an account of it: the next that enters profits from its run.
   auto const s = change == MonitorChange::began ? subject( intf ) : find( intf );
   if( !s ) return;
   s->handleMonitor( change );
   touch( *s );
}

void Accounting::onEntry( Lumo::IntfId intf ) {
   auto const s = find( intf );
   if( !s ) return;
   s->handleEntry();
   touch( *s );
}

void Accounting::onIntf( Lumo::IntfId intf ) {
   auto const s = find( intf );
   if( !s ) return;
   s->handleProfile();
   touch( *s );
}

void Accounting::onMembers() {
   membersMoved_ = true;
   allTouched();
}

void Accounting::onUnit( Kel::Name const & unit ) {
   auto const b = book( unit );
   if( !b ) return;
   touchedBooks_.push_back( b );
   due();
}

// Accounts come and go

Kel::Ptr<UnitBook> Accounting::book( Kel::Name const & unit ) const {
   auto const found = books_.find( unit );
   return found == books_.end() ? nullptr : found->second;
}

Place const * Accounting::place( Kel::Name const & unit, Lumo::IntfId intf ) const {
   auto const s = find( intf );
   if( !s ) return nullptr;
   auto const at = std::ranges::find( s->places, unit, []( auto const & p ) { return p->book->record->unitName(); } );
   return at == s->places.end() ? nullptr : at->get();
}

void Accounting::unitIs( Kel::Name const & unit, std::vector<Lumo::IntfId> const & intfs,
                         Kel::Ptr<Window> const & window ) {
   Kel::Dispatch const dispatch;  // what handlers close below is not freed before this is through
   auto & kept = books_[unit];
   if( !kept ) kept = new UnitBook( unit );
   auto const b = kept;  // the entry may go as handlers run
   for( auto const & p : std::vector( b->places ) ) {
      if( std::ranges::find( intfs, p->watched().intf() ) == intfs.end() ) closePlace( p );
   }
   if( !b->open ) return;  // whoever heard of an account that went was done with the unit
   for( Lumo::IntfId const intf : intfs ) {
      if( place( unit, intf ) ) continue;
      auto const s = subject( intf );
      Kel::Ptr<Place> const p(
         new Place( b, s, window ? window->intf( intf ) : nullptr, Recorder::cellsFor( intfs.size() ) ) );
      b->places.push_back( p );
      s->placeIs( p );
      ++b->unsettled;
   }
   // Also those that stay, which may be left out from now on; new ones are to know their profile.
   for( auto const & p : b->places ) {
      p->handleLeftOut();
      p->subject->handleProfile();
      touch( *p->subject );
   }
   touchedBooks_.push_back( b );
   due();
   // The records last, when all of it has been judged: nobody is to see an account that says nothing yet.
   judgeTouched();
   if( b->open && !accounts_->unit( unit ) ) accounts_->unitIs( b->record );
   for( auto const & p : std::vector( b->places ) ) {
      if( p->open && !b->record->account( p->watched().intf() ) ) b->record->accountIs( p->record );
   }
}

void Accounting::closePlace( Kel::Ptr<Place> const & p ) {
   if( !std::exchange( p->open, false ) ) return;  // by a handler of another that was closed
   UnitBook & b = *p->book;
   if( !p->judged || !p->judgement.settled ) --b.unsettled;
   if( p->judged && p->judgement.verdict == Verdict::loud ) --b.loud;
   if( p->wasLoud && p->judgement.verdict == Verdict::waiting ) --b.wereLoud;
   std::erase( b.places, p );
   p->subject->placeDel( p );
   forgetUnused( *p->subject );
   b.record->accountDel( p->watched().intf() );
}

void Accounting::unitDel( Kel::Name const & unit ) {
   Kel::Dispatch const dispatch;
   auto const b = book( unit );
   if( !b ) return;
   books_.erase( unit );
   b->open = false;
   // All at once: nobody asks the book any more, and to take each out of the list would look at the list each time.
   for( auto const & p : std::exchange( b->places, {} ) ) closePlace( p );
   // Unless the unit has been entered once more meanwhile.
   if( accounts_->unit( unit ) == b->record ) accounts_->unitDel( unit );
}

void Accounting::forgetUnused( Subject & s ) {
   if( !s.marks().kept || !s.places.empty() || s.monitored() ) return;
   waitsNot( s );
   s.marks().kept = false;
   sources_.subjectIs( s.intf(), nullptr );
   if( !touched_.empty() ) forgotten_.emplace_back( &s );
   subjects_.erase( s.intf() );
}

// Judging

void Accounting::judge( UnitBook & b ) {
   Kel::Dispatch const dispatch;
   if( allTouched_ ) judgeTouched();
   // Also what told nobody of its change; and what has told and waits for its turn, where this is asked by a handler of
   // another account.
   for( auto const & p : std::vector( b.places ) ) {
      apply( *p->subject );
      if( p->open ) judgePlace( *p );
   }
   alarmIs();
   if( b.open ) judgeUnit( b );
}

void Accounting::judgeTouched() {
   if( std::exchange( allTouched_, false ) ) {
      for( auto const & [intf, s] : subjects_ ) {
         s->handleProfile();
         if( membersMoved_ ) s->handleMembers();
         touch( *s );
      }
      membersMoved_ = false;
   }
   auto subjects = std::exchange( touched_, {} );
   ++walk_;
   // All that changed is applied before the first account is judged. Most samples change no verdict: such an interface
   // is done with as soon as its sample is applied, while the caches still hold it, unless a handler touches anything.
   Kel::forEachFetched<5>( subjects, [this]( Touched & t ) {
      t.subject->marks().touched = false;
      t.stands = !apply( *t.subject ) && stands( *t.subject );
   } );
   for( Touched const & t : subjects ) {
      if( t.stands && touched_.empty() && !allTouched_ ) continue;
      judgeSubject( *t.subject );
      forgetUnused( *t.subject );
   }
   alarmIs();
   for( auto const & b : std::exchange( touchedBooks_, {} ) ) {
      if( b->open ) judgeUnit( *b );
   }
   // Only for its memory, where no handler has needed another.
   subjects.clear();
   if( touched_.empty() ) {
      touched_.swap( subjects );
      forgotten_.clear();
   }
}

// What a sample is read from and, where it is loud, written to; every so many samples, what readings are settled into.
void Accounting::Touched::fetch( std::size_t step ) const {
   if( step == 0 ) return Kel::fetch( subject, Subject::hotBytes );
   if( step == 1 ) subject->fetchSources();
   if( subject->run().loud() ) subject->fetchLoud( step );
   if( subject->settlesSoon() ) subject->fetchSettled( step );
}

// True when it was more than a sample.
bool Accounting::apply( Subject & s ) {
   if( !s.Watched::apply( sources_.counterGeneration() ) ) return false;
   for( auto const & p : Kel::Few( s.places ) ) p->noteProfile();
   return true;
}

bool Accounting::stands( Subject & s ) {
   if( !s.monitored() ) return false;
   Watched::Said & said = s.marks().said;
   // A loud one is loud again, and waits for nothing.
   if( said == Watched::Said::loud && s.plainlyLoud() ) return true;
   if( said == Watched::Said::quiet || said == Watched::Said::settled ) {
      auto const quiet = s.plainlyQuiet();
      if( quiet && quiet->settled == ( said == Watched::Said::settled ) ) {
         waitsToGoStale( s, quiet->stale );
         return true;
      }
   }
   said = Watched::Said::other;
   double const quietSince = s.run().quietSince().value_or( 0 );
   double changes = never;
   for( auto const & p : s.places ) {
      Outlook const now = outlookOf( *p, s );
      bool const same = p->judged && p->seen && p->judgement == now.judgement && p->quietSince == quietSince;
      if( !same ) return false;
      changes = std::min( changes, now.changes );
   }
   waitsFor( s, changes );
   s.saidIs();
   return true;
}

Outlook Accounting::outlookOf( Place const & p, Watched const & w ) {
   return p.leftOut ? Outlook{ { .verdict = Verdict::leftOut, .settled = true } } : w.judge( p.seen );
}

void Accounting::judgeSubject( Subject & s ) {
   waitsNot( s );
   // A handler of one may close another.
   for( auto const & p : Kel::Few( s.places ) ) {
      if( p->open ) judgePlace( *p );
   }
}

void Accounting::judgePlace( Place & p ) {
   Watched const & w = p.watched();
   if( !p.seen && w.linkThere() ) p.handleSeen();
   auto const [now, changes] = outlookOf( p, w );
   // Before anybody hears of it, and has it judged once more. All accounts that wait do so for the same.
   if( changes != never ) waitsFor( *p.subject, changes );
   // Most samples say what the one before has said. A run that has broken meanwhile begins anew.
   double const quietSince = w.run().quietSince().value_or( 0 );
   if( p.judged && p.judgement == now && p.quietSince == quietSince ) return;
   p.quietSince = quietSince;
   bool const begins = !p.judged || p.judgement.verdict != now.verdict;
   // How it begins every view says, and on its way out nobody asks any more.
   bool const news = begins && p.judged && wantsProof( *p.book );
   count( p, now );
   write( p, begins );
   // Whoever has heard of it may have had it judged once more.
   if( news && p.open && p.judgement.verdict == now.verdict ) tellVerdict( p );
}

void Accounting::tellVerdict( Place const & p ) const {
   std::string text = enumName( p.judgement.verdict );
   // A thousand interfaces have some thousand of them on the way in.
   tell( p, { .kind = EventKind::verdict, .text = text + ": " + whyOf( p ), .severity = Severity::info } );
}

void Accounting::tell( Place const & p, Service::Told what ) const {
   what.unit = p.book->record->unitName();
   what.interface = p.watched().intf();
   auto const unit = state_.unitStatus->status( what.unit );
   what.generation = unit ? unit->genId() : 0;
   events_.tell( what );
}

// The unit's numbers follow before anything is written, so that whoever hears of the account finds them right.
void Accounting::count( Place & p, Judgement const & now ) {
   Judgement const & former = p.judgement;
   UnitBook & b = *p.book;
   bool const first = !std::exchange( p.judged, true );
   p.subject->marks().said = Watched::Said::other;
   bool const wasLoud = now.verdict == Verdict::loud || ( p.wasLoud && now.verdict == Verdict::waiting );
   auto const moved = []( std::size_t & number, bool was, bool is ) { number = number + is - was; };
   moved( b.unsettled, first || !former.settled, !now.settled );
   moved( b.loud, !first && former.verdict == Verdict::loud, now.verdict == Verdict::loud );
   moved( b.wereLoud, p.wasLoud && former.verdict == Verdict::waiting, wasLoud && now.verdict == Verdict::waiting );
   p.judgement = now;
   p.wasLoud = wasLoud;
   touchedBooks_.push_back( p.book );
}

void Accounting::write( Place & p, bool begins ) {
   Judgement const & now = p.judgement;
   Account & record = *p.record;
   // What tells nobody before what does: whoever hears of the verdict reads the rest.
   record.quietSinceIs( p.quietSince );
   if( now.countsFrom ) {
      record.sinceIs( *now.countsFrom );
   } else if( begins ) {
      record.sinceIs( Kel::now() );
   }
   record.verdictIs( now.verdict );
   if( p.open ) record.settledIs( now.settled );
}

bool Accounting::wantsProof( UnitBook const & b ) const {
   State const state = sources_.unitState( b.record->unitName() );
   return state == State::entering || state == State::inMaintenance;
}

void Accounting::judgeUnit( UnitBook & b ) {
   bool const in = sources_.unitState( b.record->unitName() ) == State::inMaintenance;
   bool const ready = wantsProof( b ) && b.unsettled == 0;
   // It begins with a loud reading and lasts until what was loud is known not to be.
   bool const disturbed = in && ( b.loud > 0 || ( b.record->disturbed() && b.wereLoud > 0 ) );
   b.record->readyIs( ready );
   if( b.open ) b.record->disturbedIs( disturbed );
}

void Accounting::handleAlarm() {
   queues_ = {};
   for( auto const & [intf, s] : subjects_ ) {
      s->marks().waits = 0;
      if( !s->places.empty() ) touch( *s );
   }
}

void Accounting::waitsFor( Subject & s, double time ) {
   waitsNot( s );
   if( time == never || !s.marks().kept ) return;
   Queue & queue = queues_[current_];
   queue.first = std::min( queue.first, time );
   ++queue.subjects;
   s.marks().waits = ( current_ + 1u ) & 3u;
}

void Accounting::waitsToGoStale( Subject & s, double stale ) {
   Queue const & queue = queues_[current_];
   waitsFor( s, stale < queue.first ? Watched::changesAfter( stale ) : queue.first );
}

void Accounting::waitsNot( Subject & s ) {
   uint8_t const waits = s.marks().waits;
   if( waits == 0 ) return;
   --queues_[waits - 1u].subjects;
   s.marks().waits = 0;
}

void Accounting::alarmIs() {
   Queue & other = queues_[1u - current_];
   if( other.subjects == 0 ) {
      other.first = never;
      current_ = static_cast<uint8_t>( 1 - current_ );
   }
   double const first = std::min( queues_[0].first, queues_[1].first );
   if( first != alarm_.timeMin() ) alarm_.timeMinIs( first );
}

}  // namespace Evidence

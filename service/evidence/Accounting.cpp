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
     neverWatched_( std::move( neverWatched ) ),
     events_( events ),
     alarm_( *this ),
     sources_( state, counters, *this ) {}

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
   if( std::exchange( s.touched, true ) ) return;
   touched_.push_back( { &s } );
   // An account that somebody still holds may be all that keeps a forgotten one, and go before its turn.
   if( !s.kept ) forgotten_.emplace_back( &s );
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
   s->watched.handleLink( change );
   touch( *s );
}

void Accounting::onMonitor( Lumo::IntfId intf, MonitorChange change ) {
   // From its beginning on, also while no unit has an account of it: the next that enters profits from its run.
   auto const s = change == MonitorChange::began ? subject( intf ) : find( intf );
   if( !s ) return;
   s->watched.handleMonitor( change );
   touch( *s );
}

void Accounting::onEntry( Lumo::IntfId intf ) {
   auto const s = find( intf );
   if( !s ) return;
   s->watched.handleEntry();
   touch( *s );
}

void Accounting::onIntf( Lumo::IntfId intf ) {
   auto const s = find( intf );
   if( !s ) return;
   s->watched.handleProfile();
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
      p->subject->watched.handleProfile();
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
   if( !s.kept || !s.places.empty() || s.watched.monitored() ) return;
   s.kept = false;
   sources_.subjectIs( s.watched.intf(), nullptr );
   if( !touched_.empty() ) forgotten_.emplace_back( &s );
   subjects_.erase( s.watched.intf() );
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
   if( b.open ) judgeUnit( b );
}

void Accounting::judgeTouched() {
   if( std::exchange( allTouched_, false ) ) {
      for( auto const & [intf, s] : subjects_ ) {
         s->watched.handleProfile();
         if( membersMoved_ ) s->watched.handleMembers();
         touch( *s );
      }
      membersMoved_ = false;
   }
   auto subjects = std::exchange( touched_, {} );
   ++walk_;
   // All that changed is applied before the first account is judged. Most samples change no verdict: such an interface
   // is done with as soon as its sample is applied, while the caches still hold it, unless a handler touches anything.
   Kel::forEachFetched<4>( subjects, [this]( Touched & t ) {
      t.subject->touched = false;
      t.stands = !apply( *t.subject ) && stands( *t.subject );
   } );
   for( Touched const & t : subjects ) {
      if( t.stands && touched_.empty() && !allTouched_ ) continue;
      judgeSubject( *t.subject );
      forgetUnused( *t.subject );
   }
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

// The interface; its account and what its samples are read from; the account's records; what these have elsewhere.
void Accounting::Touched::fetch( std::size_t step ) const {
   Place const * const place = step > 0 && !subject->places.empty() ? subject->places.front().get() : nullptr;
   if( step == 0 ) Kel::fetch( subject, Subject::hotBytes );
   if( step == 1 ) subject->watched.fetchSources();
   if( step == 1 && place ) Kel::fetch( place, subject->watched.settlesSoon() ? sizeof( Place ) : Place::hotBytes );
   if( step == 2 ) subject->watched.fetchTrend();
   if( step == 2 && place ) place->fetchRecords( subject->watched );
   if( step == 3 && place ) place->fetchEnds( subject->watched );
}

// True when it was more than a sample.
bool Accounting::apply( Subject & s ) {
   if( !s.watched.apply( s.accounting.sources_.counterGeneration() ) ) return false;
   for( auto const & p : Kel::Few( s.places ) ) p->noteProfile();
   return true;
}

bool Accounting::stands( Subject const & s ) {
   if( !s.watched.monitored() ) return false;
   // A loud one is loud again.
   if( s.watched.plainlyLoud() && std::ranges::all_of( s.places, []( auto const & p ) { return p->standsLoud(); } ) )
      return true;
   double const quietSince = s.watched.run().quietSince().value_or( 0 );
   return std::ranges::all_of( s.places, [&]( auto const & p ) {
      Judgement const now = judgementOf( *p, s.watched );
      bool const same = p->judged && p->seen && p->judgement.sameAs( now ) && p->quietSince == quietSince;
      if( same ) alarmBy( now.changes );
      return same;
   } );
}

Judgement Accounting::judgementOf( Place const & p, Watched const & w ) {
   return p.leftOut ? Judgement{ .verdict = Verdict::leftOut, .settled = true } : w.judge( p.seen );
}

void Accounting::judgeSubject( Subject const & s ) {
   // A handler of one may close another.
   for( auto const & p : Kel::Few( s.places ) ) {
      if( p->open ) judgePlace( *p );
   }
}

void Accounting::judgePlace( Place & p ) {
   Watched const & w = p.watched();
   if( !p.seen && w.linkThere() ) p.handleSeen();
   Judgement const now = judgementOf( p, w );
   alarmBy( now.changes );
   // Most samples say what the one before has said. A run that has broken meanwhile begins anew.
   double const quietSince = w.run().quietSince().value_or( 0 );
   bool const same = p.judged && p.judgement.sameAs( now ) && p.quietSince == quietSince;
   if( same ) {
      p.judgement = now;
      return;
   }
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
   // Once for all: the earliest change decides when it rings next, and readings since may have put it off.
   for( auto const & [intf, s] : subjects_ ) {
      if( !s->places.empty() ) touch( *s );
   }
}

void Accounting::alarmBy( double time ) {
   if( time < alarm_.timeMin() ) alarm_.timeMinIs( time );
}

}  // namespace Evidence

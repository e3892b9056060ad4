#include "evidence/Subject.h"

#include <algorithm>

#include "evidence/Accounting.h"
#include "kel/FetchAhead.h"
#include "kel/QuantityText.h"

namespace Evidence {

using Maintenance::Unit::State;
using Service::EventKind;
using Service::Severity;

std::string loudText( LoudReading const & loud ) {
   std::string text = enumName( loud.direction );
   return text.append( " " ).append( Kel::rateText( loud.bitsRate ) );
}

// One interface

Subject::Subject( Accounting & in, Lumo::IntfId intf ) : Watched( intf, in.sources() ), accounting( in ) {}

// What is told of in a window may be heard by somebody who closes accounts or breaks the run: so copies are iterated
// over, here and below, and the run is not asked. Most interfaces have one account, and a sample needs no copy of the
// list then.
void Subject::onReading( Run::Step const & step ) {
   auto const noteLoud = [&]( Account & account ) {
      if( step.loud ) account.lastLoudIs( Run::loudReading( step.rates, step.to ) );
   };
   if( onlyAccount ) {
      noteLoud( *Kel::Ptr<Account>( onlyAccount ) );
   } else {
      Kel::Few const all( places );
      for( auto const & p : all ) {
         if( !p->open ) continue;
         if( p != all.front() ) p->recorder.ratesAre( step.from, step.to, step.rates );
         noteLoud( *p->record );
      }
   }
   if( step.becameLoud ) handleSpike( step );
}

void Subject::onSettled( double from, double to, Interface::IntfRates const & rates ) {
   if( !places.empty() ) places.front()->recorder.ratesAre( from, to, rates );
}

void Subject::placeIs( Kel::Ptr<Place> const & p ) {
   settle();
   places.add( p );
   handlePlaces();
   p->rateSourceIs( this );
}

void Subject::placeDel( Kel::Ptr<Place> const & p ) {
   settle();
   p->rateSourceIs( nullptr );
   places.remove( p );
   handlePlaces();
}

void Subject::handlePlaces() {
   onlyAccount = places.size() == 1 ? places.front()->record : nullptr;
   readingsToldIs( places.size() > 1 );
   marks().said = Said::other;
}

void Subject::saidIs() {
   auto const allSay = [this]( Verdict v ) {
      return std::ranges::all_of( places, [v]( auto const & p ) { return p->judgement.verdict == v; } );
   };
   if( places.empty() ) return;
   if( plainlyLoud() && allSay( Verdict::loud ) ) marks().said = Said::loud;
   auto const quiet = plainlyQuiet();
   if( quiet && allSay( Verdict::quiet ) ) marks().said = quiet->settled ? Said::settled : Said::quiet;
}

void Subject::fetchLoud( std::size_t step ) const {
   if( step == 1 ) Kel::fetch( onlyAccount );
   if( step == 2 && onlyAccount ) Kel::fetch( onlyAccount->lastLoud() );
}

// Its readings and the list of places; the place and the trend; the window's interface; the end of its rates.
void Subject::fetchSettled( std::size_t step ) const {
   if( step == 1 ) {
      fetchReadings();
      return Kel::fetch( places );
   }
   if( step == 2 ) fetchTrend();
   if( places.empty() ) return;
   Recorder const & recorder = places.front()->recorder;
   if( step == 2 ) return Kel::fetch( recorder );
   if( !recorder.record() ) return;
   step == 3 ? recorder.record()->fetchRates() : recorder.record()->fetchEndOfRates();
}

void Subject::handleSpike( Run::Step const & step ) {
   LoudReading const loud = Run::loudReading( step.rates, step.to );
   for( auto const & p : Kel::Few( places ) ) {
      // On the way in traffic is expected; only what comes back is a spike.
      if( accounting.sources().unitState( p->book->record->unitName() ) != State::inMaintenance ) continue;
      p->record->spikesInc( 1 );
      p->recorder.spikeIs( loudText( loud ) );
      accounting.tell( *p, { .kind = EventKind::spike, .text = loudText( loud ), .severity = Severity::warning } );
   }
}

void Subject::onBreak( Run::Step const & step ) {
   marks().said = Said::other;
   for( auto const & p : Kel::Few( places ) ) {
      // A unit on its way out ends the monitoring itself, and asks for no proof any more.
      if( !accounting.wantsProof( *p->book ) ) continue;
      p->record->breaksInc( 1 );
      p->recorder.breakIs( breakText( step ) );
   }
}

void Subject::onIntfEvent( char const * kind, std::string const & text ) {
   for( auto const & p : Kel::Few( places ) ) p->recorder.eventIs( kind, text );
}

Place::Place( Kel::Ptr<UnitBook> const & in, Kel::Ptr<Subject> const & of, Kel::Ptr<WindowIntf> const & window,
              uint32_t cells )
   : seen( !window || window->seen() ),
     recorder( window, cells ),
     record( new Account( of->intf() ) ),
     book( in ),
     subject( of ) {
   handleLeftOut();
}

void Place::handleLeftOut() {
   leftOut = recorder.record() && recorder.record()->leftOut();
   subject->marks().said = Watched::Said::other;
}

void Place::handleSeen() {
   seen = true;
   if( recorder.record() ) recorder.record()->seenIs( true );
}

void Place::noteProfile() {
   auto const & prof = watched().profile();
   if( !prof ) return;
   Kel::String8 const name = subject->accounting.sources().profileName( *prof );
   record->profileNameIs( name );
   if( !recorder.record() ) return;
   recorder.record()->profileIs( { name, prof->thresholdBitsRate(), prof->sampleInterval(),
                                   static_cast<double>( prof->rateMonLoadInterval() ), prof->shutdown() } );
}

}  // namespace Evidence

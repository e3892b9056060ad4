#include "evidence/Subject.h"

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

Subject::Subject( Accounting & in, Lumo::IntfId intf )
   : accounting( in ), watched( intf, in.sources(), in.neverWatched(), *this ) {}

// What is told of in a window may be heard by somebody who closes accounts or breaks the run: so copies are iterated
// over, here and below, and the run is not asked. Most interfaces have one account, and a sample needs no copy of the
// list then.
void Subject::onReading( Run::Step const & step ) {
   auto const noteLoud = [&]( Place const & p ) {
      if( step.loud ) p.record->lastLoudIs( Run::loudReading( step.rates, step.to ) );
   };
   if( places.size() == 1 ) {
      noteLoud( *Kel::Ptr<Place>( places.front() ) );
   } else {
      Kel::Few const all( places );
      for( auto const & p : all ) {
         if( !p->open ) continue;
         if( p != all.front() ) p->recorder.ratesAre( step.from, step.to, step.rates );
         noteLoud( *p );
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
   p->rateSourceIs( this );
}

void Subject::placeDel( Kel::Ptr<Place> const & p ) {
   settle();
   p->rateSourceIs( nullptr );
   places.remove( p );
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
     record( new Account( of->watched.intf() ) ),
     recorder( window, cells ),
     book( in ),
     subject( of ) {
   handleLeftOut();
}

void Place::handleLeftOut() { leftOut = recorder.record() && recorder.record()->leftOut(); }

void Place::handleSeen() {
   seen = true;
   if( recorder.record() ) recorder.record()->seenIs( true );
}

void Place::fetchRecords( Watched const & w ) const {
   if( w.run().loud() ) Kel::fetch( record->lastLoud() );
   if( w.settlesSoon() && recorder.record() ) recorder.record()->fetchRates();
}

void Place::fetchEnds( Watched const & w ) const {
   if( w.settlesSoon() && recorder.record() ) recorder.record()->fetchEndOfRates();
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

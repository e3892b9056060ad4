#include "evidence/Recorder.h"

#include <algorithm>
#include <vector>

#include "kel/ActivityLoop.h"

namespace Evidence {

namespace {

constexpr uint32_t cellsMax = 600;       // more than a page has pixels for
constexpr uint32_t cellsMin = 60;        // a stay with fewer would be hard to read
constexpr uint32_t cellsOfAll = 60'000;  // 4 MB in a window of any number of interfaces

// How a flapping link began and how it ended say more than what was in between.
constexpr uint32_t firstEvents = 100;
constexpr uint32_t lastEvents = 100;

// `b` follows `a`. The mean is over the time that both cover.
RateCell joined( RateCell const & a, RateCell const & b ) {
   double const share = ( a.to - a.from ) / ( a.to - a.from + b.to - b.from );
   auto const mean = [share]( double x, double y ) { return share * x + ( 1 - share ) * y; };
   return { a.from,
            b.to,
            std::min( a.inLow, b.inLow ),
            mean( a.inMean, b.inMean ),
            std::max( a.inHigh, b.inHigh ),
            std::min( a.outLow, b.outLow ),
            mean( a.outMean, b.outMean ),
            std::max( a.outHigh, b.outHigh ) };
}

}  // namespace

uint32_t Recorder::cellsFor( std::size_t intfs ) {
   auto const share = static_cast<uint32_t>( cellsOfAll / std::max<std::size_t>( intfs, 1 ) );
   return std::clamp( share, cellsMin, cellsMax );
}

Recorder::Recorder( Kel::Ptr<WindowIntf> const & record, uint32_t cells ) : record_( record ), cells_( cells ) {
   if( !record ) return;
   for( RateCell const & cell : record->rates() ) cellSeconds_ = std::max( cellSeconds_, cell.to - cell.from );
}

void Recorder::eventIs( char const * kind, std::string const & text ) {
   if( !record_ ) return;
   uint32_t const number = record_->totalEvents();
   record_->totalEventsInc( 1 );
   record_->eventIs( number, { Kel::now(), kind, Kel::String8( text ) } );
   if( number >= firstEvents + lastEvents ) record_->eventDel( number - lastEvents );
}

void Recorder::breakIs( std::string const & cause ) {
   if( record_ ) record_->breaksInc( 1 );
   eventIs( "break", cause );
}

void Recorder::spikeIs( std::string const & rate ) {
   if( record_ ) record_->spikesInc( 1 );
   eventIs( "spike", rate );
}

bool Recorder::sharesLastCell( RateSeries const & cells, double from, double to ) const {
   // Across a time without readings nothing is joined: nobody knows what flowed then.
   return cells.size() > 0 && cells.last().to == from && to - cells.last().from <= cellSeconds_;
}

void Recorder::ratesAre( double from, double to, Interface::IntfRates const & r ) {
   if( !record_ ) return;
   RateCell const cell{ from,          to,           r.inBitsRate, r.inBitsRate, r.inBitsRate, r.outBitsRate,
                        r.outBitsRate, r.outBitsRate };
   RateSeries const & cells = record_->rateSeries();
   if( sharesLastCell( cells, from, to ) ) return record_->lastRateIs( joined( cells.last(), cell ) );
   if( cells.size() >= cells_ ) widen();
   record_->rateIs( cell );
}

// Neighbours are joined. Where gaps keep too many of them apart, the oldest cells make room for the latest.
void Recorder::widen() {
   double width = 0;
   RateCells const cells = record_->rates();
   for( RateCell const & cell : cells ) width = std::max( width, cell.to - cell.from );
   cellSeconds_ = 2 * width;
   RateCells kept;
   for( RateCell const & cell : cells ) {
      bool const joins = !kept.empty() && kept.back().to == cell.from && cell.to - kept.back().from <= cellSeconds_;
      if( joins ) {
         kept.back() = joined( kept.back(), cell );
      } else {
         kept.push_back( cell );
      }
   }
   if( kept.size() > cells_ / 4 * 3 ) kept.erase( kept.begin(), kept.begin() + cells_ / 4 );
   record_->ratesIs( kept );
}

}  // namespace Evidence

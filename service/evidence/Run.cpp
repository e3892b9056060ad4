#include "evidence/Run.h"

#include <utility>

#include "kel/QuantityText.h"

namespace Evidence {

LoudReading Run::loudReading( Interface::IntfRates const & rates, double time ) {
   if( rates.inBitsRate > rates.outBitsRate ) return { time, Direction::in, rates.inBitsRate };
   return { time, Direction::out, rates.outBitsRate };
}

std::string breakText( Run::Step const & step ) {
   if( step.cause ) return step.cause;
   LoudReading const peak = Run::loudReading( step.rates, 0 );
   return std::string( "traffic, " ) + enumName( peak.direction ) + " " + Kel::rateText( peak.bitsRate );
}

void Run::firstSampleIs( double time, bool fresh, uint64_t restarts ) {
   referenceIs( { time, {}, fresh, restarts } );
   hasReading_ = false;
   hasRun_ = false;
}

void Run::referenceIs( Sample const & sample ) {
   hasReference_ = sample.fresh;
   referenceTime_ = sample.time;
   referenceRestarts_ = sample.restarts;
}

Run::Step Run::sampleIs( Sample const & sample, double threshold ) {
   bool const measured = hasReference_;
   double const from = referenceTime_;
   uint64_t const restarts = referenceRestarts_;
   referenceIs( sample );
   // Nothing was measured: the plug-in's rate is that of counters which stand still because nobody read them.
   if( !sample.fresh ) return breakIs( "its counters could not be read" );
   // What was counted between the last read and the restart is lost, so the rate is too low by what nobody knows.
   if( measured && restarts != sample.restarts ) return breakIs( "its counters started again" );
   if( !measured ) return {};
   // A rate equal to the threshold is not below it.
   bool const quiet = sample.rates.inBitsRate < threshold && sample.rates.outBitsRate < threshold;
   Step step{ .loudEnded = quiet && loud_, .reading = true, .from = from, .to = sample.time, .rates = sample.rates };
   if( !quiet ) {
      step.loud = true;
      step.becameLoud = !loud_;
      step.broke = std::exchange( hasRun_, false );
   } else if( !hasRun_ ) {
      hasRun_ = true;
      quietSince_ = from;
   }
   loud_ = !quiet;
   hasReading_ = true;
   trouble_ = "";
   return step;
}

Run::Step Run::forget( char const * cause ) {
   Step const step{ .broke = hasRun_, .cause = cause, .loudEnded = loud_ };
   hasRun_ = false;
   hasReading_ = false;
   loud_ = false;
   return step;
}

Run::Step Run::breakIs( char const * cause ) {
   trouble_ = cause;
   return forget( cause );
}

Run::Step Run::interruptIs( char const * cause ) {
   hasReference_ = false;
   return breakIs( cause );
}

}  // namespace Evidence

#include "evidence/Run.h"

#include "kel/QuantityText.h"

namespace Evidence {

LoudReading Run::loudReading( Interface::IntfRates const & rates, double time ) {
   if( rates.inBitsRate > rates.outBitsRate ) return { time, Direction::in, rates.inBitsRate };
   return { time, Direction::out, rates.outBitsRate };
}

namespace {

std::string trafficText( Interface::IntfRates const & rates ) {
   LoudReading const peak = Run::loudReading( rates, 0 );
   return std::string( "traffic, " ) + enumName( peak.direction ) + " " + Kel::rateText( peak.bitsRate );
}

}  // namespace

void Run::firstSampleIs( double time, bool fresh, uint64_t restarts ) {
   reference_.reset();
   if( fresh ) reference_ = Reference{ time, restarts };
}

Run::Step Run::sampleIs( Sample const & sample, double threshold ) {
   auto const before = reference_;
   firstSampleIs( sample.time, sample.fresh, sample.restarts );
   // Nothing was measured: the plug-in's rate is that of counters which stand still because nobody read them.
   if( !sample.fresh ) return breakIs( "its counters could not be read" );
   // What was counted between the last read and the restart is lost, so the rate is too low by what nobody knows.
   if( before && before->restarts != sample.restarts ) return breakIs( "its counters started again" );
   if( !before ) return {};
   Step step{ .reading = true, .from = before->time, .to = sample.time, .rates = sample.rates };
   // A rate equal to the threshold is not below it.
   bool const quiet = sample.rates.inBitsRate < threshold && sample.rates.outBitsRate < threshold;
   if( !quiet ) {
      step.loud = true;
      step.becameLoud = !loud_;
      // The text only where it is kept: most loud readings break nothing.
      step.broke = forget().broke;
      if( step.broke ) lastBreak_ = trafficText( sample.rates );
   }
   loud_ = !quiet;
   if( quiet && !quietSince_ ) quietSince_ = before->time;
   lastReading_ = sample.time;
   trouble_ = "";
   rates_ = sample.rates;
   return step;
}

Run::Step Run::forget() {
   Step step;
   step.broke = quietSince_.has_value();
   quietSince_.reset();
   lastReading_.reset();
   loud_ = false;
   return step;
}

Run::Step Run::breakIs( char const * cause ) {
   Step const step = forget();
   if( step.broke ) lastBreak_ = cause;
   trouble_ = cause;
   return step;
}

Run::Step Run::interruptIs( char const * cause ) {
   reference_.reset();
   return breakIs( cause );
}

}  // namespace Evidence

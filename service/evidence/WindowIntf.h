// One interface in a window (evidence/Windows.h): what was left out, what happened to it, and its rates over time.
//
// Written by the Ledger and by the stage manager, read by views and the store. Outlives the service. Its rates are
// written seldom: whoever has some that do not stand in it yet is asked for them before anybody reads any.
#pragma once

#include <string>
#include <string_view>

#include "evidence/Accounts.h"
#include "evidence/RateSeries.h"
#include "kel/Attributes.h"
#include "records/IntfId.h"

namespace Evidence {

// Something that happened to an interface, in words: "break", "spike", "link", "shutdown", "verdict".
struct IntfEvent {
   KEL_VALUE( IntfEvent, "Evidence::IntfEvent" )
   KEL_FIELD( double, time )
   KEL_FIELD( Kel::String8, kind )
   KEL_FIELD( Kel::String8, text )
   KEL_VALUE_END( IntfEvent )
};

// The profile in force for an interface: of the request at first, and as reloads and selections have changed it since.
struct ProfileInForce {
   KEL_VALUE( ProfileInForce, "Evidence::ProfileInForce" )
   KEL_FIELD( Kel::String8, profile )
   KEL_FIELD( double, thresholdBitsRate )      // bit/s
   KEL_FIELD( double, sampleIntervalSeconds )  //
   KEL_FIELD( double, loadIntervalSeconds )    //
   KEL_FIELD( bool, shutdown )                 //
   KEL_VALUE_END( ProfileInForce )
};

// One interface in a window.
class WindowIntf final : public Kel::Entity {
   KEL_ENTITY( WindowIntf, "Evidence::WindowIntf", Lumo::IntfId, intfId )
   KEL_ATTR( bool, leftOut )  // of the proof
   KEL_ATTR( bool, seen )     // a link of that name, at some time since the request
   KEL_ATTR( ProfileInForce, profile )
   KEL_COUNTER( uint32_t, breaks )
   KEL_COUNTER( uint32_t, spikes )
   KEL_COUNTER( uint32_t, totalEvents )                  // all there were; the first and the last of them are kept
   KEL_MAP( IntfEvent, uint32_t, event, onEvent )        // by number
   KEL_MAP( Verdict, uint32_t, verdictAt, onVerdictAt )  // at the end of the stage with that number
   KEL_ATTR_BY( RateCells, rates )                       // in the order of time, at most 600
   KEL_ENTITY_END

   [[nodiscard]] RateCells rates() const { return rateSeries().cells(); }
   [[nodiscard]] RateSeries const & rateSeries() const {
      settled();
      return rates_;
   }
   // Tell nobody, watchers neither: they change with every reading, and are read when somebody wants to see them.
   void ratesIs( RateCells const & cells );
   void rateIs( RateCell const & cell ) { rates_.add( cell ); }
   void lastRateIs( RateCell const & cell ) { rates_.lastIs( cell ); }
   // For the store, without a loss; the latter throws AttributeError for what is none.
   [[nodiscard]] std::string packedRates() const { return rateSeries().packed(); }
   void packedRatesIs( std::string_view text );
   // From memory, what the next rates are written to.
   void fetchRates() const {
      Kel::fetch( source_ );
      Kel::fetch( rates_ );
   }
   void fetchEndOfRates() const { rates_.fetchEnd(); }

   // Asked before anybody reads the rates; null: nobody has any. It takes itself away before it ends.
   void rateSourceIs( RateSource * source ) { source_ = source; }

 private:
   void settled() const {
      if( source_ ) source_->settle();
   }

   RateSource * source_ = nullptr;
   RateSeries rates_;
};

}  // namespace Evidence

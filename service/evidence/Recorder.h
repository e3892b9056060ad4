// Writes into a window what happens to one of its interfaces: events, and rates over time in cells that grow wider as
// the stay grows longer, so that a window never grows beyond a bound.
//
// One per interface and window, owned by the account's place in the ledger. What it has to know is in the record, so
// one that is made over the record of an earlier service goes on.
#pragma once

#include <string>

#include "evidence/Run.h"
#include "evidence/Windows.h"

namespace Evidence {

class Recorder {
 public:
   // At most so many cells of rates for each of `intfs` interfaces of a window.
   [[nodiscard]] static uint32_t cellsFor( std::size_t intfs );

   // Null: there is no window to write to.
   Recorder( Kel::Ptr<WindowIntf> const & record, uint32_t cells );

   [[nodiscard]] Kel::Ptr<WindowIntf> const & record() const { return record_; }

   void eventIs( char const * kind, std::string const & text );
   // Counted besides.
   void breakIs( std::string const & cause );
   void spikeIs( std::string const & rate );
   // The rates of a reading that covers the time from `from` to `to`, in seconds.
   void ratesAre( double from, double to, Interface::IntfRates const & rates );

 private:
   [[nodiscard]] bool sharesLastCell( RateSeries const & cells, double from, double to ) const;
   void widen();

   Kel::Ptr<WindowIntf> const record_;
   uint32_t const cells_;
   double cellSeconds_ = 0;  // the width up to which readings share a cell
};

}  // namespace Evidence

// What can only be counted while it happens: events, reloads, and how late timers run.
//
// Owned by the agent, which makes it first, so that nothing that happens during its start is missed. All are counted
// from the start of the process, as programs that scrape expect; what is in records is read from there at each scrape
// (metrics/Metrics.h) and not counted twice here.
#pragma once

#include <prometheus/registry.h>

#include <string>
#include <vector>

namespace prometheus {
class Counter;
class Gauge;
class Histogram;
}  // namespace prometheus

namespace Host {

class LiveCounters {
 public:
   LiveCounters();

   // `kind`: one of the few kinds that events have.
   void eventInc( std::string const & kind );
   // A configuration was to be read again: it is in force now, or it was refused.
   void reloadInc( bool applied );
   // A timer that was due ran, so many seconds after it was.
   void latenessIs( double seconds );

   [[nodiscard]] std::vector<prometheus::MetricFamily> collected() const { return registry_.Collect(); }

 private:
   // The registry owns all of them.
   prometheus::Registry registry_;
   prometheus::Family<prometheus::Counter> & events_;
   prometheus::Counter & reloadsApplied_;
   prometheus::Counter & reloadsRefused_;
   prometheus::Gauge & lastReloadApplied_;
   prometheus::Histogram & lateness_;
};

}  // namespace Host

// GET /metrics: what a program that scrapes wants to know, in the Prometheus text format.
//
// A scrape takes a snapshot of what the service knows, in one turn, and is then sent family by family, each made in a
// turn of its own as the client reads: so also a thousand interfaces hold the loop for a moment only, and no sample is
// late for a scrape. Snapshots take memory, and clients may be slow: where too many are at it, the one that has been
// reading longest is cut off, in the middle of its answer, which it can tell.
#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "http/Http.h"
#include "metrics/LiveCounters.h"
#include "metrics/Snapshot.h"

namespace Host {

class Metrics {
 public:
   struct Parts {
      Service::MaintenanceService & service;
      Maintenance::MaintenanceState const & state;
      Kel::Ptr<Service::HeldLinkDir const> held;
      LiveCounters const & counters;
      // Whether nothing can be kept on disk; tries nothing. Empty: there is no store.
      std::function<bool()> storeTrouble;
   };

   static constexpr std::size_t scrapesMax = 16;

   // All outlive this.
   explicit Metrics( Parts parts ) : parts_( std::move( parts ) ) {}

   [[nodiscard]] HttpAnswer answer();  // in a turn

 private:
   class Scrape;

   Parts const parts_;
   std::deque<std::weak_ptr<Scrape>> scrapes_;  // those underway, the oldest first
};

}  // namespace Host

// The readings of one interface, and the run of quiet ones that they make.
//
// A reading is what two samples in a row say of the time between them, and only counters that were read for sure in the
// turn of either, with no restart and nothing else between the two that would make their difference a guess. Whatever
// breaks a run makes it forget its last reading, a loud one too: what is known begins again with the next.
//
// Owned by the ledger, which tells it what happens, in order. Knows no records and no clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "evidence/Accounts.h"
#include "records/Interface.h"

namespace Evidence {

class Run {
 public:
   // One published sample: its rates, and whether the counters of every row that it was made of were read in its turn.
   // `restarts` is how often any of these counters has started again.
   struct Sample {
      double time;  // s
      Interface::IntfRates rates;
      bool fresh;
      uint64_t restarts;
   };
   // What one step did to the run.
   struct Step {
      bool broke = false;            // a run of quiet readings has ended
      char const * cause = nullptr;  // of that; null: traffic
      bool loudEnded = false;        // what was loud is not any more, or nobody knows
      bool reading = false;          // the sample was one; of it the rest:
      double from = 0;               // s, what it covers
      double to = 0;
      Interface::IntfRates rates{};
      bool loud = false;
      bool becameLoud = false;
   };

   // One that makes no rate, like the first of a monitor: what is known begins with the next, measured from it.
   void firstSampleIs( double time, bool fresh, uint64_t restarts );
   Step sampleIs( Sample const & sample, double thresholdBitsRate );
   // A break between two samples that leaves their difference a measurement: the threshold changed.
   Step breakIs( char const * cause );
   // One that does not: the link flapped, the monitor ended, members changed.
   Step interruptIs( char const * cause );

   // Why there is no reading that counts: what spoilt the latest sample, or came after it. Empty when nothing did.
   [[nodiscard]] char const * trouble() const { return trouble_; }
   [[nodiscard]] bool loud() const { return loud_; }
   // The reading that counts, if there is one: the last of the run, or the loud one.
   [[nodiscard]] std::optional<double> lastReading() const {
      return hasReading_ ? std::optional( referenceTime_ ) : std::nullopt;
   }
   // Beginning of what the run of quiet readings covers; none while there is no run.
   [[nodiscard]] std::optional<double> quietSince() const {
      return hasRun_ ? std::optional( quietSince_ ) : std::nullopt;
   }
   // How much time the run covers, in seconds; 0 while there is none.
   [[nodiscard]] double quietSeconds() const { return hasRun_ ? referenceTime_ - quietSince_ : 0; }

   // The busier direction of rates that are not below the threshold.
   [[nodiscard]] static LoudReading loudReading( Interface::IntfRates const & rates, double time );

 private:
   void referenceIs( Sample const & sample );
   Step forget( char const * cause );

   // Of what there may be none, that there is one stands apart: it all goes into less than a cache line.
   bool hasReference_ = false;
   bool hasReading_ = false;
   bool hasRun_ = false;
   bool loud_ = false;
   // Of the latest sample, when the next one can be measured from it; where that is a reading, it is the last one.
   double referenceTime_ = 0;
   uint64_t referenceRestarts_ = 0;
   double quietSince_ = 0;
   char const * trouble_ = "";
};

// "traffic, out 3 Mbps", or the cause itself.
[[nodiscard]] std::string breakText( Run::Step const & step );

}  // namespace Evidence

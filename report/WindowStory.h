// One stay of a unit in maintenance, as it is reported: what the answer about a window says, and what follows from it.
//
// Made from the answer's Value, in which every member must be there, if only as null: an answer of another kind is
// refused as a whole and never half understood. Times are seconds on the service's clock, rates bit/s. What is not
// known is absent; nothing here turns it into a zero.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kel/Value.h"

namespace Report {

struct StoryStage {
   uint32_t number;
   std::string name;
   std::string operation;  // "enter" or "exit"
   double began;
   std::optional<double> ended;
   std::optional<double> deadlinePassed;
   std::string result;
   std::optional<std::string> why;  // how its hook failed

   [[nodiscard]] bool late() const { return deadlinePassed || result == "timed out"; }
};

struct StoryEvent {
   double time;
   std::string kind, text;
};

struct StoryVerdict {
   uint32_t stageNumber;
   std::string verdict;
};

struct StoryCell {
   double from, to;
   double inLow, inMean, inHigh;
   double outLow, outMean, outHigh;
};

struct StoryProfile {
   std::string name;
   double thresholdBitsRate;
   double sampleIntervalSeconds;
   double loadIntervalSeconds;
   bool shutdown;

   bool operator==( StoryProfile const & ) const = default;
};

struct StoryIntf {
   // The highest rates from the proof to the request to leave; where a cell of time reaches beyond that, they may have
   // been lower.
   struct Peak {
      double inBits = 0, outBits = 0;
      bool atMost = false;
   };

   std::string name;
   bool leftOut;
   bool seen;
   std::optional<StoryProfile> profile;
   uint32_t breaks, spikes, totalEvents;
   std::vector<StoryEvent> events;
   std::vector<StoryVerdict> verdicts;
   std::vector<StoryCell> cells;

   [[nodiscard]] std::optional<std::string> verdictAt( uint32_t stageNumber ) const;
   [[nodiscard]] std::optional<std::string> lastVerdict() const;
};

class WindowStory {
 public:
   // Throws Kel::AttributeError for a Value that is no answer about a window.
   explicit WindowStory( Kel::Value const & window );

   // When every interface was proven quiet, all at once: the end of the stage "verify".
   [[nodiscard]] std::optional<double> proven() const;
   // The stage whose end that was.
   [[nodiscard]] StoryStage const * proof() const;
   [[nodiscard]] bool underway() const { return outcome == "underway"; }
   [[nodiscard]] double end() const { return ended.value_or( asOf ); }
   // The last stage of the entry that has ended; null when none has.
   [[nodiscard]] StoryStage const * lastOfEntry() const;
   [[nodiscard]] std::optional<StoryIntf::Peak> peakAfterProof( StoryIntf const & intf ) const;
   [[nodiscard]] std::vector<std::string> leftOut() const;
   // Those first that a reader should look at first; equal ones as they were.
   [[nodiscard]] std::vector<StoryIntf const *> worstFirst() const;

   std::string unit;
   uint32_t generation = 0;
   std::optional<uint32_t> exitGeneration;
   std::optional<std::string> requestedBy, exitRequestedBy;
   std::optional<double> wallClockOffset;
   double asOf = 0, requested = 0;
   std::optional<double> entered, exitRequested, ended;
   std::string outcome;
   std::vector<StoryStage> stages;
   std::vector<StoryIntf> interfaces;
};

}  // namespace Report

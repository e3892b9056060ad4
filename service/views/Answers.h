// The answers of the API, declared like records: one line a field, and their JSON comes from it.
//
// Rates are in bit/s, spans in seconds, times in seconds on the service's clock. What is not known is null, never 0.
// `why` and other texts are for people, the rest is for programs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "evidence/Accounts.h"
#include "kel/Fields.h"
#include "kel/Optional.h"
#include "records/Unit.h"

namespace Service {

using Text = Kel::String8;
template<class T>
using Maybe = std::optional<T>;
template<class T>
using List = std::vector<T>;

struct LoudAnswer {
   KEL_VALUE( LoudAnswer, "LoudAnswer" )
   KEL_FIELD( double, time )
   KEL_FIELD( Text, direction )
   KEL_FIELD( double, bitsRate )
   KEL_VALUE_END( LoudAnswer )
};

// One interface of a unit. All but the name are null while the unit is not on its way through maintenance.
struct AccountAnswer {
   KEL_VALUE( AccountAnswer, "AccountAnswer" )
   KEL_FIELD( Text, interface )
   KEL_FIELD( Maybe<Text>, verdict )
   KEL_FIELD( Maybe<double>, since )  // when the verdict was reached; down and gone: from when they count
   KEL_FIELD( Maybe<bool>, settled )
   KEL_FIELD( Maybe<double>, quietSince )          // while the verdict is "quiet"
   KEL_FIELD( Maybe<double>, stillNeededSeconds )  // 0 when settled
   KEL_FIELD( Maybe<double>, inBitsRate )          // of the last reading that counts
   KEL_FIELD( Maybe<double>, outBitsRate )
   KEL_FIELD( Maybe<double>, thresholdBitsRate )
   KEL_FIELD( Maybe<double>, loadIntervalSeconds )
   // Of a loud one, null where it cannot be said yet: "slow" falls, "stuck" has not fallen for a load interval.
   KEL_FIELD( Maybe<Text>, pace )
   KEL_FIELD( Maybe<double>, quietInSeconds )  // estimate of when a slow one is below the threshold; null: unsure
   KEL_FIELD( Maybe<LoudAnswer>, lastLoud )
   KEL_FIELD( Maybe<uint32_t>, breaks )
   KEL_FIELD( Maybe<uint32_t>, spikes )
   KEL_FIELD( Maybe<Text>, why )
   KEL_VALUE_END( AccountAnswer )
};

struct UnitAnswer {
   KEL_VALUE( UnitAnswer, "UnitAnswer" )
   KEL_FIELD( Text, unit )
   KEL_FIELD( Text, state )
   KEL_FIELD( uint32_t, generation )
   KEL_FIELD( Maybe<Text>, stage )    // that runs now
   KEL_FIELD( Maybe<double>, since )  // when the unit came into its state
   KEL_FIELD( Maybe<Text>, requestedBy )
   KEL_FIELD( bool, ready )
   KEL_FIELD( Maybe<double>, provenUntil )
   KEL_FIELD( bool, disturbed )
   KEL_FIELD( List<Text>, without )
   KEL_FIELD( Maybe<Text>, note )  // what a person should know besides, as that there is nothing to prove
   KEL_FIELD( double, now )        // when this was said; how long ago the other times were counts from here
   KEL_FIELD( List<AccountAnswer>, interfaces )
   KEL_VALUE_END( UnitAnswer )
};

struct UnitsAnswer {
   KEL_VALUE( UnitsAnswer, "UnitsAnswer" )
   KEL_FIELD( List<UnitAnswer>, units )
   KEL_VALUE_END( UnitsAnswer )
};

struct ReadyAnswer {
   KEL_VALUE( ReadyAnswer, "ReadyAnswer" )
   KEL_FIELD( Text, unit )
   KEL_FIELD( bool, ready )
   KEL_FIELD( Maybe<double>, provenUntil )
   KEL_FIELD( bool, disturbed )
   KEL_FIELD( double, now )      // when this was said
   KEL_FIELD( List<Text>, why )  // each reason that it is not; when it is, what is worth knowing
   KEL_VALUE_END( ReadyAnswer )
};

// One interface as the box has it, whatever units it is in.
struct InterfaceAnswer {
   KEL_VALUE( InterfaceAnswer, "InterfaceAnswer" )
   KEL_FIELD( Text, interface )
   KEL_FIELD( Text, operStatus )         // "up", "down", "unknown", "missing"
   KEL_FIELD( Maybe<Text>, monitoring )  // the rate monitor's state; null: not monitored
   KEL_FIELD( bool, shutDown )           // held down by us
   KEL_FIELD( Maybe<Text>, profile )
   KEL_FIELD( Maybe<double>, inBitsRate )
   KEL_FIELD( Maybe<double>, outBitsRate )
   KEL_FIELD( Maybe<double>, thresholdBitsRate )
   KEL_FIELD( Maybe<double>, sampleIntervalSeconds )
   KEL_FIELD( Maybe<double>, loadIntervalSeconds )
   KEL_FIELD( Maybe<uint32_t>, totalSamples )
   KEL_FIELD( Maybe<double>, lastSampleSecondsAgo )
   KEL_FIELD( List<Text>, units )
   KEL_VALUE_END( InterfaceAnswer )
};

struct InterfacesAnswer {
   KEL_VALUE( InterfacesAnswer, "InterfacesAnswer" )
   KEL_FIELD( List<InterfaceAnswer>, interfaces )
   KEL_VALUE_END( InterfacesAnswer )
};

// What was asked for, and what became of it.
struct RequestAnswer {
   KEL_VALUE( RequestAnswer, "RequestAnswer" )
   KEL_FIELD( Text, request )  // "enter" or "exit"
   KEL_FIELD( Text, unit )
   KEL_FIELD( Text, result )  // "started", "already" or "refused"
   KEL_FIELD( Maybe<uint32_t>, generation )
   KEL_FIELD( List<Text>, why )
   KEL_VALUE_END( RequestAnswer )
};

}  // namespace Service

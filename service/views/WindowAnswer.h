// The answers about windows, declared like those in views/Answers.h: one line a field, and their JSON comes from it.
//
// Rates are in bit/s, spans in seconds, times in seconds on the service's clock; `wallClockOffset` added to a time
// gives Unix time. What is not known, has not happened or does not apply is null, never 0. Lists are in the order of
// time, interfaces in the order of their names.
#pragma once

#include "evidence/Windows.h"
#include "views/Answers.h"

namespace Service {

// One stage as it went. Numbers rise from stage to stage and are what verdicts refer to.
struct WindowStageAnswer {
   KEL_VALUE( WindowStageAnswer, "WindowStageAnswer" )
   KEL_FIELD( uint32_t, number )
   KEL_FIELD( Text, stage )
   KEL_FIELD( Text, operation )  // "enter" or "exit"
   KEL_FIELD( double, began )
   KEL_FIELD( Maybe<double>, ended )           // null while it runs
   KEL_FIELD( Maybe<double>, deadlinePassed )  // when it did; it may have gone on all the same
   KEL_FIELD( Text, result )                   // "running", "done", "timed out", "failed", "given up"
   KEL_FIELD( Maybe<Text>, why )               // how its hook failed; on "hold" it may have gone well since
   KEL_VALUE_END( WindowStageAnswer )
};

// What was known of an interface when a stage ended.
struct WindowVerdictAnswer {
   KEL_VALUE( WindowVerdictAnswer, "WindowVerdictAnswer" )
   KEL_FIELD( uint32_t, stageNumber )
   KEL_FIELD( Text, verdict )
   KEL_VALUE_END( WindowVerdictAnswer )
};

struct WindowInterfaceAnswer {
   KEL_VALUE( WindowInterfaceAnswer, "WindowInterfaceAnswer" )
   KEL_FIELD( Text, interface )
   KEL_FIELD( bool, leftOut )                             // of the proof
   KEL_FIELD( bool, seen )                                // a link of that name, at some time since the request
   KEL_FIELD( Maybe<Evidence::ProfileInForce>, profile )  // as it was last in force
   KEL_FIELD( uint32_t, breaks )                          // of runs of quiet readings
   KEL_FIELD( uint32_t, spikes )                          // times that traffic came back in maintenance
   KEL_FIELD( uint32_t, totalEvents )  // all there were; the first and the last of them are in the list
   KEL_FIELD( List<Evidence::IntfEvent>, events )
   KEL_FIELD( List<WindowVerdictAnswer>, verdicts )
   KEL_FIELD( List<Evidence::RateCell>, rates )  // a time that no cell covers was not measured
   KEL_VALUE_END( WindowInterfaceAnswer )
};

// One stay of a unit in maintenance, from the request to the end of the exit, and all that is known of it.
struct WindowAnswer {
   KEL_VALUE( WindowAnswer, "WindowAnswer" )
   KEL_FIELD( Text, unit )
   KEL_FIELD( uint32_t, generation )  // of the enter
   KEL_FIELD( Maybe<uint32_t>, exitGeneration )
   KEL_FIELD( Maybe<Text>, requestedBy )
   KEL_FIELD( Maybe<Text>, exitRequestedBy )
   KEL_FIELD( Maybe<double>, wallClockOffset )  // null: the clock is invented
   KEL_FIELD( double, asOf )                    // when this was answered; what is underway may have gone on since
   KEL_FIELD( double, requested )               // when it was asked to enter
   KEL_FIELD( Maybe<double>, entered )          // when it was in maintenance
   KEL_FIELD( Maybe<double>, exitRequested )
   KEL_FIELD( Maybe<double>, ended )
   KEL_FIELD( Text, outcome )  // "underway", "completed", "deadline", "rolled back", "failed", "abandoned"
   KEL_FIELD( List<WindowStageAnswer>, stages )
   KEL_FIELD( List<WindowInterfaceAnswer>, interfaces )
   KEL_VALUE_END( WindowAnswer )
};

// A window in the list of all.
struct WindowLineAnswer {
   KEL_VALUE( WindowLineAnswer, "WindowLineAnswer" )
   KEL_FIELD( Text, unit )
   KEL_FIELD( uint32_t, generation )
   KEL_FIELD( Maybe<Text>, requestedBy )
   KEL_FIELD( Maybe<double>, wallClockOffset )
   KEL_FIELD( double, requested )
   KEL_FIELD( Maybe<double>, entered )
   KEL_FIELD( Maybe<double>, exitRequested )
   KEL_FIELD( Maybe<double>, ended )
   KEL_FIELD( Text, outcome )
   KEL_FIELD( uint32_t, interfaces )  // how many, those that were left out of the proof included
   KEL_FIELD( List<Text>, without )   // their names
   KEL_FIELD( uint32_t, breaks )      // of all interfaces together
   KEL_FIELD( uint32_t, spikes )
   KEL_VALUE_END( WindowLineAnswer )
};

struct WindowsAnswer {
   KEL_VALUE( WindowsAnswer, "WindowsAnswer" )
   KEL_FIELD( List<WindowLineAnswer>, windows )  // the latest request first
   KEL_VALUE_END( WindowsAnswer )
};

}  // namespace Service

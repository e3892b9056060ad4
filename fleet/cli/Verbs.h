// The verbs of maintfleet that ask the controller, over its unix socket. Each returns the program's exit status.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/Client.h"

namespace Fleet {

enum VerbStatus : int { verbDone = 0, verbFailed = 1, verbRefused = 4, verbNotReached = 5 };

struct VerbOptions {
   std::string socket = "/run/ratemon/fleet.sock";
   bool json = false;  // answers for programs, as they come
};

// What is to go through maintenance. Spans are s.
struct PlanOptions {
   std::vector<std::string> boxes;
   std::vector<std::string> labels;  // "plane:b"
   std::string unit;                 // empty: all of a box
   bool all = false;                 // of the fleet, where nothing of these is named
   std::string waves;                // "1,5,10%"; empty: one by one
   std::optional<double> soakSeconds;
   std::optional<double> deadlineSeconds;
   std::string atDeadline;             // "hold" or "give-back"; empty: hold
   std::optional<double> staySeconds;  // absent: until somebody orders it back
   bool dryRun = false;
};
int askPlan( VerbOptions const & options, PlanOptions const & plan );
// Back to service: boxes, and units as "BOX/UNIT".
int askReturn( VerbOptions const & options, std::vector<std::string> const & names );
// Of the fleet, or of a plan or box of that name.
int askStatus( VerbOptions const & options, std::string const & name );
// Boxes, or units as "BOX/UNIT". `verbDone` when they can, `verbFailed` when not.
int askCanStop( VerbOptions const & options, std::vector<std::string> const & names, std::string const & unit );
// What was ordered and what came of it; empty: no matter which.
struct HistoryOptions {
   std::string box;
   std::string unit;
   std::string plan;
   std::optional<double> agoSeconds;  // no older than that
};
int askHistory( VerbOptions const & options, HistoryOptions const & of );
// Of "boxes", "units" (as BOX/UNIT), "plans", "labels" (as plane:b) or "sites", a line each: for completion.
int askNames( VerbOptions const & options, std::string const & what );
// "pause", "resume" or "cancel"; `without`: of resume, "BOX/UNIT".
int askPlanChange( VerbOptions const & options, std::string const & plan, std::string const & what,
                   std::vector<std::string> const & without = {} );
// An empty site: all of them.
int askBrake( VerbOptions const & options, std::string const & site, bool on );
int askAccept( VerbOptions const & options );

}  // namespace Fleet

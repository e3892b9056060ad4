// Runs any bytes as a scenario, for the fuzzer and for the test that runs the fuzzer's corpus.
//
// Each input gets a world of its own, so that it gives the same every time. The plug-in is loaded and never started:
// records that make no sense end it on purpose, as they would end the agent, and what is tried here is what reads the
// lines: JSON, verbs, paths, attributes, counters, time. A line that would start it is left out.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Test {

struct ScenarioRun {
   std::vector<std::string> answers;
   std::string error;  // of the line at which it ended; empty when all were carried out
   // What must hold whatever the input says, and did not: an answer that is no JSON object, a record that prints other
   // than what it was set to.
   std::vector<std::string> faults;
};

[[nodiscard]] ScenarioRun runScenario( std::string_view input );

}  // namespace Test

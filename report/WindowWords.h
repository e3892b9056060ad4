// What a window comes to, in sentences: the first lines of its page.
#pragma once

#include <string>
#include <vector>

#include "report/Moments.h"
#include "report/WindowStory.h"

namespace Report {

// How a statement is to be taken; each tone has a shape of its own beside its colour.
enum class Tone { good, plain, warn, bad };

struct Sentence {
   Tone tone;
   std::string html;
};

// The outcome in a few words.
[[nodiscard]] Sentence headline( WindowStory const & story );
[[nodiscard]] std::vector<Sentence> firstLines( WindowStory const & story, Moments const & moments );

[[nodiscard]] char const * toneName( Tone tone );
[[nodiscard]] Tone toneOfVerdict( std::string_view verdict );
[[nodiscard]] std::string counted( std::size_t n, std::string const & one );
// "eth0, eth1 and 3 more", escaped.
[[nodiscard]] std::string namesHtml( std::vector<std::string> const & names, std::size_t most );
// "2 quiet, 1 held": the verdicts of all interfaces at the end of a stage, escaped; empty when none is known.
[[nodiscard]] std::string tally( WindowStory const & story, uint32_t stageNumber );

}  // namespace Report

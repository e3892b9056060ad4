// One life: the lines of a scenario, carried out in a world of their own under the eyes of the judge.
#pragma once

#include <filesystem>
#include <functional>

#include "Oracle.h"

namespace Lives {

using Lines = std::vector<std::string>;

struct Outcome {
   std::optional<Fault> fault;
   size_t line = 0;  // at which it showed, from 1
   Tally tally;
};

[[nodiscard]] Outcome live( Lines const & lines );

// Fewer lines that end in the same kind of fault. Tries for as long as it is told to.
[[nodiscard]] Lines shrunk( Lines lines, std::string const & kind, double seconds );

// As a scenario, with `remarks` before it; comments and blank lines are no lines of a life.
void write( std::filesystem::path const & file, Lines const & lines, std::string const & remarks );
[[nodiscard]] Lines read( std::filesystem::path const & file );

}  // namespace Lives

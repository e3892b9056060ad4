// The levels of the framework trace, changed while the agent runs: what `maintctl trace --levels` asks for.
//
// All handles get the same levels. Their lines go where the process sends them, in maintd to standard error.
#pragma once

#include <optional>
#include <string_view>

#include "kel/Trace.h"
#include "kel/Value.h"

namespace Host {

// The levels of a list such as "1,2,4"; an empty list has none. None where an entry is no level.
[[nodiscard]] std::optional<Kel::TraceHandle::Levels> levelsOf( std::string_view list );

void traceLevelsIs( Kel::TraceHandle::Levels levels );
// { "levels": { handle: [level, ...], ... } }
[[nodiscard]] Kel::Value traceLevels();

}  // namespace Host

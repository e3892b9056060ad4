// Random lives of a box: a configuration, links, traffic, and what operators, cables and machines do to them in some
// minutes. The same seed gives the same lines, on every machine.
#pragma once

#include <cstdint>

#include "Life.h"

namespace Lives {

[[nodiscard]] Lines randomLife( uint64_t seed );

}  // namespace Lives

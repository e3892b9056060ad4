// How the lines of a watch are written.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "dovra/StatePath.h"

namespace Host::LineText {

// {"seq": N, "t": T,
void appendHead( std::string & line, uint64_t number, double time );
// "A", "B"
void appendPath( std::string & line, Dovra::StateComponents const & path );
// ], "value": V} and the end of the line; V is JSON already
void appendEnd( std::string & line, std::string_view value );
// The last line of a stream: why it ends, and after which number to go on.
[[nodiscard]] std::string lastLine( uint64_t place, std::string_view why );

}  // namespace Host::LineText

// A configuration written out again, as the JSON object that a file may as well be: the same keys, and quantities as
// text. Everything is written, also what stands for a field that was left out, so the text says the same wherever the
// defaults are others. parse() of it gives the same configuration.
#pragma once

#include "config/Config.h"
#include "kel/Value.h"

namespace Service::Config {

[[nodiscard]] Kel::Value jsonOf( Config const & config );

}  // namespace Service::Config

// Text that somebody else has chosen, made fit for a terminal (kel/Printable.h).
#pragma once

#include "kel/Printable.h"

namespace Cli {

using Kel::printable;
using Kel::printableLines;

}  // namespace Cli

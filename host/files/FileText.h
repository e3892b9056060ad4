// A file that an operator has written, read whole.
#pragma once

#include <string>

namespace Host {

// Throws std::runtime_error, which names the file and why it cannot be read.
[[nodiscard]] std::string fileText( std::string const & path );

}  // namespace Host

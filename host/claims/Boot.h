// Which boot of the machine this is.
#pragma once

#include <string>

namespace Host {

// The kernel's name for the present boot, another after each start of the machine; empty where it does not tell.
[[nodiscard]] std::string bootId();

}  // namespace Host

// The configuration file: read at the start, for --check, and again at each reload.
#pragma once

#include <string>

#include "config/Config.h"

namespace Host {

// What the file says, once it holds and asks for nothing that this agent does not carry out. Throws a
// std::runtime_error that names the file, one line for each thing that is wrong: Config::ConfigError where it is known
// in which line of the file.
[[nodiscard]] Service::Config::Config readConfig( std::string const & file );

}  // namespace Host

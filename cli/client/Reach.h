// The way to a daemon's socket, and in words why there is none.
#pragma once

#include <boost/asio/local/stream_protocol.hpp>

#include "client/Client.h"

namespace Cli {

using Socket = boost::asio::local::stream_protocol::socket;

// Throws NotReached, also when there is no room among the connections that wait for the daemon until `end`.
[[nodiscard]] Socket connected( boost::asio::io_context & io, std::string const & path, Clock::time_point end,
                                Daemon const & daemon = {} );

}  // namespace Cli

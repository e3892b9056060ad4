// The API's socket: a file, made without taking anything from anybody and removed only as long as it is ours, or a
// port.
//
// Owned by the HTTP server. A path at which there is anything but a socket is left alone, a symbolic link too, and so
// is a socket at which somebody listens. Only the socket file of a process that died is replaced.
#pragma once

#include <sys/types.h>

#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <string>

namespace Host {

class ListeningSocket {
 public:
   using Acceptor = boost::asio::basic_socket_acceptor<boost::asio::generic::stream_protocol>;

   // Listens at `path`, with that mode whatever the process's mask is. Throws std::runtime_error, which says what is
   // there, where that cannot be. `program`: who may be there already, for that text.
   ListeningSocket( boost::asio::io_context & io, std::string path, mode_t mode, std::string const & program );
   // Over TCP, at an address with its port, "127.0.0.1:8080" or "[::1]:8080". Throws std::runtime_error.
   ListeningSocket( boost::asio::io_context & io, std::string const & address );
   ListeningSocket( ListeningSocket const & ) = delete;
   ListeningSocket & operator=( ListeningSocket const & ) = delete;
   // The path may have been renamed or given to another by now: what is there then stays.
   ~ListeningSocket();

   [[nodiscard]] Acceptor & acceptor() { return acceptor_; }

 private:
   std::string const path_;  // empty: it is a port
   Acceptor acceptor_;
   dev_t device_ = 0;  // of the file
   ino_t inode_ = 0;
};

}  // namespace Host

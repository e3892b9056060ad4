// The file of the API's socket: made without taking anything from anybody, and removed only as long as it is ours.
//
// Owned by the HTTP server. A path at which there is anything but a socket is left alone, a symbolic link too, and so
// is a socket at which somebody listens. Only the socket file of a process that died is replaced.
#pragma once

#include <sys/types.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <string>

namespace Host {

class ListeningSocket {
 public:
   using Protocol = boost::asio::local::stream_protocol;

   // Listens at `path`, with that mode whatever the process's mask is. Throws std::runtime_error, which says what is
   // there, where that cannot be.
   ListeningSocket( boost::asio::io_context & io, std::string path, mode_t mode );
   ListeningSocket( ListeningSocket const & ) = delete;
   ListeningSocket & operator=( ListeningSocket const & ) = delete;
   // The path may have been renamed or given to another by now: what is there then stays.
   ~ListeningSocket();

   [[nodiscard]] Protocol::acceptor & acceptor() { return acceptor_; }

 private:
   std::string const path_;
   Protocol::acceptor acceptor_;
   dev_t device_ = 0;  // of the file
   ino_t inode_ = 0;
};

}  // namespace Host

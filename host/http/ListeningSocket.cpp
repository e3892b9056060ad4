#include "http/ListeningSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <cerrno>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <system_error>

namespace Host {

namespace asio = boost::asio;
using Protocol = asio::local::stream_protocol;

namespace {

std::string reason( int error ) { return std::generic_category().message( error ); }

[[noreturn]] void fail( std::string const & path, std::string const & why ) {
   throw std::runtime_error( "listening at " + path + ": " + why );
}

// What is at the path, which is not followed where it is a symbolic link; none where nothing is.
std::optional<struct stat> fileAt( std::string const & path ) {
   struct stat file {};
   if( ::lstat( path.c_str(), &file ) == 0 ) return file;
   if( errno == ENOENT ) return std::nullopt;
   fail( path, reason( errno ) );
}

bool same( struct stat const & one, struct stat const & other ) {
   return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

char const * kindOf( struct stat const & file ) {
   if( S_ISREG( file.st_mode ) ) return "a regular file";
   if( S_ISDIR( file.st_mode ) ) return "a directory";
   if( S_ISLNK( file.st_mode ) ) return "a symbolic link";
   return S_ISFIFO( file.st_mode ) ? "a pipe" : "a device";
}

// What comes of connecting; ECONNREFUSED where the file is all that is left of its process (connect(2)).
boost::system::error_code probed( asio::io_context & io, Protocol::endpoint const & endpoint ) {
   Protocol::socket probe( io, Protocol() );
   // A process that is stopped has a queue that fills up, and connecting would wait for it.
   probe.non_blocking( true );
   // Not by the socket's own connect(), which takes EAGAIN for a connection that will yet come about.
   if( ::connect( probe.native_handle(), endpoint.data(), static_cast<socklen_t>( endpoint.size() ) ) == 0 ) return {};
   return { errno, boost::system::system_category() };
}

// A path that exists cannot be bound (unix(7)).
void removeDeadSocket( asio::io_context & io, std::string const & path, Protocol::endpoint const & endpoint,
                       std::string const & program ) {
   auto const file = fileAt( path );
   if( !file ) return;
   if( !S_ISSOCK( file->st_mode ) )
      fail( path,
            std::string( "there is " ) + kindOf( *file ) + ", which is left alone; remove it or name another path" );
   auto const error = probed( io, endpoint );
   if( !error || error == asio::error::try_again )
      throw std::runtime_error( "another " + program + " answers at " + path );
   if( error != asio::error::connection_refused )
      fail( path, "there is a socket, which may be in use: " + error.message() );
   // Another agent may have been as quick to find that nobody listens, and have made its own by now.
   auto const now = fileAt( path );
   if( now && !same( *now, *file ) ) fail( path, "somebody else has just made a file there" );
   if( ::unlink( path.c_str() ) != 0 && errno != ENOENT ) fail( path, "removing the old socket: " + reason( errno ) );
}

// While it lives, files are made with that mode at most. By the mask, so that the socket is so from the first moment:
// with chmod() afterwards, whoever the inherited mask lets in could connect in between.
class ModeMask {
 public:
   explicit ModeMask( mode_t mode ) : before_( ::umask( 0777 & ~mode ) ) {}
   ModeMask( ModeMask const & ) = delete;
   ModeMask & operator=( ModeMask const & ) = delete;
   ~ModeMask() { ::umask( before_ ); }

 private:
   mode_t const before_;
};

Protocol::acceptor listening( asio::io_context & io, std::string const & path, mode_t mode,
                              std::string const & program ) {
   try {
      Protocol::endpoint const endpoint( path );
      removeDeadSocket( io, path, endpoint, program );
      ModeMask const mask( mode );
      return { io, endpoint };
   } catch( boost::system::system_error const & error ) {
      fail( path, error.code().message() );
   }
}

asio::ip::tcp::endpoint endpointOf( std::string const & address ) {
   std::size_t const colon = address.rfind( ':' );
   std::string host = address.substr( 0, colon );
   if( host.starts_with( '[' ) && host.ends_with( ']' ) ) host = host.substr( 1, host.size() - 2 );
   uint16_t port = 0;
   char const * const end = address.data() + address.size();
   auto const read = std::from_chars( address.data() + std::min( colon, address.size() - 1 ) + 1, end, port );
   boost::system::error_code error;
   auto const ip = asio::ip::make_address( host, error );
   if( colon == std::string::npos || read.ec != std::errc() || read.ptr != end || error )
      fail( address, "that is no address with a port, as 127.0.0.1:8080 or [::1]:8080" );
   return { ip, port };
}

asio::ip::tcp::acceptor listeningAt( asio::io_context & io, std::string const & address ) {
   auto const endpoint = endpointOf( address );
   try {
      return { io, endpoint };
   } catch( boost::system::system_error const & error ) {
      fail( address, error.code().message() );
   }
}

}  // namespace

ListeningSocket::ListeningSocket( asio::io_context & io, std::string const & address )
   : acceptor_( listeningAt( io, address ) ) {
   acceptor_.non_blocking( true );
}

ListeningSocket::ListeningSocket( asio::io_context & io, std::string path, mode_t mode, std::string const & program )
   : path_( std::move( path ) ), acceptor_( listening( io, path_, mode, program ) ) {
   acceptor_.non_blocking( true );
   if( auto const file = fileAt( path_ ) ) {
      device_ = file->st_dev;
      inode_ = file->st_ino;
   }
}

ListeningSocket::~ListeningSocket() {
   struct stat file {};
   if( path_.empty() || ::lstat( path_.c_str(), &file ) != 0 ) return;
   // Bound as long as this lives, the file keeps its number even after it was removed: no other can have it.
   if( file.st_dev == device_ && file.st_ino == inode_ ) ::unlink( path_.c_str() );
}

}  // namespace Host

#include "client/Reach.h"

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace Cli {

namespace asio = boost::asio;

namespace {

std::string userName( uid_t id ) {
   passwd const * const entry = ::getpwuid( id );
   return entry ? entry->pw_name : std::to_string( id );
}

std::string groupName( gid_t id ) {
   group const * const entry = ::getgrgid( id );
   return entry ? entry->gr_name : std::to_string( id );
}

// The directory on the way to `path` that this user may not enter; none when it is the path itself that is closed.
std::optional<std::string> closedDirectory( std::string const & path ) {
   std::error_code error;
   auto const whole = std::filesystem::absolute( path, error );
   std::filesystem::path directory;
   for( auto const & part : whole.parent_path() ) {
      directory /= part;
      if( ::access( directory.c_str(), X_OK ) != 0 ) return directory.string();
   }
   return std::nullopt;
}

NotReached denied( std::string const & path ) {
   std::string const closed = closedDirectory( path ).value_or( path );
   std::string text = "permission denied: " + path + " is not for user " + userName( ::geteuid() );
   struct stat found {};
   if( ::stat( closed.c_str(), &found ) != 0 ) return NotReached( text );
   // To connect is to write to the socket, and to pass a directory is to execute it (unix(7)).
   bool const ofGroup = found.st_mode & ( closed == path ? S_IWGRP : S_IXGRP );
   std::string const group = groupName( found.st_gid );
   text += "; " + closed + " is open to user " + userName( found.st_uid );
   if( ofGroup ) text += " and group " + group;
   return NotReached( text, "Run it as that user" +
                               ( ofGroup ? ", or be a member of group " + group + " (from the next login on)" : "" ) );
}

bool isSocket( std::string const & path ) {
   struct stat found {};
   return ::stat( path.c_str(), &found ) == 0 && S_ISSOCK( found.st_mode );
}

NotReached why( std::string const & path, Daemon const & daemon, int error ) {
   switch( error ) {
      case EACCES: return denied( path );
      case ENOENT: return NotReached( daemon.name + " is not running: there is no socket at " + path, daemon.startIt );
      case ECONNREFUSED:
         // Refused as well when the file is no socket at all.
         if( !isSocket( path ) ) return NotReached( path + " is no socket" );
         return NotReached( daemon.name + " is not running: nobody listens at " + path + " any more", daemon.startIt );
      case EAGAIN:
         return NotReached( daemon.name + " at " + path + " takes no connection: it is stopped, or too busy" );
      case EPROTOTYPE: return NotReached( path + " is a socket of another kind than " + daemon.name + "'s" );
      default: return NotReached( daemon.name + " is not reached at " + path + ": " + std::strerror( error ) );
   }
}

// Limits how long connect(2) may wait for room among the connections that the daemon has not taken yet.
void waitAtMost( int fd, Clock::duration left ) {
   using namespace std::chrono;
   // All zero would be for ever (socket(7)).
   auto const us = std::max<microseconds::rep>( duration_cast<microseconds>( left ).count(), 1 );
   timeval const limit{ .tv_sec = us / 1000000, .tv_usec = us % 1000000 };
   ::setsockopt( fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit );
}

}  // namespace

Socket connected( asio::io_context & io, std::string const & path, Clock::time_point end, Daemon const & daemon ) {
   constexpr std::size_t longest = sizeof( sockaddr_un::sun_path ) - 1;
   if( path.empty() ) throw NotReached( "the socket's path is empty" );
   if( path.size() > longest ) {
      throw NotReached( path + " is longer than a socket's path may be, which is " + std::to_string( longest ) +
                        " bytes" );
   }
   asio::local::stream_protocol::endpoint const endpoint( path );
   Socket socket( io, endpoint.protocol() );
   // Not by the library: it takes a unix socket that has no room (EAGAIN) for one that connects by and by, and then for
   // connected.
   int error = 0;
   do {
      waitAtMost( socket.native_handle(), end - Clock::now() );
      error = ::connect( socket.native_handle(), endpoint.data(), static_cast<socklen_t>( endpoint.size() ) ) == 0
                 ? 0
                 : errno;
      // Interrupted when this program was stopped and goes on (signal(7)).
   } while( error == EINTR );
   if( error != 0 ) throw why( path, daemon, error );
   return socket;
}

}  // namespace Cli

#include "FakeDaemon.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Cli {

namespace {

[[noreturn]] void fail( char const * what ) {
   std::perror( what );
   std::abort();
}

int listening( std::string const & path, int backlog ) {
   int const fd = ::socket( AF_UNIX, SOCK_STREAM, 0 );
   sockaddr_un address{ .sun_family = AF_UNIX, .sun_path = {} };
   path.copy( address.sun_path, sizeof address.sun_path - 1 );
   if( ::bind( fd, reinterpret_cast<sockaddr const *>( &address ), sizeof address ) != 0 ) fail( "bind" );
   if( ::listen( fd, backlog ) != 0 ) fail( "listen" );
   return fd;
}

// Its first two words; empty when it breaks off.
std::string requestRead( int connection ) {
   std::string text;
   for( char c = 0; !text.ends_with( "\r\n\r\n" ); text += c ) {
      if( ::read( connection, &c, 1 ) != 1 ) return "";
   }
   return text.substr( 0, text.find( " HTTP/1.1\r\n" ) );
}

[[noreturn]] void serve( int listener, FakeDaemon::Behave const & behave, bool reads ) {
   ::prctl( PR_SET_PDEATHSIG, SIGKILL );
   while( true ) {
      int const connection = ::accept( listener, nullptr, nullptr );
      std::string const request = reads ? requestRead( connection ) : "unread";
      if( !request.empty() ) behave( connection, request );
      ::close( connection );
   }
}

}  // namespace

std::string Reply::http() const {
   return "HTTP/1.1 " + std::to_string( status ) + " x\r\nContent-Type: " + type +
          "\r\nContent-Length: " + std::to_string( body.size() ) + "\r\n\r\n" + body;
}

FakeDaemon::FakeDaemon( std::string const & socket, Behave const & behave, Manner manner ) {
   int const listener = listening( socket, manner.backlog );
   process_ = ::fork();
   if( process_ == 0 ) serve( listener, behave, manner.reads );
   ::close( listener );
}

FakeDaemon::~FakeDaemon() {
   ::kill( process_, SIGKILL );
   ::waitpid( process_, nullptr, 0 );
}

void FakeDaemon::stop() const {
   ::kill( process_, SIGSTOP );
   ::waitpid( process_, nullptr, WUNTRACED );
}

bool sent( int connection, std::string_view text ) {
   while( !text.empty() ) {
      ssize_t const written = ::send( connection, text.data(), text.size(), MSG_NOSIGNAL );
      if( written < 0 ) return false;
      text.remove_prefix( static_cast<std::size_t>( written ) );
   }
   return true;
}

void waitUntilClosed( int connection ) {
   std::array<char, 64> unused{};
   while( ::read( connection, unused.data(), unused.size() ) > 0 ) {
   }
}

}  // namespace Cli

#include "FreePort.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>
#include <string>

namespace Fleet {

namespace {

constexpr int lowest = 20'000;
constexpr int ports = 12'000;

// A descriptor that holds the name of the port; -1 when another has it.
int claimed( int port ) {
   std::string const name = "ratemon-test-port-" + std::to_string( port );
   sockaddr_un address{ .sun_family = AF_UNIX, .sun_path = {} };
   name.copy( address.sun_path + 1, name.size() );  // behind the zero: no file
   auto const length = static_cast<socklen_t>( offsetof( sockaddr_un, sun_path ) + 1 + name.size() );
   int const fd = socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
   if( bind( fd, reinterpret_cast<sockaddr *>( &address ), length ) == 0 ) return fd;
   close( fd );
   return -1;
}

bool nobodyHas( int port ) {
   int const fd = socket( AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   sockaddr_in address{ .sin_family = AF_INET,
                        .sin_port = htons( static_cast<uint16_t>( port ) ),
                        .sin_addr = { htonl( INADDR_LOOPBACK ) },
                        .sin_zero = {} };
   bool const bound = bind( fd, reinterpret_cast<sockaddr *>( &address ), sizeof( address ) ) == 0;
   close( fd );
   return bound;
}

}  // namespace

FreePort::FreePort() {
   for( int i = 0; i < ports; ++i ) {
      number_ = lowest + ( getpid() + i ) % ports;
      claim_ = claimed( number_ );
      if( claim_ < 0 ) continue;
      if( nobodyHas( number_ ) ) return;
      close( claim_ );
   }
   throw std::runtime_error( "this machine has no port left" );
}

FreePort::~FreePort() { close( claim_ ); }

}  // namespace Fleet

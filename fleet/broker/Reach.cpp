#include "broker/Reach.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace Fleet {

bool Reach::answered() {
   if( Clock::now() - begun_ > patience ) begin();
   char first = 0;
   bool const there =
      std::ranges::any_of( sockets_, [&]( int fd ) { return ::recv( fd, &first, 1, MSG_DONTWAIT ) == 1; } );
   if( there ) giveUp();
   return there;
}

void Reach::begin() {
   giveUp();
   begun_ = Clock::now();
   if( places_.empty() || begun_ - lookedUp_ > nameHolds ) lookUp();
   for( Place const & place : places_ ) {
      int const fd = ::socket( place.family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 );
      if( fd < 0 ) continue;
      auto const * const where = reinterpret_cast<sockaddr const *>( place.address.data() );
      bool const onItsWay =
         ::connect( fd, where, static_cast<socklen_t>( place.address.size() ) ) == 0 || errno == EINPROGRESS;
      if( onItsWay ) {
         sockets_.push_back( fd );
      } else {
         ::close( fd );
      }
   }
}

// What was found before is kept where nothing is found now.
void Reach::lookUp() {
   lookedUp_ = Clock::now();
   addrinfo const wanted{ .ai_flags = AI_NUMERICSERV,
                          .ai_family = AF_UNSPEC,
                          .ai_socktype = SOCK_STREAM,
                          .ai_protocol = 0,
                          .ai_addrlen = 0,
                          .ai_addr = nullptr,
                          .ai_canonname = nullptr,
                          .ai_next = nullptr };
   addrinfo * found = nullptr;
   if( ::getaddrinfo( address_.host.c_str(), std::to_string( address_.port ).c_str(), &wanted, &found ) != 0 ) return;
   places_.clear();
   for( addrinfo const * each = found; each; each = each->ai_next ) {
      auto const * const bytes = reinterpret_cast<unsigned char const *>( each->ai_addr );
      places_.push_back( { each->ai_family, { bytes, bytes + each->ai_addrlen } } );
   }
   ::freeaddrinfo( found );
}

void Reach::giveUp() {
   for( int const fd : sockets_ ) ::close( fd );
   sockets_.clear();
}

}  // namespace Fleet

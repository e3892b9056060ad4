#include "claims/NamespaceLock.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace Host {

namespace {

constexpr std::string_view name = "ratemon/maintd";
// Nobody accepts: what asks who has the claim is told by the kernel, and stays in the queue. As long as the kernel
// allows, so that it is long before the queue is full and the kernel tells no more.
constexpr int queueLength = 4096;

struct Address {
   sockaddr_un address{};
   // The zero before the name makes it abstract; the length ends it.
   socklen_t const length = static_cast<socklen_t>( offsetof( sockaddr_un, sun_path ) + 1 + name.size() );

   Address() {
      address.sun_family = AF_UNIX;
      std::memcpy( address.sun_path + 1, name.data(), name.size() );
   }
   [[nodiscard]] sockaddr const * get() const { return reinterpret_cast<sockaddr const *>( &address ); }
};

struct Socket {
   int fd = ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   ~Socket() {
      if( fd >= 0 ) ::close( fd );
   }
};

[[noreturn]] void failed( int error ) {
   throw std::system_error( error, std::generic_category(), "claiming the links of this network namespace" );
}

// As the kernel noted it when that process began to listen; none where it has died by now, or the queue is full.
std::optional<ucred> holder() {
   Socket const probe;
   Address const address;
   ucred peer{};
   socklen_t length = sizeof peer;
   if( probe.fd < 0 || ::connect( probe.fd, address.get(), address.length ) != 0 ) return std::nullopt;
   if( ::getsockopt( probe.fd, SOL_SOCKET, SO_PEERCRED, &peer, &length ) != 0 ) return std::nullopt;
   return peer;
}

std::string taken() {
   std::string text = "the links of this network namespace are another's: ";
   auto const peer = holder();
   if( !peer ) return text + "it does not answer; \"ss -xlp\" shows who has @" + std::string( name );
   // The kernel gives 0 for a process that this one cannot see.
   text += peer->pid > 0 ? "process " + std::to_string( peer->pid ) : "a process of another container";
   text += " of user " + std::to_string( peer->uid ) + " has @" + std::string( name );
   bool const likelyAgent = peer->uid == 0 || peer->uid == ::geteuid();
   return likelyAgent ? text + ", most likely a maintd" : text + "; if that is no maintd, it keeps one from working";
}

int claimed() {
   Socket socket;
   Address const address;
   if( socket.fd < 0 ) failed( errno );
   if( ::bind( socket.fd, address.get(), address.length ) != 0 ) {
      if( errno == EADDRINUSE ) throw NamespaceTaken( taken() );
      failed( errno );
   }
   if( ::listen( socket.fd, queueLength ) != 0 ) failed( errno );
   return std::exchange( socket.fd, -1 );
}

}  // namespace

NamespaceLock::NamespaceLock() : socket_( claimed() ) {}

NamespaceLock::~NamespaceLock() { ::close( socket_ ); }

}  // namespace Host

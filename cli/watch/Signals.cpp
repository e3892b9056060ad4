#include "watch/Signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <initializer_list>

namespace Cli::Watch {

Signals::Signals() {
   sigset_t taken;
   ::sigemptyset( &taken );
   for( int const signal : { SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH } ) ::sigaddset( &taken, signal );
   ::sigprocmask( SIG_BLOCK, &taken, &before_ );
   fd_ = ::signalfd( -1, &taken, SFD_CLOEXEC | SFD_NONBLOCK );
}

Signals::~Signals() {
   ::close( fd_ );
   ::sigprocmask( SIG_SETMASK, &before_, nullptr );
}

int Signals::next() const {
   signalfd_siginfo info{};
   return ::read( fd_, &info, sizeof info ) == sizeof info ? static_cast<int>( info.ssi_signo ) : 0;
}

}  // namespace Cli::Watch

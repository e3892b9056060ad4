#include "hooks/Warden.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

namespace Host {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds patience{ 2 };  // from SIGTERM to SIGKILL
constexpr int reportFd = 3;                    // in the warden, beside the three that everybody has

// While they are blocked, a signal that comes right after the fork runs no handler of maintd in the copy, whose effects
// maintd would see.
class SignalsBlocked {
 public:
   SignalsBlocked() {
      sigset_t all;
      sigfillset( &all );
      sigprocmask( SIG_SETMASK, &all, &former_ );
   }
   SignalsBlocked( SignalsBlocked const & ) = delete;
   SignalsBlocked & operator=( SignalsBlocked const & ) = delete;
   ~SignalsBlocked() { sigprocmask( SIG_SETMASK, &former_, nullptr ); }

 private:
   sigset_t former_{};
};

void defaultSignals() {
   for( int signal = 1; signal < NSIG; ++signal ) {
      struct sigaction standard {};
      standard.sa_handler = SIG_DFL;
      sigaction( signal, &standard, nullptr );  // fails for those that cannot be handled
   }
}

// The rest is not to be got back either: not by the user being root, not by the program file's own rights. What is not
// permitted here is not needed then: without new privileges an exec gives nothing that the process has not.
void dropCapabilities() {
   for( int capability = 0; capability <= CAP_LAST_CAP; ++capability ) prctl( PR_CAPBSET_DROP, capability, 0, 0, 0 );
   prctl( PR_SET_SECUREBITS, ( SECURE_ALL_BITS & ~SECBIT_KEEP_CAPS ) | SECURE_ALL_LOCKS, 0, 0, 0 );
   prctl( PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0 );
   __user_cap_header_struct header{ .version = _LINUX_CAPABILITY_VERSION_3, .pid = 0 };
   std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> const none{};
   syscall( SYS_capset, &header, none.data() );
   prctl( PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0 );
}

std::vector<char *> pointers( std::vector<std::string> const & texts ) {
   std::vector<char *> all;
   for( std::string const & text : texts ) all.push_back( const_cast<char *>( text.c_str() ) );
   all.push_back( nullptr );
   return all;
}

// Nobody reads it when maintd is gone.
void write( WardenReport const & report ) { static_cast<void>( !::write( reportFd, &report, sizeof report ) ); }

[[noreturn]] void becomeHook( Command const & command, pid_t warden ) {
   setpgid( 0, 0 );
   prctl( PR_SET_PDEATHSIG, SIGKILL );
   if( getppid() != warden ) _exit( EXIT_FAILURE );
   fcntl( reportFd, F_SETFD, FD_CLOEXEC );
   dropCapabilities();
   sigset_t none;
   sigemptyset( &none );
   sigprocmask( SIG_SETMASK, &none, nullptr );
   execve( command.path.c_str(), pointers( command.arguments ).data(), pointers( command.environment ).data() );
   write( { .kind = WardenReport::startFailed, .value = errno, .leftovers = 0 } );
   _exit( 127 );
}

// The parent of a process, 0 when it is gone.
pid_t parentOf( char const * pid ) {
   std::array<char, 300> text{};  // long enough for the name, the state and the parent
   std::FILE * const file = std::fopen( ( std::string( "/proc/" ) + pid + "/stat" ).c_str(), "re" );
   if( !file ) return 0;
   static_cast<void>( !std::fread( text.data(), 1, text.size() - 1, file ) );
   std::fclose( file );
   // The name stands in parentheses and may have some itself.
   char const * const name = std::strrchr( text.data(), ')' );
   pid_t parent = 0;
   return name && std::sscanf( name + 1, " %*c %d", &parent ) == 1 ? parent : 0;
}

std::vector<pid_t> children() {
   std::vector<pid_t> found;
   DIR * const all = opendir( "/proc" );
   if( !all ) return found;
   while( dirent const * entry = readdir( all ) ) {
      int const pid = std::atoi( entry->d_name );
      if( pid > 0 && parentOf( entry->d_name ) == getpid() ) found.push_back( pid );
   }
   closedir( all );
   return found;
}

// What the warden does all its life.
class Watch {
 public:
   explicit Watch( Command const & command ) {
      pid_t const self = getpid();
      hook_ = fork();
      if( hook_ == 0 ) becomeHook( command, self );
      if( hook_ < 0 ) {
         hook_ = 0;
         report_ = { .kind = WardenReport::startFailed, .value = errno, .leftovers = 0 };
      } else {
         setpgid( hook_, hook_ );  // as the hook does itself: whoever of the two comes first
      }
      // The hook alone keeps the pipe open.
      dup2( STDIN_FILENO, STDOUT_FILENO );
      dup2( STDIN_FILENO, STDERR_FILENO );
   }

   void untilNothingIsLeft() {
      while( !reaped() ) {
         if( hook_ == 0 || told_ ) end();
         await();
      }
      write( report_ );
   }

 private:
   // True when there is no child any more.
   bool reaped() {
      while( true ) {
         int status = 0;
         pid_t const pid = waitpid( -1, &status, WNOHANG );
         if( pid == 0 ) return false;
         if( pid < 0 ) return true;
         if( pid == hook_ ) handleHook( status );
      }
   }

   void handleHook( int status ) {
      hook_ = 0;
      report_.kind = WIFEXITED( status ) ? WardenReport::exited : WardenReport::signalled;
      report_.value = WIFEXITED( status ) ? WEXITSTATUS( status ) : WTERMSIG( status );
   }

   void end() {
      auto const now = steady_clock::now();
      bool const first = !killAt_;
      if( first ) killAt_ = now + patience;
      bool const polite = now < *killAt_;
      int const signal = polite ? SIGTERM : SIGKILL;
      if( hook_ != 0 && ( first || !polite ) ) kill( -hook_, signal );
      for( pid_t const child : children() ) {
         if( child == hook_ && polite ) continue;
         bool const fresh = signalled_.insert( child ).second;
         if( fresh && hook_ == 0 ) ++report_.leftovers;
         if( fresh || !polite ) kill( child, signal );
      }
   }

   // For a child that ends or a word from maintd; where something is to be ended not for long, as a process may have
   // become a child without a sign.
   void await() {
      sigset_t awaited;
      sigemptyset( &awaited );
      sigaddset( &awaited, SIGCHLD );
      sigaddset( &awaited, SIGTERM );
      timespec const pause{ .tv_sec = 0, .tv_nsec = 50'000'000 };
      if( sigtimedwait( &awaited, nullptr, killAt_ ? &pause : nullptr ) == SIGTERM ) told_ = true;
   }

   pid_t hook_ = 0;  // 0 when it has been reaped
   bool told_ = false;
   std::optional<steady_clock::time_point> killAt_;  // since it is being ended
   std::set<pid_t> signalled_;
   WardenReport report_{};
};

[[noreturn]] void becomeWarden( Command const & command, int output, int report, pid_t maintd ) {
   prctl( PR_SET_PDEATHSIG, SIGTERM );
   if( getppid() != maintd ) _exit( EXIT_FAILURE );
   defaultSignals();
   prctl( PR_SET_NAME, "maintd-hook" );
   prctl( PR_SET_CHILD_SUBREAPER, 1 );
   setpgid( 0, 0 );
   // Out of the way of the numbers that they are to have.
   output = fcntl( output, F_DUPFD, reportFd + 1 );
   report = fcntl( report, F_DUPFD, reportFd + 1 );
   int const nothing = open( "/dev/null", O_RDWR );
   dup2( nothing, STDIN_FILENO );
   dup2( output, STDOUT_FILENO );
   dup2( output, STDERR_FILENO );
   dup2( report, reportFd );
   close_range( reportFd + 1, ~0U, 0 );
   if( chdir( "/" ) != 0 ) _exit( EXIT_FAILURE );
   Watch( command ).untilNothingIsLeft();
   _exit( EXIT_SUCCESS );
}

struct Pipe {
   Pipe() {
      std::array<int, 2> ends{};
      if( pipe2( ends.data(), O_CLOEXEC ) != 0 ) throw std::system_error( errno, std::generic_category(), "a pipe" );
      from = ends[0];
      to = ends[1];
      fcntl( from, F_SETFL, O_NONBLOCK );  // of this end alone
   }
   Pipe( Pipe const & ) = delete;
   Pipe & operator=( Pipe const & ) = delete;
   ~Pipe() {
      if( from >= 0 ) close( from );
      close( to );
   }

   int from;
   int to;
};

}  // namespace

Warden startWarden( Command const & command ) {
   Pipe output;
   Pipe report;
   Warden warden;
   {
      SignalsBlocked const blocked;
      pid_t const self = getpid();
      warden.pid = fork();
      if( warden.pid == 0 ) becomeWarden( command, output.to, report.to, self );
   }
   if( warden.pid < 0 ) throw std::system_error( errno, std::generic_category(), "a process" );
   // Not reaped by anybody, so the number is still its own.
   warden.pidFd = static_cast<int>( syscall( SYS_pidfd_open, warden.pid, 0 ) );
   if( warden.pidFd < 0 ) {
      int const error = errno;
      kill( warden.pid, SIGTERM );
      waitpid( warden.pid, nullptr, 0 );
      throw std::system_error( error, std::generic_category(), "a descriptor of a process" );
   }
   warden.output = std::exchange( output.from, -1 );
   warden.report = std::exchange( report.from, -1 );
   return warden;
}

}  // namespace Host

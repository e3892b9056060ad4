#include "hooks/ProgramHooks.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstring>
#include <deque>
#include <map>
#include <system_error>

#include "hooks/Lines.h"
#include "hooks/Trusted.h"
#include "hooks/Warden.h"
#include "kel/TurnEnd.h"
#include "state/TurnEndRank.h"

namespace Host {

namespace asio = boost::asio;
using Done = Service::Hooks::Done;
using Error = boost::system::error_code;

namespace {

using Descriptor = asio::posix::stream_descriptor;

// A turn of the loop is not held up for longer than it takes to log this much.
constexpr std::size_t bytesAtOnce = 4096;
// What is only dropped is read in bigger pieces, with pauses, in which the hook waits: 6 MB/s, at hardly any cost.
constexpr std::size_t droppedAtOnce = 64 * 1024;
constexpr std::chrono::milliseconds dropPause{ 10 };

Command commandOf( Service::HookRequest const & request, std::string const & path ) {
   return {
      .path = path,
      .arguments = request.run,
      .environment = { "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "MAINT_UNIT=" + request.unit,
                       std::string( "MAINT_OP=" ) + enumName( request.op ),
                       "MAINT_GENERATION=" + std::to_string( request.generation ), "MAINT_STAGE=" + request.stage } };
}

// A program that fails says why in its last line.
std::string failureOf( WardenReport const & report, std::string const & path, std::string const & last ) {
   switch( report.kind ) {
      case WardenReport::startFailed:
         return path + ": cannot be started: " + std::strerror( report.value ) +
                ( report.value == ENOENT ? "; the interpreter that it names is missing" : "" );
      case WardenReport::exited:
         if( report.value == 0 ) return {};
         return "exit status " + std::to_string( report.value ) + ( last.empty() ? "" : ": " + last );
      case WardenReport::signalled:
         return "ended by signal " + std::to_string( report.value ) + " (" + strsignal( report.value ) + ")";
   }
   return "no report";
}

// One hook that runs, or that is being ended.
class Running final : public std::enable_shared_from_this<Running> {
 public:
   using Over = std::function<void( std::string const & failure )>;

   Running( asio::io_context & io, Command const & command, Lines::Line const & log )
      : path_( command.path ),
        log_( log ),
        lines_( log ),
        warden_( startWarden( command ) ),
        end_( io, warden_.pidFd ),
        output_( io, warden_.output ),
        report_( io, warden_.report ),
        pause_( io ) {}

   // `over` is called once, when nothing of it is left.
   void follow( Over over ) {
      over_ = std::move( over );
      awaitOutput();
      end_.async_wait( Descriptor::wait_read, [weak = weak_from_this()]( Error error ) {
         auto const self = weak.lock();
         if( self && !error ) self->handleEnd();
      } );
   }

   void tellToEnd() { kill( warden_.pid, SIGTERM ); }

   // Waits for the end of a hook that was told to, no longer than until then.
   void awaitEnd( std::chrono::steady_clock::time_point until ) {
      using std::chrono::milliseconds;
      auto const left = std::chrono::duration_cast<milliseconds>( until - std::chrono::steady_clock::now() );
      pollfd ended{ .fd = warden_.pidFd, .events = POLLIN, .revents = 0 };
      if( poll( &ended, 1, std::max( 0, static_cast<int>( left.count() ) ) ) > 0 ) reap();
   }

 private:
   void awaitOutput() {
      output_.async_wait( Descriptor::wait_read, [weak = weak_from_this()]( Error error ) {
         auto const self = weak.lock();
         if( self && !error ) self->handleOutput();
      } );
   }

   void handleOutput() {
      if( !output_.is_open() ) return;
      bool const dropping = lines_.dropping();
      if( !take( dropping ? droppedAtOnce : bytesAtOnce ) ) return;
      if( !dropping ) return awaitOutput();
      pause_.expires_after( dropPause );
      pause_.async_wait( [weak = weak_from_this()]( Error error ) {
         auto const self = weak.lock();
         if( self && !error ) self->awaitOutput();
      } );
   }

   // What can be read now, so much at most; false when it has closed its end or there is nothing.
   bool take( std::size_t most ) {
      std::array<char, droppedAtOnce> bytes;
      auto const length = read( output_.native_handle(), bytes.data(), most );
      if( length <= 0 ) return length < 0 && errno == EAGAIN;
      lines_.take( { bytes.data(), static_cast<std::size_t>( length ) } );
      return true;
   }

   void reap() { waitpid( warden_.pid, nullptr, 0 ); }

   void handleEnd() {
      reap();
      // Nobody is left to write more than what a pipe holds.
      for( std::size_t rest = 0; rest < droppedAtOnce && take( bytesAtOnce ); rest += bytesAtOnce ) {
      }
      lines_.end();
      output_.close();
      pause_.cancel();
      WardenReport report{};
      bool const told = read( report_.native_handle(), &report, sizeof report ) == sizeof report;
      if( report.leftovers > 0 ) {
         log_( std::to_string( report.leftovers ) + ( report.leftovers == 1 ? " process" : " processes" ) +
               " that it had left running ended" );
      }
      over_( told ? failureOf( report, path_, lines_.last() )
                  : "nobody knows how it ended: the process that watched it is gone" );
   }

   std::string const path_;
   Lines::Line const log_;
   Lines lines_;
   Warden const warden_;
   Descriptor end_;
   Descriptor output_;
   Descriptor report_;
   asio::steady_timer pause_;
   Over over_;
};

}  // namespace

class ProgramHooks::Impl final : public Kel::TurnEnd {
 public:
   Impl( AsioLoop & loop, Log log, MayRun mayRun )
      : TurnEnd( Maintenance::hooksRun ),
        loop_( loop ),
        log_( std::move( log ) ),
        mayRun_( std::move( mayRun ) ),
        later_( loop.io() ) {}

   ~Impl() override {
      for( auto const & [unit, hook] : running_ ) hook.program->tellToEnd();
      // What is still there then stands still in the kernel, and is ended as soon as it does not.
      auto const until = std::chrono::steady_clock::now() + std::chrono::seconds( 3 );
      for( auto const & [unit, hook] : running_ ) hook.program->awaitEnd( until );
   }

   void run( Service::HookRequest const & request, Done done ) {
      waiting_.push_back( { request, std::move( done ) } );
      due();
   }

   void giveUp( std::string const & unit ) {
      std::erase_if( waiting_, [&]( Waiting const & hook ) { return hook.request.unit == unit; } );
      auto const found = running_.find( unit );
      if( found == running_.end() ) return;
      found->second.done = {};
      found->second.program->tellToEnd();
   }

   // One at a time: what follows from one that fails at once comes before the next.
   void onTurnEnd() override {
      auto const next = std::find_if( waiting_.begin(), waiting_.end(),
                                      [&]( Waiting const & hook ) { return !running_.contains( hook.request.unit ); } );
      if( next == waiting_.end() ) return;
      if( !mayRun_() ) return tryLater();
      Waiting hook = std::move( *next );
      waiting_.erase( next );
      due();
      start( hook.request, std::move( hook.done ) );
   }

 private:
   struct Waiting {
      Service::HookRequest request;
      Done done;
   };
   struct Hook {
      std::shared_ptr<Running> program;
      Done done;  // empty when nobody waits for it any more
   };

   void tryLater() {
      later_.expires_after( std::chrono::seconds( 1 ) );
      later_.async_wait( [this]( Error error ) {
         if( !error ) loop_.turn( [this] { due(); } );
      } );
   }

   void start( Service::HookRequest const & request, Done done ) {
      auto const [path, objection] = trustedProgram( request.run.front() );
      if( !objection.empty() ) return done( objection );
      auto const log = [this, name = request.stage + " of unit " + request.unit]( std::string const & line ) {
         log_( name, line );
      };
      std::shared_ptr<Running> program;
      try {
         program = std::make_shared<Running>( loop_.io(), commandOf( request, path ), log );
      } catch( std::system_error const & error ) {
         return done( path + ": cannot be started: " + error.what() );
      }
      running_[request.unit] = { program, std::move( done ) };
      program->follow( [this, unit = request.unit]( std::string const & failure ) { handleOver( unit, failure ); } );
   }

   void handleOver( std::string const & unit, std::string const & failure ) {
      auto const hook = running_.extract( unit );  // stays until this is over, as it is what calls
      loop_.turn( [&] {
         due();  // for the unit's next
         if( hook.mapped().done ) hook.mapped().done( failure );
      } );
   }

   AsioLoop & loop_;
   Log const log_;
   MayRun const mayRun_;
   std::deque<Waiting> waiting_;
   std::map<std::string, Hook> running_;  // by unit
   asio::steady_timer later_;
};

ProgramHooks::ProgramHooks( AsioLoop & loop, Log log, MayRun mayRun )
   : impl_( std::make_unique<Impl>( loop, std::move( log ), std::move( mayRun ) ) ) {}

ProgramHooks::~ProgramHooks() = default;

void ProgramHooks::run( Service::HookRequest const & request, Done done ) { impl_->run( request, std::move( done ) ); }

void ProgramHooks::giveUp( std::string const & unit ) { impl_->giveUp( unit ); }

std::string ProgramHooks::objection( std::string const & program ) { return trustedProgram( program ).objection; }

}  // namespace Host

// What those who watch cost those who sample: a box with 1,000 interfaces of one unit, each sampled every second, and
// so many clients that watch everything and read all of it. The program is the agent without its links and its store:
// service, plug-in, counters that grow, the API at a socket, on the real clock. The clients are another process, so
// their time and memory do not count.
//
// `lateness_ms` is by how much a timer of the loop was late that is due every 5 ms, in the middle and in the worst of a
// hundred and of all cases: so late would a sample have been that was due then. `cpu_ms/s` is the time that the process
// computed per second, `sampled/s` how many samples were taken. `bytes/watcher` is by how much the resident set is
// larger than before anybody watched, with all that watchers share, for each of them. `MB/s` is what they read
// together.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "api/Api.h"
#include "http/HttpServer.h"
#include "kel/ActivityLoop.h"
#include "loop/AsioLoop.h"
#include "maintenance/MaintenanceService.h"
#include "plugin/Loader.h"
#include "plugin/PluginContext.h"
#include "quill/CounterWriter.h"
#include "quill/EntityManager.h"
#include "state/MaintenanceState.h"

namespace {

constexpr int intfCount = 1000;
constexpr auto settling = std::chrono::seconds( 4 );
constexpr auto measured = std::chrono::seconds( 10 );

std::string const socketPath = "/tmp/ratemon-watch-bench-" + std::to_string( ::getpid() );

double residentNow() {
   malloc_trim( 0 );
   int64_t total = 0, resident = 0;  // pages
   std::ifstream( "/proc/self/statm" ) >> total >> resident;
   return static_cast<double>( resident * sysconf( _SC_PAGESIZE ) );
}

double computedSeconds() {
   rusage used{};
   ::getrusage( RUSAGE_SELF, &used );
   auto const seconds = []( timeval t ) {
      return static_cast<double>( t.tv_sec ) + static_cast<double>( t.tv_usec ) * 1e-6;
   };
   return seconds( used.ru_utime ) + seconds( used.ru_stime );
}

// Due again and again.
class Probe final : public Kel::Clock::NotifieeConst {
 public:
   explicit Probe( Kel::ActivityLoop & loop ) : NotifieeConst( loop.clock() ), due_( loop.clock()->now() + interval ) {
      timeMinIs( due_ );
   }
   void onTimeMin() override {
      // By the clock itself, as the time of the turn is when it began.
      lateness.push_back( notifier()->now() - due_ );
      due_ = notifier()->now() + interval;
      timeMinIs( due_ );
   }
   std::vector<double> lateness;  // s

 private:
   static constexpr double interval = 0.005;  // s
   double due_;
};

class WatchedBox {
 public:
   WatchedBox() {
      Maintenance::DefaultPluginLoader().load( RATEMON_PLUGIN_PATH );
      loop_.turn( [&] {
         for( int i = 0; i < intfCount; ++i ) linkIs( "Ethernet" + std::to_string( i ) );
         quill_->refresherIs( [this]( auto ) { readAll(); } );
         service_ = std::make_unique<Service::MaintenanceService>(
            Service::MaintenanceService::Host{ database_, state_, quill_, links_, hooks_, {}, {} }, config() );
         api_ = std::make_unique<Host::Api>( *database_, *service_, context_,
                                             []( std::string const & ) { return std::vector<std::string>(); } );
      } );
      loop_.turn( [&] { Maintenance::DefaultPluginLoader().initPlugins( context_ ); } );
      loop_.turn( [&] { static_cast<void>( service_->units().enter( "fabric", {}, "bench" ) ); } );
      // Awaits its timer from then on.
      loop_.stop();
      loop_.run();
      loop_.io().restart();
   }
   void runFor( std::chrono::milliseconds time ) { loop_.io().run_for( time ); }
   void turn( std::function<void()> const & work ) { loop_.turn( work ); }
   [[nodiscard]] Kel::ActivityLoop & activityLoop() { return activityLoop_; }
   [[nodiscard]] int64_t samples() const {
      int64_t sum = 0;
      for( auto const intf : intfs_ ) {
         auto const record = state_.monIntfStatus->monIntfStatus( intf );
         if( record ) sum += record->totalSamples();
      }
      return sum;
   }

 private:
   class NoHooks final : public Service::Hooks {
      void run( Service::HookRequest const &, Done done ) override { done( "there are none" ); }
      void giveUp( std::string const & ) override {}
   };

   void linkIs( std::string const & name ) {
      auto const intf = Lumo::IntfId::declare( name, Lumo::IntfKind::ethernet );
      intfs_.push_back( intf );
      Service::LinkReport report;
      report.up = true;
      links_.linkIs( intf, report );
      counters_.rowIs( intf );
   }
   // Two megabits a second, and not the same each time.
   void readAll() {
      auto const octets = static_cast<uint64_t>( Kel::now() * 250'000 );
      for( auto const intf : intfs_ ) counters_.readIs( intf, { octets, octets } );
   }
   [[nodiscard]] Service::Config::Config config() const {
      std::string text =
         "profiles: { quick: { threshold: 100kbps, sample-interval: 1s, load-interval: 30s } }\n"
         "default-profile: quick\nunits: { fabric: { groups: [g] } }\ngroups: { g: { interfaces: [";
      for( auto const intf : intfs_ ) text += std::string( intf.name() ) + ", ";
      return Service::Config::parse( text + "] } }\n", "maintd.yaml" );
   }

   Kel::ActivityLoop activityLoop_{ Kel::Ptr<Kel::Clock>( new Kel::RealClock ) };
   Host::AsioLoop loop_{ activityLoop_ };
   Kel::Ptr<Dovra::EntityManager> const database_{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state_{ *database_ };
   KelQuill::CounterWriter counters_{ state_.counterWriterStatus, "" };
   Kel::Ptr<KelQuill::EntityManager> const quill_{ new KelQuill::EntityManager( counters_.table() ) };
   Service::LinkRecords links_{ state_ };
   NoHooks hooks_;
   std::vector<Lumo::IntfId> intfs_;
   std::unique_ptr<Service::MaintenanceService> service_;
   Kel::Ptr<Kel::Dir> const pluginDir_{ new Kel::Dir( "plugins" ) };
   Maintenance::PluginContext context_{ pluginDir_, database_, quill_ };
   std::unique_ptr<Host::Api> api_;
   Host::HttpServer server_{
      loop_, { socketPath }, [this]( Host::HttpRequest const & request ) { return api_->answer( request ); } };
};

// Another process that watches everything so many times. It counts what it has read in memory that both see, so that it
// never waits for the one that measures.
class Watchers {
 public:
   explicit Watchers( int64_t count ) {
      if( read_ == MAP_FAILED ) std::abort();
      if( count > 0 && ( child_ = ::fork() ) == 0 ) watch( count );
   }
   Watchers( Watchers const & ) = delete;
   Watchers & operator=( Watchers const & ) = delete;
   ~Watchers() {
      if( child_ > 0 ) {
         ::kill( child_, SIGKILL );
         ::waitpid( child_, nullptr, 0 );
      }
      ::munmap( read_, sizeof *read_ );
   }
   // Since the last time.
   double bytesRead() {
      uint64_t const sum = read_->load();
      return static_cast<double>( sum - std::exchange( seen_, sum ) );
   }

 private:
   [[noreturn]] void watch( int64_t count ) const {
      ::prctl( PR_SET_PDEATHSIG, SIGKILL );
      static char piece[256 * 1024];
      std::string const request = "GET /v1/watch HTTP/1.1\r\nHost: x\r\n\r\n";
      sockaddr_un address{ .sun_family = AF_UNIX, .sun_path = {} };
      socketPath.copy( address.sun_path, sizeof address.sun_path - 1 );
      std::vector<pollfd> clients;
      for( int64_t i = 0; i < count; ++i ) {
         int const fd = ::socket( AF_UNIX, SOCK_STREAM, 0 );
         if( ::connect( fd, reinterpret_cast<sockaddr const *>( &address ), sizeof address ) != 0 ) ::_exit( 1 );
         if( ::send( fd, request.data(), request.size(), 0 ) < 0 ) ::_exit( 1 );
         clients.push_back( { fd, POLLIN, 0 } );
      }
      while( true ) {
         ::poll( clients.data(), clients.size(), -1 );
         for( pollfd const & client : clients ) {
            if( !client.revents ) continue;
            ssize_t const n = ::recv( client.fd, piece, sizeof piece, MSG_DONTWAIT );
            if( n <= 0 ) ::_exit( 2 );  // a watch that ended
            *read_ += static_cast<uint64_t>( n );
         }
      }
   }

   using Count = std::atomic<uint64_t>;
   Count * const read_ = static_cast<Count *>(
      ::mmap( nullptr, sizeof( Count ), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0 ) );
   uint64_t seen_ = 0;
   pid_t child_ = 0;

 public:
   [[nodiscard]] bool alive() const { return child_ == 0 || ::waitpid( child_, nullptr, WNOHANG ) == 0; }
};

double residentAlone = 0;  // bytes; while nobody has watched yet

void watch( benchmark::State & state ) {
   static WatchedBox & box = *new WatchedBox;
   int64_t const count = state.range( 0 );
   if( residentAlone == 0 ) {
      box.runFor( settling );
      residentAlone = residentNow();
   }
   Watchers watchers( count );
   box.runFor( settling );
   static_cast<void>( watchers.bytesRead() );
   for( auto _ : state ) {
      std::optional<Probe> made;
      box.turn( [&] { made.emplace( box.activityLoop() ); } );
      Probe & probe = *made;
      auto const samples = box.samples();
      auto const computed = computedSeconds();
      box.runFor( measured );
      double const seconds = std::chrono::duration<double>( measured ).count();
      state.counters["cpu_ms/s"] = ( computedSeconds() - computed ) * 1e3 / seconds;
      state.counters["sampled/s"] = static_cast<double>( box.samples() - samples ) / seconds;
      std::ranges::sort( probe.lateness );
      auto const late = [&]( double part ) {
         auto const n = static_cast<double>( probe.lateness.size() - 1 );
         return probe.lateness[static_cast<std::size_t>( n * part )] * 1e3;
      };
      state.counters["lateness_ms/mid"] = late( 0.5 );
      state.counters["lateness_ms/99%"] = late( 0.99 );
      state.counters["lateness_ms/max"] = late( 1 );
      state.counters["MB/s"] = watchers.bytesRead() / seconds * 1e-6;
   }
   if( !watchers.alive() ) return state.SkipWithError( "a watch has ended" );
   if( count > 0 ) state.counters["bytes/watcher"] = ( residentNow() - residentAlone ) / static_cast<double>( count );
}

BENCHMARK( watch )->Arg( 0 )->Arg( 1 )->Arg( 50 )->Arg( 0 )->Arg( 50 )->Iterations( 1 )->Unit( benchmark::kSecond );

}  // namespace

#include "Agent.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>
#include <ctime>
#include <utility>

#include "ConfigFile.h"
#include "Memory.h"
#include "Warnings.h"
#include "brisklog/Brisklog.h"
#include "claims/Boot.h"
#include "log/SystemLog.h"
#include "plugin/Loader.h"
#include "statusline/StatusLine.h"

namespace Host {

using Service::EventKind;
using Service::Severity;

namespace {

// Taken whole at the start, so that a disk without room shows then and not at the message that is needed later.
constexpr uint64_t traceBytes = 4 * 1024 * 1024;

// A link that could not be switched, or that waits for the store, is tried again as often as this.
constexpr std::chrono::seconds retryInterval( 10 );

// More than a turn of a thousand interfaces tells.
constexpr uint64_t numbersAtATime = 10'000;

// So long may clients take to read the last line of their streams.
constexpr std::chrono::seconds lastWordsTime( 1 );

std::string hostName() {
   std::array<char, HOST_NAME_MAX + 1> name{};
   return ::gethostname( name.data(), name.size() - 1 ) == 0 ? name.data() : "";
}

double wallTime() {
   timespec now{};
   clock_gettime( CLOCK_REALTIME, &now );
   return static_cast<double>( now.tv_sec ) + static_cast<double>( now.tv_nsec ) * 1e-9;
}

// A clock on which the times that the store has kept are past.
Kel::Ptr<ShiftedClock> clockAfter( Store const & store, std::string const & boot ) {
   double const ahead = Keeper::clockShift( store.moment(), boot, Kel::RealClock().now(), wallTime() );
   return Kel::Ptr<ShiftedClock>( new ShiftedClock( ahead ) );
}

// The agent runs without one where it cannot be had: it is for people, and nothing is decided by it.
void traceInto( std::string const & file ) {
   if( file.empty() ) return;
   try {
      Brisklog::ringIs( Brisklog::RingFile::create( file, traceBytes ) );
   } catch( Brisklog::RingError const & error ) {
      logLine( Severity::warning, "no trace is kept in a file: " + std::string( error.what() ) );
   }
}

// What stands in the way of a new configuration: each problem of the file, and at last each objection of the service.
std::vector<std::string> reloadFrom( std::string const & file, Service::MaintenanceService & service,
                                     std::string const & requestedBy ) {
   Service::Config::Config config;
   auto const refused = [&]( std::vector<std::string> const & why ) {
      service.tellNotReloaded( why, requestedBy );
      return why;
   };
   // Only the reading may fail. Our own mistakes in what comes after it end the agent, as everywhere.
   try {
      config = readConfig( file );
   } catch( Service::Config::ConfigError const & error ) {
      std::vector<std::string> why;
      for( auto const & [line, column, text] : error.problems() ) {
         why.push_back( file + ":" + std::to_string( line ) + ":" + std::to_string( column ) + ": " + text );
      }
      return refused( why );
   } catch( std::runtime_error const & error ) {
      return refused( { error.what() } );
   }
   return service.reload( std::move( config ), requestedBy );
}

}  // namespace

Agent::Agent( Options options, StandardError & standardError )
   : options_( std::move( options ) ),
     store_( Store::in( options_.stateDirectory ) ),
     boot_( bootId() ),
     clock_( clockAfter( store_, boot_ ) ),
     activityLoop_( clock_ ),
     loop_( activityLoop_, clock_->ahead() ),
     standardErrorRetry_( loop_, standardError ),
     serviceManager_( loop_ ),
     hangUps_( loop_.io(), SIGHUP ),
     ends_( loop_.io() ),
     retry_( loop_.io() ),
     lastWords_( loop_.io() ),
     // The handler is only called by run(), when start() has long made what answers.
     server_( loop_, { options_.socket }, [this]( HttpRequest const & request ) { return api_->answer( request ); } ),
     box_(
        options_.counterTable,
        [this]( std::string const & text, bool isTrouble ) {
           tell( EventKind::trouble, isTrouble ? Severity::error : Severity::notice, text );
        },
        [this]( Lumo::IntfId intf ) { handleLink( intf ); } ),
     guard_( box_.linkMonitor().table() ),
     hooks_(
        loop_,
        []( std::string const & hook, std::string const & line ) { logLine( Severity::info, hook + ": " + line ); },
        [this] { return keeper_ && keeper_->keep(); } ),
     pluginDir_( new Kel::Dir( "plugins" ) ),
     pluginContext_( pluginDir_, box_.database(), box_.counters() ) {
   if( !options_.readSocket.empty() )
      readServer_.emplace( loop_, HttpServer::Place{ options_.readSocket, 0666, options_.socket },
                           [this]( HttpRequest const & request ) { return api_->answer( request ); } );
   loop_.onLateIs( [this]( double seconds ) { counters_.latenessIs( seconds ); } );
   // Not before the socket is ours: this moves the files that are there.
   traceInto( options_.traceFile );
   BRISKLOG( 3, "maintd starts: socket {}, store {}", options_.socket, store_.path() );
}

Agent::~Agent() {
   server_.dropStreams();
   if( readServer_ ) readServer_->dropStreams();
   eventsToLog_.reset();
   eventsCounted_.reset();
   // In this order: what changed last is kept, and then nothing that goes writes to the store or touches a link.
   if( keeper_ ) static_cast<void>( !keeper_->keep() );
   keeper_.reset();
   control_.reset();
   api_.reset();
   metrics_.reset();
   recorder_.reset();
   service_.reset();
   // Before any member goes: the teardown of the plug-in writes records on which the members react, and takes its
   // dumper out of the context.
   pluginDir_->entityDelAll();
   BRISKLOG( 3, "maintd stops" );
}

void Agent::start( Service::Config::Config config ) {
   loop_.turn( [&] {
      keepRecords();
      beginHistory();
      watchLinks();
      controlLinks( config );
      startService( std::move( config ) );
   } );
   startPlugin();
   loop_.turn( [this] { tellWarnings(); } );
   returnMemory();
}

// First of all: everybody else is to find the records as they were left.
void Agent::keepRecords() {
   keeper_.emplace( Keeper::Parts{ .database = box_.database(),
                                   .store = store_,
                                   .tell =
                                      [this]( std::string const & text ) {
                                         bool const over = keeper_ && keeper_->trouble().empty();
                                         tell( EventKind::trouble, over ? Severity::notice : Severity::error, text );
                                      },
                                   .writable =
                                      [this] {
                                         if( control_ ) control_->retry();
                                      },
                                   .wallTime = wallTime,
                                   .boot = boot_,
                                   .clockShift = clock_->ahead() } );
}

// As soon as there are numbers for it.
void Agent::beginHistory() {
   numbers_.emplace( *box_.database(), "events", numbersAtATime );
   events_ =
      std::make_shared<Service::EventLog>( [this] { return numbers_->next(); }, [this] { return wallClockOffset(); } );
   eventsToLog_.emplace( *events_, logEvent );
   eventsCounted_.emplace( *events_,
                           [this]( Service::Event const & event ) { counters_.eventInc( event.kind.str() ); } );
   tell( EventKind::agent, Severity::notice, "started: socket " + options_.socket + ", store " + store_.path() );
}

void Agent::tell( EventKind kind, Severity severity, std::string const & text ) {
   // At the very beginning, and at the end, there is nobody to read a history.
   if( !eventsToLog_ ) return logLine( severity, text );
   events_->tell( { .kind = kind, .text = text, .severity = severity } );
}

void Agent::tellHold( Lumo::IntfId intf, Severity severity, std::string const & text ) {
   if( service_ ) return service_->tellHold( intf, severity, text );
   events_->tell( { .kind = EventKind::hold, .text = text, .severity = severity, .interface = intf } );
}

void Agent::watchLinks() {
   auto & monitor = box_.linkMonitor();
   // Not left to the watch: whoever is started next is to find every link there is.
   box_.findLinks();
   loop_.watch( monitor.fd(), [&monitor] { monitor.handleReadable(); } );
}

// Before the service: units that are in maintenance have their links held again before anybody judges them.
void Agent::controlLinks( Service::Config::Config const & config ) {
   control_.emplace( Service::LinkControl::Parts{
      .held = Service::heldLinkDir( *box_.database() ),
      .causes = box_.state().errdisableCauses,
      .links = kernelLinks_,
      .keep = [this] { return keeper_->keep(); },
      .tell = [this]( auto const &... told ) { tellHold( told... ); },
      .preserveIpv6 = [this,
                       atFirst = config.preserveIpv6] { return service_ ? service_->config().preserveIpv6 : atFirst; },
      .boot = boot_,
      .note =
         [this]( Lumo::IntfId intf, std::string const & text ) {
            if( service_ ) return service_->noteLink( intf, text );
            // What it finds at the start belongs into windows that are not there yet.
            notes_.emplace_back( intf, text );
         } } );
}

void Agent::startService( Service::Config::Config config ) {
   service_.emplace( Service::MaintenanceService::Host{ .database = box_.database(),
                                                        .state = box_.state(),
                                                        .counters = box_.counters(),
                                                        .links = box_.linkRecords(),
                                                        .hooks = hooks_,
                                                        .events = events_,
                                                        .wallClockOffset = [this] { return wallClockOffset(); },
                                                        .neverShut = neverShut },
                     std::move( config ) );
   for( auto const & [intf, text] : std::exchange( notes_, {} ) ) service_->noteLink( intf, text );
   recorder_.emplace( Recorder::Parts{ .database = *box_.database(),
                                       .state = box_.state(),
                                       .links = box_.linkRecords(),
                                       .rows = box_.counterRows(),
                                       .counters = *box_.counters(),
                                       .service = *service_,
                                       .wallClockOffset = [this] { return wallClockOffset(); },
                                       .host = hostName(),
                                       .version = RATEMON_VERSION } );
   box_.onReadIs( [this] {
      if( recorder_ ) recorder_->handleRead();
   } );
   api_.emplace(
      *box_.database(), *service_, pluginContext_,
      [this]( std::string const & requestedBy ) { return reload( requestedBy ); },
      [this]( auto const &... asked ) { return objections( asked... ); }, [this] { return storeTrouble(); },
      [this]( auto const & seconds ) { return recorder_->record( seconds ); } );
   metrics_.emplace( Metrics::Parts{ .service = *service_,
                                     .state = box_.state(),
                                     .held = Service::heldLinkDir( *box_.database() ),
                                     .counters = counters_,
                                     .storeTrouble = [this] { return !keeper_->trouble().empty(); } } );
   api_->metricsIs( [this] { return metrics_->answer(); } );
}

void Agent::startPlugin() {
   auto & loader = Maintenance::DefaultPluginLoader();
   // Outside a turn, as it only runs static initialisation; the start, which reads and writes records, gets one.
   loader.load( options_.plugin );
   loop_.turn( [&] {
      loader.initPlugins( pluginContext_ );
      recorder_->handlePluginStart();
   } );
}

void Agent::run() {
   // Received by the loop and not in a signal handler, so that the turn under way is finished first.
   ends_.add( SIGTERM );
   ends_.add( SIGINT );
   awaitEnd();
   awaitReload();
   awaitRetry();
   serviceManager_.ready( [this] { return statusLine( *service_, box_.state() ); } );
   loop_.run();
   ends_.clear();
}

void Agent::awaitEnd() {
   ends_.async_wait( [this]( boost::system::error_code error, int ) {
      if( !error ) stopServing();
   } );
}

void Agent::stopServing() {
   serviceManager_.stopping();
   loop_.turn( [this] { tell( EventKind::agent, Severity::notice, "stopping" ); } );
   ends_.async_wait( [this]( boost::system::error_code error, int ) {
      if( !error ) loop_.stop();
   } );
   lastWords_.expires_after( lastWordsTime );
   lastWords_.async_wait( [this]( boost::system::error_code error ) {
      if( !error ) loop_.stop();
   } );
   server_.stop( [this] {
      if( !readServer_ ) return loop_.stop();
      readServer_->stop( [this] { loop_.stop(); } );
   } );
}

void Agent::awaitReload() {
   hangUps_.async_wait( [this]( boost::system::error_code error, int ) {
      if( error ) return;
      loop_.turn( [this] { reload( "SIGHUP" ); } );
      awaitReload();
   } );
}

void Agent::awaitRetry() {
   retry_.expires_after( retryInterval );
   retry_.async_wait( [this]( boost::system::error_code error ) {
      if( error ) return;
      if( control_->waiting() ) loop_.turn( [this] { control_->retry(); } );
      returnMemoryOfBursts();
      awaitRetry();
   } );
}

void Agent::handleLink( Lumo::IntfId intf ) {
   // The first links are reported before there is anybody to take one down.
   if( control_ ) control_->handleLink( intf );
}

std::vector<std::string> Agent::reload( std::string const & requestedBy ) {
   serviceManager_.reloading();
   auto why = reloadFrom( options_.configFile, *service_, requestedBy );
   counters_.reloadInc( why.empty() );
   if( why.empty() ) {
      recorder_->handleConfig();
      tellWarnings();
   }
   returnMemory();
   serviceManager_.reloaded();
   return why;
}

void Agent::tellWarnings() {
   auto const tellWarning = [this]( std::string const & text ) { tell( EventKind::config, Severity::warning, text ); };
   try {
      for( std::string const & warning : warningsOf( *service_, box_ ) ) tellWarning( warning );
   } catch( Linux::NetlinkError const & error ) {
      tellWarning( std::string( "whether there is cause for warnings is not known: " ) + error.what() );
   }
}

std::string Agent::storeTrouble() {
   // At once, and not at the end of the turn: whoever asks is about to say that something is done.
   return keeper_->keep() ? "" : keeper_->trouble();
}

std::vector<std::string> Agent::objections( std::string const & unit, std::vector<std::string> const & without,
                                            std::string const & session ) {
   std::vector<std::string> why;
   for( Lumo::IntfId const intf : service_->units().shutBy( unit, without ) ) {
      std::string const reason = guard_.protectedBy( intf, session );
      if( reason.empty() ) continue;
      why.push_back( std::string( intf.name() ) + ": its profile shuts it down, and " + reason +
                     "; if that is meant: --yes" );
   }
   return why;
}

double Agent::wallClockOffset() const { return wallTime() - clock_->now(); }

}  // namespace Host

#include "Agent.h"

#include <csignal>
#include <iostream>

#include "ConfigFile.h"
#include "brisklog/Brisklog.h"
#include "plugin/Loader.h"

namespace Host {

namespace {

// Taken whole at the start, so that a disk without room shows then and not at the message that is needed later.
constexpr uint64_t traceBytes = 4 * 1024 * 1024;

void tell( std::string const & what ) {
   BRISKLOG( 3, "{}", what );
   std::cerr << "maintd: " << what << "\n";
}

void tellTrouble( std::string const & what ) {
   BRISKLOG( 1, "{}", what );
   std::cerr << "maintd: " << what << "\n";
}

void tellEvent( Service::Event const & event ) { tell( "unit " + event.unit + ": " + event.kind + ": " + event.text ); }

// What stands in the way of a new configuration: each problem of the file, and at last each objection of the service.
std::vector<std::string> reloadFrom( std::string const & file, Service::MaintenanceService & service ) {
   Service::Config::Config config;
   // Only the reading may fail. Our own mistakes in what comes after it end the agent, as everywhere.
   try {
      config = readConfig( file );
   } catch( Service::Config::ConfigError const & error ) {
      std::vector<std::string> why;
      for( auto const & [line, column, text] : error.problems() ) {
         why.push_back( file + ":" + std::to_string( line ) + ":" + std::to_string( column ) + ": " + text );
      }
      return why;
   } catch( std::runtime_error const & error ) {
      return { error.what() };
   }
   return service.reload( std::move( config ) );
}

}  // namespace

Agent::Agent( Service::Config::Config const & config, Options options )
   : options_( std::move( options ) ),
     clock_( new Kel::RealClock ),
     activityLoop_( clock_ ),
     loop_( activityLoop_ ),
     hangUps_( loop_.io(), SIGHUP ),
     // Bound before anything that a second agent must not touch: it throws where another one answers. The handler is
     // only called by run(), when api_, which comes last, has long been made.
     server_( loop_, options_.socket, [this]( HttpRequest const & request ) { return api_.answer( request ); } ),
     box_( config, options_.counterTable, tellEvent ),
     pluginDir_( new Kel::Dir( "plugins" ) ),
     pluginContext_( pluginDir_, box_.database(), box_.counters() ),
     api_( *box_.database(), box_.service(), pluginContext_, [this] { return reload(); } ) {
   // Not before the socket is ours: this moves the file that is there, perhaps that of an agent which still serves, to
   // FILE.old.
   if( !options_.traceFile.empty() ) Brisklog::ringIs( Brisklog::RingFile::create( options_.traceFile, traceBytes ) );
   BRISKLOG( 3, "maintd starts: {} units, socket {}", config.units.size(), options_.socket );
}

Agent::~Agent() {
   BRISKLOG( 3, "maintd stops" );
   // Before any member goes: the teardown of the plug-in writes records on which the members react, and takes its
   // dumper out of the context.
   pluginDir_->entityDelAll();
}

void Agent::start() {
   watchLinks();
   startPlugin();
   tellWarnings();
}

void Agent::watchLinks() {
   auto & monitor = box_.linkMonitor();
   // The first dump is not left to the watch: the plug-in is started next, and is to find every link there is.
   loop_.turn( [&] { monitor.start(); } );
   loop_.watch( monitor.fd(), [&monitor] { monitor.handleReadable(); } );
}

void Agent::startPlugin() {
   auto & loader = Maintenance::DefaultPluginLoader();
   // Outside a turn, as it only runs static initialisation; the start, which reads and writes records, gets one.
   loader.load( options_.plugin );
   loop_.turn( [&] { loader.initPlugins( pluginContext_ ); } );
}

void Agent::run() {
   // Received by the loop and not in a signal handler, so that the turn under way is finished first.
   boost::asio::signal_set ends( loop_.io(), SIGTERM, SIGINT );
   ends.async_wait( [this]( boost::system::error_code error, int ) {
      if( !error ) loop_.stop();
   } );
   awaitReload();
   loop_.run();
}

void Agent::awaitReload() {
   hangUps_.async_wait( [this]( boost::system::error_code error, int ) {
      if( error ) return;
      loop_.turn( [this] { reload(); } );
      awaitReload();
   } );
}

std::vector<std::string> Agent::reload() {
   auto why = reloadFrom( options_.configFile, box_.service() );
   for( std::string const & reason : why ) tellTrouble( "not reloaded: " + reason );
   if( why.empty() ) {
      tell( "reloaded " + options_.configFile );
      tellWarnings();
   }
   return why;
}

void Agent::tellWarnings() {
   for( std::string const & warning : box_.service().warnings() ) tellTrouble( "warning: " + warning );
}

std::vector<std::string> warningsOf( Service::Config::Config const & config ) {
   Kel::ActivityLoop loop( Kel::Ptr<Kel::Clock>( new Kel::RealClock ) );
   BoxService box( config, "", {} );
   loop.turn( [&] { box.linkMonitor().start(); } );
   return box.service().warnings();
}

}  // namespace Host

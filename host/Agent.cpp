#include "Agent.h"

#include <boost/asio/signal_set.hpp>
#include <csignal>

#include "brisklog/Brisklog.h"
#include "plugin/Loader.h"

namespace Host {

namespace {

// Taken whole at the start, so that a disk without room shows then and not at the message that is needed later.
constexpr uint64_t traceBytes = 4 * 1024 * 1024;

}  // namespace

Agent::Agent( Service::Config::Config const & config, Options const & options )
   : config_( config ),
     plugin_( options.plugin ),
     clock_( new Kel::RealClock ),
     activityLoop_( clock_ ),
     loop_( activityLoop_ ),
     // Bound before anything that a second agent must not touch: it throws where another one answers. The handler is
     // only called by run(), when api_, which comes last, has long been made.
     server_( loop_, options.socket, [this]( HttpRequest const & request ) { return api_.answer( request ); } ),
     database_( new Dovra::EntityManager ),
     state_( *database_ ),
     counterWriter_( state_.counterWriterStatus, options.counterTable ),
     linkFeed_( state_, counterWriter_ ),
     linkMonitor_( [this]( Linux::Link const & link ) { linkFeed_.changed( link ); },
                   [this]( Linux::Link const & link ) { linkFeed_.removed( link ); } ),
     counterFeed_( linkFeed_, counterWriter_ ),
     quill_( new KelQuill::EntityManager( counterWriter_.table() ) ),
     configRecords_( state_, config_ ),
     unitService_( state_, configRecords_ ),
     unitView_( state_, configRecords_ ),
     pluginDir_( new Kel::Dir( "plugins" ) ),
     pluginContext_( pluginDir_, database_, quill_ ),
     api_( *database_, unitService_, unitView_, pluginContext_ ) {
   // Not before the socket is ours: this moves the file that is there, perhaps that of an agent which still serves, to
   // FILE.old.
   if( !options.traceFile.empty() ) Brisklog::ringIs( Brisklog::RingFile::create( options.traceFile, traceBytes ) );
   BRISKLOG( 3, "maintd starts: {} units, socket {}", config_.units.size(), options.socket );
   quill_->refresherIs( [this]( auto rows ) { counterFeed_.refresh( rows ); } );
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
}

void Agent::watchLinks() {
   // The first dump is not left to the watch: the plug-in is started next, and is to find every link there is.
   loop_.turn( [this] { linkMonitor_.start(); } );
   loop_.watch( linkMonitor_.fd(), [this] { linkMonitor_.handleReadable(); } );
}

void Agent::startPlugin() {
   auto & loader = Maintenance::DefaultPluginLoader();
   // Outside a turn, as it only runs static initialisation; the start, which reads and writes records, gets one.
   loader.load( plugin_ );
   loop_.turn( [&] { loader.initPlugins( pluginContext_ ); } );
}

void Agent::run() {
   // Received by the loop and not in a signal handler, so that the turn under way is finished first.
   boost::asio::signal_set signals( loop_.io(), SIGTERM, SIGINT );
   signals.async_wait( [this]( boost::system::error_code error, int ) {
      if( !error ) loop_.stop();
   } );
   loop_.run();
}

}  // namespace Host

#include "Agent.h"

#include <boost/asio/signal_set.hpp>
#include <csignal>
#include <iostream>

#include "plugin/Loader.h"

namespace Host {

Agent::Agent( Config::Config const & config, Options const & options )
   : config_( config ),
     clock_( new Kel::RealClock ),
     activityLoop_( clock_ ),
     loop_( activityLoop_ ),
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
     api_( *database_, unitService_, unitView_ ),
     server_( loop_, options.socket, [this]( HttpRequest const & request ) { return api_.answer( request ); } ) {
   quill_->refresherIs( [this] { counterFeed_.refresh(); } );
   watchLinks();
   startPlugin( options.plugin );
}

Agent::~Agent() { pluginDir_->entityDelAll(); }

void Agent::watchLinks() {
   loop_.turn( [this] { linkMonitor_.start(); } );
   loop_.watch( linkMonitor_.fd(), [this] { linkMonitor_.handleReadable(); } );
}

void Agent::startPlugin( std::string const & path ) {
   auto & loader = Maintenance::DefaultPluginLoader();
   loader.load( path );
   loop_.turn( [&] { loader.initPlugins( pluginContext_ ); } );
}

void Agent::run() {
   boost::asio::signal_set signals( loop_.io(), SIGTERM, SIGINT );
   signals.async_wait( [this]( boost::system::error_code error, int ) {
      if( !error ) loop_.stop();
   } );
   loop_.run();
}

}  // namespace Host

// maintd: the maintenance service of a Linux box.
#include <CLI/CLI.hpp>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>

#include "Agent.h"
#include "ConfigFile.h"
#include "brisklog/Brisklog.h"
#include "kel/Exception.h"
#include "plugin/Loader.h"

namespace {

constexpr char const * defaultSocket = "/run/ratemon/maintd.sock";

enum ExitStatus : int { stopped = 0, failed = 1, usage = 2 };

// Named after the socket, because no two agents share one.
std::string traceBeside( std::string const & socket ) {
   return std::filesystem::path( socket ).replace_extension( ".trace" ).string();
}

std::string counted( std::size_t count, char const * what ) {
   return std::to_string( count ) + " " + what + ( count == 1 ? "" : "s" );
}

int serve( Service::Config::Config const & config, Host::Agent::Options const & options ) {
   // Outside the try, so that it is still whole where an exception is caught.
   std::unique_ptr<Host::Agent> agent;
   try {
      agent = std::make_unique<Host::Agent>( config, options );
      agent->start();
      std::cerr << "maintd: " << counted( config.units.size(), "unit" ) << ", serving at " << options.socket << "\n";
      agent->run();
      std::cerr << "maintd: stopping\n";
      return stopped;
   } catch( Kel::InternalException const & ) {
      // Our own mistakes end the process here, before anything is taken down: a teardown would go on writing records
      // from a state that does not hold. They are std::exceptions too, so they are asked for first.
      std::terminate();
   } catch( Kel::RangeError const & ) {
      std::terminate();
   } catch( std::exception const & error ) {
      // In the trace as well, which is still there when nobody has kept what went to standard error.
      BRISKLOG( 0, "maintd fails: {}", error.what() );
      std::cerr << "maintd: " << error.what() << "\n";
      return failed;
   }
}

// Says what the file would lead to on this box.
int check( std::string const & file, Service::Config::Config const & config ) {
   try {
      auto const warnings = Host::warningsOf( config );
      for( std::string const & warning : warnings ) std::cerr << "warning: " << warning << "\n";
      std::cout << file << " holds: " << counted( config.units.size(), "unit" ) << ", "
                << counted( warnings.size(), "warning" ) << "\n";
      return stopped;
   } catch( Host::Linux::NetlinkError const & error ) {
      std::cerr << "maintd: " << error.what() << "\n";
      return failed;
   }
}

}  // namespace

int main( int argc, char ** argv ) {
   CLI::App app( "Takes units of this box out of service, with proof that their traffic has gone, and back." );
   Host::Agent::Options options{ "", Plugin::besideProgram( "RateMonPlugin.so" ), defaultSocket, "", "" };
   app.add_option( "--config", options.configFile, "the configuration, see examples/maintd.yaml" )->required();
   app.add_option( "--socket", options.socket, "unix socket of the API" )->capture_default_str();
   app.add_option( "--plugin", options.plugin, "the rate monitor's shared object" )->capture_default_str();
   app.add_option( "--counter-table", options.counterTable,
                   "shared file for the interface counters (default: private memory)" );
   auto const * const traceFile =
      app.add_option( "--trace-file", options.traceFile,
                      "the last messages, for maintctl trace; what is there is kept as FILE.old; \"\" for none "
                      "(default: maintd.trace beside the socket, or as the socket is named)" );
   bool checkOnly = false;
   app.add_flag( "--check", checkOnly,
                 "only say whether the configuration holds, and what is odd about it on this box as it is now" );
   bool foreground = true;
   app.add_flag( "--foreground", foreground,
                 "stay in the foreground (it always does: a service manager backgrounds it)" );
   try {
      app.parse( argc, argv );
   } catch( CLI::ParseError const & error ) {
      // --help arrives as an exception too, with status 0. The library's other numbers give way to ours.
      return app.exit( error ) == 0 ? stopped : usage;
   }
   // What counts is whether the option was given, not whether its text is empty: "" stands for no trace.
   if( traceFile->count() == 0 ) options.traceFile = traceBeside( options.socket );
   Service::Config::Config config;
   try {
      config = Host::readConfig( options.configFile );
   } catch( std::runtime_error const & error ) {
      // Names the file itself, in each of its lines.
      std::cerr << error.what() << "\n";
      return usage;
   }
   if( checkOnly ) return check( options.configFile, config );
   auto const directory = std::filesystem::path( options.socket ).parent_path();
   std::error_code ignored;  // a directory that cannot be made shows when the socket is bound
   if( !directory.empty() ) std::filesystem::create_directories( directory, ignored );
   return serve( config, options );
}

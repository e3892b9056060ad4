// maintd: the maintenance service of a Linux box.
#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>

#include "Agent.h"
#include "brisklog/Brisklog.h"
#include "kel/Exception.h"
#include "plugin/Loader.h"

namespace {

constexpr char const * defaultSocket = "/run/ratemon/maintd.sock";

enum ExitStatus : int { stopped = 0, failed = 1, usage = 2 };

// The whole of a file; throws std::runtime_error when it cannot be read.
std::string contentsOf( std::string const & path ) {
   auto const check = []( bool good ) {
      if( !good ) throw std::runtime_error( std::string( "cannot be read: " ) + std::strerror( errno ) );
   };
   // By stdio, because a stream does not keep the reason of a failure. "e" closes the file in a child (fopen(3)).
   std::unique_ptr<std::FILE, int ( * )( std::FILE * )> const file( std::fopen( path.c_str(), "re" ), std::fclose );
   check( file != nullptr );
   std::string text;
   std::array<char, 4096> block;
   while( std::size_t const count = std::fread( block.data(), 1, block.size(), file.get() ) ) {
      text.append( block.data(), count );
   }
   // Not only for a failing disk: a directory can be opened like a file, and fails when it is read.
   check( !std::ferror( file.get() ) );
   return text;
}

// What the file asks for and this agent does not do is an error at the start, not a surprise in the next maintenance.
void refuseWhatIsNotCarriedOut( Service::Config::Config const & config ) {
   for( auto const & profile : config.profiles ) {
      if( profile.shutdown ) {
         throw std::runtime_error( "profile \"" + profile.name +
                                   "\": this maintd takes no link down, shutdown must be false" );
      }
   }
   for( auto const * stages : { &config.stages.maintEnter, &config.stages.maintExit } ) {
      for( auto const & stage : *stages ) {
         if( stage.name == Service::Config::rateMonStage && !stage.timeoutSeconds ) continue;
         throw std::runtime_error( "stage \"" + stage.name +
                                   "\": this maintd carries out the stage \"ratemon\" without a timeout and no other" );
      }
   }
}

// Named after the socket, because no two agents share one.
std::string traceBeside( std::string const & socket ) {
   return std::filesystem::path( socket ).replace_extension( ".trace" ).string();
}

int serve( Service::Config::Config const & config, Host::Agent::Options const & options ) {
   // Outside the try, so that it is still whole where an exception is caught.
   std::unique_ptr<Host::Agent> agent;
   try {
      agent = std::make_unique<Host::Agent>( config, options );
      agent->start();
      std::cerr << "maintd: " << config.units.size() << " units, serving at " << options.socket << "\n";
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

}  // namespace

int main( int argc, char ** argv ) {
   CLI::App app( "Takes units of this box out of service, with proof that their traffic has gone, and back." );
   std::string file;
   Host::Agent::Options options{ Plugin::besideProgram( "RateMonPlugin.so" ), defaultSocket, "", "" };
   app.add_option( "--config", file, "the configuration, see examples/maintd.yaml" )->required();
   app.add_option( "--socket", options.socket, "unix socket of the API" )->capture_default_str();
   app.add_option( "--plugin", options.plugin, "the rate monitor's shared object" )->capture_default_str();
   app.add_option( "--counter-table", options.counterTable,
                   "shared file for the interface counters (default: private memory)" );
   auto const * const traceFile =
      app.add_option( "--trace-file", options.traceFile,
                      "the last messages, for maintctl trace; what is there is kept as FILE.old; \"\" for none "
                      "(default: maintd.trace beside the socket, or as the socket is named)" );
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
      config = Service::Config::parse( contentsOf( file ), file );
      refuseWhatIsNotCarriedOut( config );
   } catch( Service::Config::ConfigError const & error ) {
      // Names the file itself, in each of its lines.
      std::cerr << error.what() << "\n";
      return usage;
   } catch( std::exception const & error ) {
      std::cerr << file << ": " << error.what() << "\n";
      return usage;
   }
   auto const directory = std::filesystem::path( options.socket ).parent_path();
   std::error_code ignored;  // a directory that cannot be made shows when the socket is bound
   if( !directory.empty() ) std::filesystem::create_directories( directory, ignored );
   return serve( config, options );
}

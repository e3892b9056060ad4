// maintsim: the rate monitor on a virtual clock, driven by the lines of a scenario.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

#include "plugin/Loader.h"
#include "scenario/Scenario.h"

namespace {

enum ExitStatus : int { done = 0, failed = 1, usage = 2 };

struct Options {
   std::string file;
   std::string plugin = Plugin::besideProgram( "RateMonPlugin.so" );
   double startTime = 1000;
};

int simulate( Options const & options, std::istream & lines ) {
   try {
      Sim::World world( options.plugin, options.startTime );
      Sim::Scenario scenario( world, std::cout );
      scenario.run( lines );
   } catch( Sim::ScenarioError const & error ) {
      std::cerr << ( options.file.empty() ? "standard input" : options.file ) << ": " << error.what() << "\n";
      return usage;
   } catch( Plugin::LoadError const & error ) {
      std::cerr << "maintsim: " << error.what() << "\n";
      return failed;
   }
   return done;
}

}  // namespace

int main( int argc, char ** argv ) {
   CLI::App app( "Runs the rate monitor on a virtual clock: what would this profile have done with that traffic?" );
   Options options;
   app.add_option( "FILE", options.file, "the scenario, one JSON object a line (default: standard input)" );
   app.add_option( "--start-time", options.startTime, "the virtual time at the start, in seconds" )
      ->capture_default_str()
      ->check( CLI::NonNegativeNumber );
   app.add_option( "--plugin", options.plugin, "the rate monitor's shared object" )->capture_default_str();
   try {
      app.parse( argc, argv );
   } catch( CLI::ParseError const & error ) {
      return app.exit( error ) == 0 ? done : usage;
   }
   if( options.file.empty() ) return simulate( options, std::cin );
   std::ifstream lines( options.file );
   if( !lines ) {
      std::cerr << "maintsim: " << options.file << " cannot be read\n";
      return usage;
   }
   return simulate( options, lines );
}

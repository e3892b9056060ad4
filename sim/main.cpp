// maintsim: the rate monitor on a virtual clock, driven by the lines of a scenario.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>

#include "Input.h"
#include "config/Config.h"
#include "plugin/Loader.h"
#include "report/Plot.h"
#include "report/Summary.h"
#include "scenario/Remarks.h"
#include "scenario/Scenario.h"
#include "tables/Printable.h"
#include "usage/Usage.h"

namespace {

enum ExitStatus : int { done = 0, failed = 1, usage = 2 };

struct Options {
   std::string file;
   std::string config;
   std::string plugin = Plugin::besideProgram( "RateMonPlugin.so" );
   double startTime = 1000;
   bool summary = false;
   std::string plot;
};

class ConfigFileError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// None when no file is named.
std::optional<Service::Config::Config> configOf( std::string const & fileName ) {
   if( fileName.empty() ) return std::nullopt;
   std::ifstream in( fileName );
   // A directory can be opened and is found out when it is read.
   static_cast<void>( in.peek() );
   if( !in.is_open() || in.bad() ) throw ConfigFileError( fileName + " cannot be read" );
   std::string const text{ std::istreambuf_iterator<char>( in ), {} };
   return Service::Config::parse( text, fileName );
}

class PlotError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// The picture's file, opened before the run so that nobody waits for a picture that cannot be kept.
class PlotFile {
 public:
   explicit PlotFile( std::string const & name ) : name_( name ) {
      if( !name.empty() ) file_.open( name, std::ios::trunc );
      check();
   }
   void write( std::string const & picture ) {
      // Flushed before the check: a full disk shows only when the bytes are written.
      file_ << picture << std::flush;
      check();
   }

 private:
   void check() const {
      // A stream that was never opened, as no picture is wanted, is in good order too.
      if( !file_ ) throw PlotError( name_ + " cannot be written: " + std::strerror( errno ) );
   }

   std::string const & name_;
   std::ofstream file_;
};

int simulate( Options const & options, std::istream & lines ) {
   try {
      auto config = configOf( options.config );
      PlotFile plotFile( options.plot );
      Sim::World world( options.plugin, options.startTime );
      // After the world, to which it refers, and so gone before it.
      std::optional<Report::History> history;
      if( options.summary || !options.plot.empty() ) history.emplace( world.state(), world.clock() );
      if( config ) world.inTurn( [&] { world.agent().configIs( std::move( *config ) ); } );
      // A temporary: a plug-in that still runs is taken down after the summary, and what it says then answers no line.
      Sim::Scenario( world, std::cout ).run( lines );
      for( std::string const & remark : Sim::remarks( world ) )
         std::cerr << "maintsim: " << Cli::printable( remark ) << "\n";
      if( options.summary ) std::cout << Cli::printableLines( Report::summary( *history ) ) << std::flush;
      if( !options.plot.empty() ) plotFile.write( Report::plot( *history ) );
   } catch( Sim::ScenarioError const & error ) {
      std::cerr << ( options.file.empty() ? "standard input" : options.file ) << ": " << Cli::printable( error.what() )
                << "\n";
      return usage;
   } catch( Service::Config::ConfigError const & error ) {
      std::cerr << Cli::printableLines( error.what() ) << "\n";
      return usage;
   } catch( ConfigFileError const & error ) {
      std::cerr << "maintsim: " << error.what() << "\n";
      return usage;
   } catch( PlotError const & error ) {
      std::cerr << "maintsim: " << error.what() << "\n";
      return failed;
   } catch( Plugin::LoadError const & error ) {
      std::cerr << "maintsim: " << error.what() << "\n";
      return failed;
   }
   return done;
}

}  // namespace

int main( int argc, char ** argv ) {
   CLI::App app( "Runs the rate monitor on a virtual clock: what would this profile have done with that traffic?",
                 "maintsim" );
   Options options;
   app.set_version_flag( "--version", "maintsim " RATEMON_VERSION, "print the version and exit" );
   app.add_option( "FILE", options.file, "the scenario, one JSON object a line (default: standard input)" );
   app.add_option( "--config", options.config, "the service's configuration, before the first line (YAML)" )
      ->type_name( "FILE" );
   app.add_option_function<std::string>(
         "--start-time",
         [&]( std::string const & text ) { options.startTime = Usage::clockSeconds( "--start-time", text ); },
         "the virtual time at the start, in seconds (default: 1000)" )
      ->type_name( "SECONDS" );
   app.add_option( "--plugin", options.plugin, "the rate monitor's shared object" )->capture_default_str();
   app.add_flag( "--summary", options.summary, "after the run, tables of what became of units and interfaces" );
   app.add_option( "--plot", options.plot, "after the run, draw it as a timeline into this file (SVG)" )
      ->type_name( "FILE" );
   try {
      app.parse( argc, argv );
   } catch( CLI::ParseError const & error ) {
      return Usage::ended( app, error );
   }
   Input input( options.file );
   return input.lines() ? simulate( options, *input.lines() ) : usage;
}

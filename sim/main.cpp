// maintsim: the rate monitor on a virtual clock, driven by the lines of a scenario.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>

#include "Input.h"
#include "config/Config.h"
#include "evidence/Windows.h"
#include "kel/Json.h"
#include "kel/Printable.h"
#include "plugin/Loader.h"
#include "report/Plot.h"
#include "report/Summary.h"
#include "report/WindowPage.h"
#include "scenario/Remarks.h"
#include "scenario/Scenario.h"
#include "usage/Usage.h"
#include "views/WindowView.h"

namespace {

constexpr double defaultStartTime = 1000;  // s

enum ExitStatus : int { done = 0, failed = 1, usage = 2 };

struct Options {
   std::string file;
   std::string config;
   std::string plugin = Plugin::besideProgram( "RateMonPlugin.so" );
   std::optional<double> startTime;  // s
   bool summary = false;
   std::string plot;
   std::string page;
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

class OutputError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// A picture's or a page's file, opened before the run so that nobody waits for what cannot be kept.
class OutputFile {
 public:
   explicit OutputFile( std::string const & name ) : name_( name ) {
      if( !name.empty() ) file_.open( name, std::ios::trunc );
      check();
   }
   void write( std::string const & content ) {
      // Flushed before the check: a full disk shows only when the bytes are written.
      file_ << content << std::flush;
      check();
   }

 private:
   void check() const {
      // A stream that was never opened, as nothing is wanted in it, is in good order too.
      if( !file_ ) throw OutputError( name_ + " cannot be written: " + std::strerror( errno ) );
   }

   std::string const & name_;
   std::ofstream file_;
};

// The page of the latest stay in maintenance.
std::string page( Sim::World const & world ) {
   Service::WindowView const view( Evidence::windowDir( *world.database() ) );
   auto const windows = view.windows().windows;
   if( windows.empty() ) throw OutputError( "there is no page: no unit has been in maintenance" );
   auto const window = view.window( windows.front().unit.str(), windows.front().generation );
   return Report::windowPage( Kel::value( *window ), Report::Origin::simulation );
}

// The lines up to the first that says something, which are read before there is a world: where they are the beginning
// of a recording they say when it begins.
struct Opening {
   explicit Opening( std::istream & lines ) {
      for( std::string line; !recording && std::getline( lines, line ); ) {
         text += line + "\n";
         auto const first = line.find_first_not_of( " \t\r" );
         if( first == std::string::npos || line[first] == '#' ) continue;
         try {
            recording = Sim::Recording::headerOf( line );
         } catch( Sim::LineError const & ) {
            // Told where the line is carried out, with its place.
         }
         return;
      }
   }

   std::string text;
   std::optional<Sim::Recording::Header> recording;  // none: it is none
};

void run( Options const & options, std::istream & lines ) {
   auto config = configOf( options.config );
   OutputFile plotFile( options.plot );
   OutputFile pageFile( options.page );
   Opening const opening( lines );
   double const recorded = opening.recording ? opening.recording->clock : defaultStartTime;
   Sim::World world( options.plugin, options.startTime.value_or( recorded ) );
   // After the world, to which it refers, and so gone before it.
   std::optional<Report::History> history;
   if( options.summary || !options.plot.empty() ) history.emplace( world.state(), world.clock() );
   {
      // Gone before the world: a plug-in that still runs is taken down after the summary, and what it says then answers
      // no line.
      Sim::Scenario scenario( world, std::cout );
      if( config && opening.recording ) {
         std::cerr << "maintsim: a recording is replayed, with " << options.config
                   << " in place of its configuration\n";
         scenario.configInsteadIs( std::move( *config ) );
      } else if( config ) {
         world.inTurn( [&] { world.agent().configIs( std::move( *config ) ); } );
      }
      std::istringstream first( opening.text );
      scenario.run( first );
      scenario.run( lines, static_cast<std::size_t>( std::ranges::count( opening.text, '\n' ) ) );
      for( std::string const & remark : Sim::remarks( world ) )
         std::cerr << "maintsim: " << Kel::printable( remark ) << "\n";
      if( options.summary )
         std::cout << Kel::printableLines( Report::summary( *history ) + scenario.recording().comparison() )
                   << std::flush;
   }
   if( !options.plot.empty() ) plotFile.write( Report::plot( *history ) );
   if( !options.page.empty() ) pageFile.write( page( world ) );
}

int simulate( Options const & options, std::istream & lines ) {
   try {
      run( options, lines );
   } catch( Sim::ScenarioError const & error ) {
      std::cerr << ( options.file.empty() ? "standard input" : options.file ) << ": " << Kel::printable( error.what() )
                << "\n";
      return usage;
   } catch( Service::Config::ConfigError const & error ) {
      std::cerr << Kel::printableLines( error.what() ) << "\n";
      return usage;
   } catch( ConfigFileError const & error ) {
      std::cerr << "maintsim: " << error.what() << "\n";
      return usage;
   } catch( OutputError const & error ) {
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
   app.add_option( "--config", options.config,
                   "the service's configuration, before the first line; in place of that of a recording (YAML)" )
      ->type_name( "FILE" );
   app.add_option_function<std::string>(
         "--start-time",
         [&]( std::string const & text ) { options.startTime = Usage::clockSeconds( "--start-time", text ); },
         "the virtual time at the start, in seconds (default: 1000, or as the recording says)" )
      ->type_name( "SECONDS" );
   app.add_option( "--plugin", options.plugin, "the rate monitor's shared object" )->capture_default_str();
   app.add_flag( "--summary", options.summary, "after the run, tables of what became of units and interfaces" );
   app.add_option( "--plot", options.plot, "after the run, draw it as a timeline into this file (SVG)" )
      ->type_name( "FILE" );
   app.add_option( "--html", options.page,
                   "after the run, write the page of the last stay in maintenance into this file" )
      ->type_name( "FILE" );
   try {
      app.parse( argc, argv );
   } catch( CLI::ParseError const & error ) {
      return Usage::ended( app, error );
   }
   Input input( options.file );
   return input.lines() ? simulate( options, *input.lines() ) : usage;
}

// maintctl: the command line of maintd.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>

#include "Commands.h"
#include "Trace.h"

namespace {

constexpr char const * defaultSocket = "/run/ratemon/maintd.sock";

std::string socketFromEnvironment() {
   char const * const path = std::getenv( "MAINTD_SOCKET" );
   // An empty variable counts as one that is not set.
   return path && *path ? path : defaultSocket;
}

// The commands with their arguments, and what each does once its arguments are read.
class CommandLine {
 public:
   CommandLine() {
      app_.footer( "Exit status: 0 done, 1 failed, 2 usage, 3 deadline passed, 4 refused, 5 maintd not reached." );
      // Exactly one, which is why the commands can share the variables that their options are read into.
      app_.require_subcommand( 1 );
      app_.add_option( "--socket", socket_, "unix socket of maintd (also MAINTD_SOCKET)" )->capture_default_str();
      addViews();
      addQuestions();
      addEnter();
      addOperation( "exit", "take a unit out of maintenance", Cli::exit );
      addReport();
      addConfiguration();
      addRecords();
      addTrace();
   }

   int run( int argc, char ** argv );

 private:
   using Action = std::function<int( Cli::Client const & )>;
   using OnUnit = int ( * )( Cli::Client const &, Cli::Options const &, std::string const & unit );

   CLI::App * add( char const * name, char const * what, Action action ) {
      CLI::App * const sub = app_.add_subcommand( name, what );
      actions_[sub] = std::move( action );
      return sub;
   }
   void addJsonTo( CLI::App * command ) { command->add_flag( "--json", options_.json, "print JSON for programs" ); }
   void addViews();
   void addQuestions();
   CLI::App * addOperation( char const * name, char const * what, OnUnit action );
   void addEnter();
   void addReport();
   void addConfiguration();
   void addRecords();
   void addTrace();

   CLI::App app_{ "Takes units of this box out of service, with proof that their traffic has gone, and back." };
   std::map<CLI::App *, Action> actions_;
   std::string socket_ = socketFromEnvironment();
   Cli::Options options_;
   std::string unit_;
   std::string path_;
   std::string interface_;
   Cli::ReportOptions report_;
   std::string traceFile_;
   bool followTrace_ = false;
};

void CommandLine::addViews() {
   using View = int ( * )( Cli::Client const &, Cli::Options const & );
   auto const view = [this]( char const * name, char const * what, View show ) {
      addJsonTo( add( name, what, [this, show]( Cli::Client const & client ) { return show( client, options_ ); } ) );
   };
   CLI::App * const status =
      add( "status", "units, their interfaces, and what each is waiting for",
           [this]( Cli::Client const & client ) { return Cli::status( client, options_, unit_ ); } );
   addJsonTo( status );
   status->add_option( "UNIT", unit_, "only this unit" );
   view( "units", "the units and their states", Cli::units );
   view( "interfaces", "the interfaces of all units", Cli::interfaces );
}

void CommandLine::addQuestions() {
   CLI::App * const ready =
      add( "ready", "whether a unit is proven quiet now: exit status 0, or 1 with the reasons",
           [this]( Cli::Client const & client ) { return Cli::ready( client, options_, unit_ ); } );
   addJsonTo( ready );
   ready->add_option( "UNIT", unit_, "the unit's name" )->required();
   CLI::App * const explain =
      add( "explain", "all that is known of an interface, in each unit that has it",
           [this]( Cli::Client const & client ) { return Cli::explain( client, options_, interface_ ); } );
   addJsonTo( explain );
   explain->add_option( "INTERFACE", interface_, "the interface's name" )->required();
}

CLI::App * CommandLine::addOperation( char const * name, char const * what, OnUnit action ) {
   CLI::App * const command =
      add( name, what, [=, this]( Cli::Client const & client ) { return action( client, options_, unit_ ); } );
   addJsonTo( command );
   command->add_option( "UNIT", unit_, "the unit's name" )->required();
   CLI::Option * const wait = command->add_flag( "--wait", options_.wait, "follow it until it is done" );
   command
      ->add_option( "--timeout", options_.timeoutSeconds,
                    "give up waiting after this time; a number is seconds (10min, 2h)" )
      ->needs( wait )
      // Converted to seconds first; the check sees those.
      ->transform( CLI::AsNumberWithUnit(
         std::map<std::string, double>{ { "ms", 1e-3 }, { "s", 1 }, { "min", 60 }, { "h", 3600 } } ) )
      ->check( CLI::NonNegativeNumber );
   return command;
}

void CommandLine::addEnter() {
   CLI::App * const command = addOperation( "enter", "put a unit into maintenance", Cli::enter );
   command
      ->add_option( "--without", options_.without,
                    "leave this interface out of the proof, on the record; may be given more than once" )
      // One name each time: the unit's name may stand behind it.
      ->allow_extra_args( false );
   command->add_flag( "--dry-run", options_.dryRun, "only say whether it would be refused, and why" )
      ->excludes( "--wait" );
}

void CommandLine::addReport() {
   CLI::App * const command =
      add( "report", "what is kept of a unit's stay in maintenance",
           [this]( Cli::Client const & client ) { return Cli::report( client, report_, unit_ ); } );
   command->add_option( "UNIT", unit_, "the unit's name" )->required();
   command->add_option( "--generation", report_.generation,
                        "the stay that was entered with this generation (default: the present or the last)" );
   CLI::Option * const html = command->add_option( "--html", report_.htmlFile, "write it as a page to this file" );
   command->add_flag( "--json", report_.json, "print JSON for programs" )->excludes( html );
}

void CommandLine::addConfiguration() {
   addJsonTo( add( "reload", "have maintd read its configuration again",
                   [this]( Cli::Client const & client ) { return Cli::reload( client, options_ ); } ) );
   add( "check-config", "whether a configuration holds, and what is odd about it on this box",
        [this]( Cli::Client const & ) { return Cli::checkConfig( path_ ); } )
      ->add_option( "FILE", path_, "the configuration file" )
      ->required();
}

void CommandLine::addRecords() {
   CLI::App * const get = add( "get", "a record of the state database, as JSON",
                               [this]( Cli::Client const & client ) { return Cli::get( client, path_ ); } );
   addJsonTo( get );
   get->add_option( "PATH", path_, "its path, for example maintenance/unit/status" )->required();
   add( "dump", "the rate monitor's whole inner state, as text", Cli::dump );
}

void CommandLine::addTrace() {
   CLI::App * const trace =
      add( "trace", "the latest messages of maintd's ring trace, also after its death", [this]( auto const & client ) {
         return Cli::trace( client, { traceFile_, followTrace_, options_.json } );
      } );
   addJsonTo( trace );
   CLI::Option * const file =
      trace->add_option( "--file", traceFile_,
                         "the trace's file (default: maintd.trace beside the socket, or as the socket is named); "
                         "the run before is in FILE.old" );
   CLI::Option * const follow =
      trace->add_flag( "--follow", followTrace_, "go on with what comes, also across restarts of maintd" );
   trace
      ->add_option_function<std::string>(
         "--levels",
         [=, this]( std::string const & levels ) {
            // With --levels the command is another: it asks maintd and reads no file.
            actions_[trace] = [=, this]( auto const & client ) {
               return Cli::traceLevels( client, levels, options_.json );
            };
         },
         "instead, set which levels of the plug-in's trace maintd writes to its standard error: 1,2,4 or none" )
      ->check( Cli::levelsFault )
      ->excludes( file )
      ->excludes( follow );
}

int CommandLine::run( int argc, char ** argv ) {
   try {
      app_.parse( argc, argv );
   } catch( CLI::ParseError const & error ) {
      // --help arrives as an exception too, with status 0. The library's other numbers give way to ours.
      return app_.exit( error ) == 0 ? Cli::done : Cli::usage;
   }
   try {
      return actions_.at( app_.get_subcommands().front() )( Cli::Client( socket_ ) );
   } catch( Cli::NotReached const & error ) {
      std::cerr << "maintctl: " << error.what()
                << "\nStart it with: maintd --config FILE   (systemctl start maintd where it is a service)\n";
      return Cli::notReached;
   } catch( std::exception const & error ) {
      std::cerr << "maintctl: " << error.what() << "\n";
      return Cli::failed;
   }
}

}  // namespace

int main( int argc, char ** argv ) { return CommandLine().run( argc, argv ); }

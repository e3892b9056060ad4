// maintctl: the command line of maintd.
#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>

#include "Commands.h"
#include "Events.h"
#include "Trace.h"
#include "client/Output.h"
#include "tables/Members.h"
#include "tables/Table.h"
#include "usage/Usage.h"

namespace {

using Cli::Client;

constexpr char const * defaultControlSocket = "/run/ratemon/control.sock";
constexpr char const * defaultReadSocket = "/run/ratemon/read.sock";

std::string socketFromEnvironment() {
   char const * const path = std::getenv( "MAINTD_SOCKET" );
   // An empty variable counts as one that is not set.
   return path ? path : "";
}

// Of all commands together: only one is given.
struct Arguments {
   std::string socket = socketFromEnvironment();  // for everything; empty: the usual two
   Cli::Options options;
   std::string unit;
   std::string interface;
   std::string path;
   Cli::ReportOptions report;
   Cli::ReleaseOptions release;
   Cli::RecordOptions record;
   Cli::TraceOptions trace;
   Cli::EventsOptions events;
   Cli::WatchOptions watch;
   std::string levels;  // empty: not given
};

using Declare = void ( * )( CLI::App &, Arguments & );

struct Command {
   char const * name;
   char const * what;
   int ( *run )( Client const &, Arguments const & );
   std::vector<Declare> takes;
};

void json( CLI::App & command, Arguments & a ) {
   command.add_flag( "--json", a.options.json, "print JSON for programs" );
}

// What is asked for would be another thing, as an empty name counts for nothing in a path, or can be nothing at all.
std::string unitFault( std::string const & name ) { return Usage::nameFault( name, 255 ); }
std::string interfaceFault( std::string const & name ) { return Usage::nameFault( name, 63 ); }
std::string pathFault( std::string const & path ) { return Usage::nameFault( path, 4096 ); }

void someUnit( CLI::App & command, Arguments & a ) {
   command.add_option( "UNIT", a.unit, "only this unit" )->check( unitFault );
}

void everything( CLI::App & command, Arguments & a ) {
   command.add_flag( "--all", a.options.all, "every interface, not only the ten that hold the unit up most" );
}

void unit( CLI::App & command, Arguments & a ) {
   command.add_option( "UNIT", a.unit, "the unit's name" )->required()->check( unitFault );
}

void interface( CLI::App & command, Arguments & a ) {
   command.add_option( "INTERFACE", a.interface, "the interface's name" )->required()->check( interfaceFault );
}

void waiting( CLI::App & command, Arguments & a ) {
   CLI::Option * const wait = command.add_flag( "--wait", a.options.wait, "follow it until it is done" );
   command
      .add_option_function<std::string>(
         "--timeout",
         [&a]( std::string const & text ) { a.options.timeoutSeconds = Usage::seconds( "--timeout", text ); },
         "give up waiting after this time, also for maintd's answers: 90s, 10min, 1h30m; a bare number is seconds" )
      ->type_name( "TIME" )
      ->needs( wait );
}

void entering( CLI::App & command, Arguments & a ) {
   command
      .add_option( "--without", a.options.without,
                   "leave this interface out of the proof, on the record; may be given more than once" )
      ->check( interfaceFault )
      // One name each time: the unit's name may stand behind it.
      ->allow_extra_args( false );
   command.add_flag( "--dry-run", a.options.dryRun, "only say whether it would be refused, and why" )
      ->excludes( "--wait" );
   command.add_flag( "--yes", a.options.yes,
                     "also where it takes down the link of the default route or of your own session" );
}

void watching( CLI::App & command, Arguments & a ) {
   command.add_option( "-n", a.watch.pictures, "end after so many pictures, or sets of lines; the last one stays" )
      ->check( CLI::PositiveNumber );
   command
      .add_option_function<std::string>(
         "--interval",
         [&a]( std::string const & text ) {
            a.watch.intervalSeconds = Usage::seconds( "--interval", text );
            if( a.watch.intervalSeconds < 0.1 || a.watch.intervalSeconds > 3600 )
               throw CLI::ValidationError( "--interval", "is a time from 100ms to 1h, not " + Usage::quoted( text ) );
         },
         "from one picture to the next (default: 1s)" )
      ->type_name( "TIME" );
}

void reporting( CLI::App & command, Arguments & a ) {
   command
      .add_option_function<std::string>(
         "--generation",
         [&a]( std::string const & text ) {
            a.report.generation = static_cast<uint32_t>( Usage::wholeNumber( "--generation", text, 0, UINT32_MAX ) );
         },
         "the stay that was entered with this generation (default: the present or the last)" )
      ->type_name( "NUMBER" );
   CLI::Option * const html = command.add_option( "--html", a.report.htmlFile, "write it as a page to this file" );
   command.add_flag( "--json", a.report.json, "print JSON for programs" )->excludes( html );
}

void releasing( CLI::App & command, Arguments & a ) {
   CLI::Option * const all = command.add_flag( "--all", a.release.all, "every link that maintd holds down" );
   CLI::Option * const names =
      command.add_option( "INTERFACE", a.release.interfaces, "these links" )->check( interfaceFault )->excludes( all );
   command.add_option( "--state", a.release.state, "maintd's directory for what it keeps (default: maintd's own)" );
   command.footer( "Exit status, which is maintd's: 0 done, 1 failed, 2 usage, 3 its store cannot be used." );
   command.callback( [=] {
      if( !*all && !*names ) throw CLI::RequiredError( "INTERFACE or --all" );
   } );
}

void configFile( CLI::App & command, Arguments & a ) {
   command.add_option( "FILE", a.path, "the configuration file" )->required()->check( []( std::string const & name ) {
      return Usage::nameFault( name, 4096 );
   } );
}

void recordPath( CLI::App & command, Arguments & a ) {
   command.add_option( "PATH", a.path,
                       "its path, as maintenance/unit/status; of one that leads to no record, and "
                       "without one, what is below is listed" );
}

void following( CLI::App & command, Arguments & a ) {
   command.add_option( "--after", a.events.after,
                       "go on after the event with this number, as far as that is still known (default: from now on)" );
   command.add_option( "--unit", a.events.unit, "only what concerns this unit, also by one of its interfaces" )
      ->check( unitFault );
   command.add_flag( "--json", a.events.json, "print the lines as they come, JSON for programs" );
}

void recording( CLI::App & command, Arguments & a ) {
   command.add_option( "FILE", a.record.file, "the file that is written; - for standard output" )
      ->required()
      ->check( pathFault );
   command
      .add_option_function<std::string>(
         "--for", [&a]( std::string const & text ) { a.record.seconds = Usage::seconds( "--for", text ); },
         "end by itself after this time: 90s, 5min, 1h30m; a bare number is seconds (default: when interrupted)" )
      ->type_name( "TIME" );
   command.add_flag( "--force", a.record.force, "write over a file that is there" );
   command.footer( "maintsim --summary FILE replays it; with --config other.yaml, as it would have been with that." );
}

void tracing( CLI::App & command, Arguments & a ) {
   CLI::Option * const file = command.add_option(
      "--file", a.trace.file,
      "the trace's file (default: maintd.trace beside control.sock, and as any other socket is named); "
      "the run before is in FILE.1, older ones in FILE.2 and FILE.3" );
   CLI::Option * const follow =
      command.add_flag( "--follow", a.trace.follow, "go on with what comes, also across restarts of maintd" );
   CLI::Option * const last =
      command
         .add_option_function<std::string>(
            "-n", [&a]( std::string const & text ) { a.trace.last = Usage::wholeNumber( "-n", text, 0, 1000000000 ); },
            "only the last so many messages" )
         ->type_name( "NUMBER" );
   CLI::Option * const since =
      command
         .add_option_function<std::string>(
            "--since",
            [&a]( std::string const & text ) {
               a.trace.since = Cli::traceSince( text );
               if( !a.trace.since )
                  throw CLI::ValidationError(
                     "--since", "is how long ago, as 5m, or a time, as 14:05 or \"2026-03-01 14:05:09\", not " +
                                   Usage::quoted( text ) );
            },
            "only messages from then on: how long ago (5m, 1h30m), or a time (14:05, \"2026-03-01 14:05\")" )
         ->type_name( "TIME" );
   command
      .add_option( "--levels", a.levels,
                   "instead, set which levels of the plug-in's trace maintd writes to its standard error: 1,2,4 or "
                   "none" )
      ->check( Cli::levelsFault )
      ->excludes( file )
      ->excludes( follow )
      ->excludes( last )
      ->excludes( since );
}

// With --levels the command is another: it asks maintd and reads no file.
int trace( Client const & client, Arguments const & a ) {
   if( !a.levels.empty() ) return Cli::traceLevels( client, a.levels, a.options.json );
   Cli::TraceOptions options = a.trace;
   options.json = a.options.json;
   return Cli::trace( client, options );
}

Command const commands[] = {
   { "status",
     "units, their interfaces, and what each is waiting for",
     []( auto const & client, auto const & a ) { return Cli::status( client, a.options, a.unit ); },
     { json, everything, someUnit } },
   { "units",
     "the units and their states",
     []( auto const & client, auto const & a ) { return Cli::units( client, a.options ); },
     { json } },
   { "interfaces",
     "the interfaces of all units",
     []( auto const & client, auto const & a ) { return Cli::interfaces( client, a.options ); },
     { json } },
   { "ready",
     "whether a unit is proven quiet now: exit status 0, or 1 with the reasons",
     []( auto const & client, auto const & a ) { return Cli::ready( client, a.options, a.unit ); },
     { json, unit } },
   { "explain",
     "all that is known of an interface, in each unit that has it",
     []( auto const & client, auto const & a ) { return Cli::explain( client, a.options, a.interface ); },
     { json, interface } },
   { "watch",
     "a live view: what holds the units up, rates, what is still needed; lines where there is no terminal",
     []( auto const & client, auto const & a ) {
        auto options = a.watch;
        options.unit = a.unit;
        return Cli::watch( client, options );
     },
     { someUnit, watching } },
   { "enter",
     "put a unit into maintenance",
     []( auto const & client, auto const & a ) { return Cli::enter( client, a.options, a.unit ); },
     { json, unit, waiting, entering } },
   { "exit",
     "take a unit out of maintenance",
     []( auto const & client, auto const & a ) { return Cli::exit( client, a.options, a.unit ); },
     { json, unit, waiting } },
   { "events",
     "what happens, as it happens, until it is interrupted; also across restarts of maintd",
     []( auto const & client, auto const & a ) { return Cli::events( client, a.events ); },
     { following } },
   { "report",
     "what is kept of a unit's stay in maintenance",
     []( auto const & client, auto const & a ) { return Cli::report( client, a.report, a.unit ); },
     { unit, reporting } },
   { "record",
     "write what happens on this box into a file that maintsim replays",
     []( auto const & client, auto const & a ) { return Cli::record( client, a.record ); },
     { recording } },
   { "reload",
     "have maintd read its configuration again",
     []( auto const & client, auto const & a ) { return Cli::reload( client, a.options ); },
     { json } },
   { "check-config",
     "whether a configuration holds, and what is odd about it on this box",
     []( auto const &, auto const & a ) { return Cli::checkConfig( a.path ); },
     { configFile } },
   { "release",
     "set links up again that a maintd which is dead holds down",
     []( auto const &, auto const & a ) { return Cli::release( a.release ); },
     { releasing } },
   { "get",
     "a record of the state database, as JSON, or what is below a path",
     []( auto const & client, auto const & a ) { return Cli::get( client, a.options, a.path ); },
     { json, recordPath } },
   { "dump",
     "the rate monitor's whole inner state, as text",
     []( auto const & client, auto const & ) { return Cli::dump( client ); },
     {} },
   { "trace", "the latest messages of maintd's ring trace, also after its death", trace, { json, tracing } },
};

int runCommand( Command const & command, Arguments const & arguments ) {
   bool const usual = arguments.socket.empty();
   Client const client = usual ? Client( defaultControlSocket, defaultReadSocket ) : Client( arguments.socket );
   try {
      return command.run( client, arguments );
   } catch( Cli::NotReached const & error ) {
      Cli::complain( error.what() );
      if( !error.advice().empty() ) std::cerr << error.advice() << "\n";
      return Cli::notReached;
   } catch( Cli::WrongAnswer const & error ) {
      return Cli::complain( "what answers at " + ( usual ? client.readPath() : arguments.socket ) +
                               " is no maintd, or one of another version: in its answer, " + error.what(),
                            Cli::notReached );
   } catch( Cli::DeadlinePassed const & error ) {
      return Cli::complain( error.what(), Cli::deadlinePassed );
   }
}

// 0 where nobody looks at a terminal.
std::size_t terminalColumns() {
   winsize size{};
   return ::isatty( STDOUT_FILENO ) && ::ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 ? size.ws_col : 0;
}

// The command line, its last word first, as the parser takes it. In place of a command "help" reads as --help, and
// "help enter" as "enter --help".
std::vector<std::string> wordsBackwards( int argc, char ** argv ) {
   std::vector<std::string> words( argv + std::min( argc, 1 ), argv + argc );
   auto command = words.begin();
   while( command != words.end() && command->starts_with( "-" ) ) {
      bool const valueFollows = *command == "--socket" && command + 1 != words.end();
      command += valueFollows ? 2 : 1;
   }
   if( command != words.end() && *command == "help" ) {
      *command = "--help";
      if( command + 1 != words.end() ) std::iter_swap( command, command + 1 );
   }
   std::ranges::reverse( words );
   return words;
}

int run( int argc, char ** argv ) {
   CLI::App app( "Takes units of this box out of service, with proof that their traffic has gone, and back.",
                 "maintctl" );
   app.footer( "Exit status: 0 done, 1 failed, 2 usage, 3 deadline passed, 4 refused, 5 maintd not reached." );
   // Exactly one, which is why they can share their arguments.
   app.require_subcommand( 1 );
   Arguments arguments;
   app.set_version_flag( "--version", "maintctl " RATEMON_VERSION, "print the version and exit" );
   app.add_option( "--socket", arguments.socket,
                   std::string( "unix socket of maintd for everything (also MAINTD_SOCKET; default: " ) +
                      defaultReadSocket + " for what only reads, " + defaultControlSocket + " for the rest)" )
      ->check( pathFault );
   std::map<CLI::App const *, Command const *> declared;
   for( Command const & command : commands ) {
      CLI::App * const sub = app.add_subcommand( command.name, command.what );
      // So that --socket may stand behind the command as well.
      sub->fallthrough();
      for( Declare const declare : command.takes ) declare( *sub, arguments );
      declared[sub] = &command;
   }
   try {
      app.parse( wordsBackwards( argc, argv ) );
   } catch( CLI::ParseError const & error ) {
      return Usage::ended( app, error );
   }
   Cli::tableWidthIs( terminalColumns() );
   return runCommand( *declared.at( app.get_subcommands().front() ), arguments );
}

}  // namespace

int main( int argc, char ** argv ) {
   return Cli::runPrinting( [&] { return run( argc, argv ); },
                            []( std::string const & fault ) { return Cli::complain( fault ); } );
}

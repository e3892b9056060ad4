// maintctl: the command line of maintd.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>

#include "Commands.h"

namespace {

constexpr char const * defaultSocket = "/run/ratemon/maintd.sock";

std::string socketFromEnvironment() {
   char const * const path = std::getenv( "MAINTD_SOCKET" );
   return path && *path ? path : defaultSocket;
}

}  // namespace

int main( int argc, char ** argv ) {
   CLI::App app( "Takes units of this box out of service, with proof that their traffic has gone, and back." );
   app.footer( "Exit status: 0 done, 1 failed, 2 usage, 3 deadline passed, 4 refused, 5 maintd not reached." );
   app.require_subcommand( 1 );

   std::string socket = socketFromEnvironment();
   Cli::Options options;
   std::string unit;
   std::string path;
   double timeoutSeconds = 0;
   app.add_option( "--socket", socket, "unix socket of maintd (also MAINTD_SOCKET)" )->capture_default_str();

   std::map<CLI::App *, std::function<int( Cli::Client const & )>> run;
   auto const command = [&]( char const * name, char const * what, std::function<int( Cli::Client const & )> action ) {
      CLI::App * const sub = app.add_subcommand( name, what );
      sub->add_flag( "--json", options.json, "print JSON for programs" );
      run[sub] = std::move( action );
      return sub;
   };
   auto const operation = [&]( char const * name, char const * what, auto action ) {
      CLI::App * const sub = command( name, what, [&options, &unit, action]( Cli::Client const & client ) {
         return action( client, options, unit );
      } );
      sub->add_option( "UNIT", unit, "the unit's name" )->required();
      CLI::Option * const wait = sub->add_flag( "--wait", options.wait, "follow it until it is done" );
      sub->add_option( "--timeout", timeoutSeconds, "give up waiting after this time; a number is seconds (10min, 2h)" )
         ->needs( wait )
         ->transform( CLI::AsNumberWithUnit(
            std::map<std::string, double>{ { "ms", 1e-3 }, { "s", 1 }, { "min", 60 }, { "h", 3600 } } ) )
         ->check( CLI::NonNegativeNumber );
   };
   command( "status", "units, their interfaces, and what each is waiting for",
            [&]( Cli::Client const & client ) { return Cli::status( client, options ); } );
   command( "units", "the units and their states",
            [&]( Cli::Client const & client ) { return Cli::units( client, options ); } );
   command( "interfaces", "the interfaces of all units",
            [&]( Cli::Client const & client ) { return Cli::interfaces( client, options ); } );
   operation( "enter", "put a unit into maintenance", Cli::enter );
   operation( "exit", "take a unit out of maintenance", Cli::exit );
   command( "get", "a record of the state database, as JSON",
            [&]( Cli::Client const & client ) { return Cli::get( client, path ); } )
      ->add_option( "PATH", path, "its path, for example maintenance/unit/status" )
      ->required();

   try {
      app.parse( argc, argv );
   } catch( CLI::ParseError const & error ) {
      return app.exit( error ) == 0 ? Cli::done : Cli::usage;
   }
   CLI::App * const chosen = app.get_subcommands().front();
   auto const * const timeout = chosen->get_option_no_throw( "--timeout" );
   if( timeout && timeout->count() > 0 ) options.timeoutSeconds = timeoutSeconds;
   try {
      return run.at( chosen )( Cli::Client( socket ) );
   } catch( Cli::NotReached const & error ) {
      std::cerr << "maintctl: " << error.what()
                << "\nStart it with: maintd --config FILE   (systemctl start maintd where it is a service)\n";
      return Cli::notReached;
   } catch( std::exception const & error ) {
      std::cerr << "maintctl: " << error.what() << "\n";
      return Cli::failed;
   }
}

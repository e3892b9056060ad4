// maintd: the maintenance service of a Linux box.
#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <utility>

#include "Agent.h"
#include "ConfigFile.h"
#include "Memory.h"
#include "Warnings.h"
#include "claims/Boot.h"
#include "kel/Exception.h"
#include "log/StandardError.h"
#include "log/SystemLog.h"
#include "plugin/Loader.h"
#include "store/Release.h"
#include "usage/Usage.h"

namespace {

constexpr char const * defaultSocket = "/run/ratemon/control.sock";
constexpr char const * defaultState = "/var/lib/ratemon";

// The last is for a service manager: to start again would not help, somebody has to look at the store first.
enum ExitStatus : int { stopped = 0, failed = 1, usage = 2, unusableStore = 3 };

struct Arguments {
   Host::Agent::Options options{ "", defaultState, Plugin::besideProgram( "RateMonPlugin.so" ), defaultSocket, "", "",
                                 "" };
   bool checkOnly = false;
   bool release = false;
   bool all = false;
   bool list = false;
   bool foreground = true;
   std::vector<std::string> names;
};

// Named after the socket, because no two agents share one; the usual name says nothing about whose it is.
std::string traceBeside( std::filesystem::path const & socket ) {
   auto const named = socket.filename() == "control.sock" ? socket.parent_path() / "maintd" : socket;
   return std::filesystem::path( named ).replace_extension( ".trace" ).string();
}

std::string readSocketBeside( std::filesystem::path const & socket ) {
   return ( socket.parent_path() / "read.sock" ).string();
}

// Everyone is to reach the socket for everyone, whatever the process's mask is. Only where the directory is ours: one
// that is there already is as somebody wants it.
void makeDirectoryOf( std::filesystem::path const & socket ) {
   namespace fs = std::filesystem;
   std::error_code ignored;  // a directory that cannot be made shows when the socket is bound
   fs::path const directory = socket.parent_path();
   if( !directory.empty() && fs::create_directories( directory, ignored ) )
      fs::permissions( directory, fs::perms( 0755 ), ignored );
}

std::string counted( std::size_t count, char const * what ) {
   return std::to_string( count ) + " " + what + ( count == 1 ? "" : "s" );
}

// In the trace as well, which is still there when nobody has kept what went to standard error.
int fail( std::exception const & error, ExitStatus status ) {
   Host::logLine( Service::Severity::error, error.what() );
   return status;
}

int serve( Service::Config::Config config, Host::Agent::Options const & options ) {
   // A reader of ours that goes away, and a file that may not grow any more, are errors of that write and no reason to
   // end (signal(7)).
   std::signal( SIGPIPE, SIG_IGN );
   std::signal( SIGXFSZ, SIG_IGN );
   Host::limitHeap();
   Host::StandardError standardError;
   // Outside the try, so that it is still whole where an exception is caught.
   std::unique_ptr<Host::Agent> agent;
   try {
      agent = std::make_unique<Host::Agent>( options, standardError );
      auto const units = counted( config.units.size(), "unit" );
      agent->start( std::move( config ) );
      Host::logLine( Service::Severity::notice, units + ", serving at " + options.socket +
                                                   ( options.readSocket.empty() ? "" : " and, for everyone, " ) +
                                                   options.readSocket );
      agent->run();
      return stopped;
   } catch( Kel::InternalException const & ) {
      // Our own mistakes end the process here, before anything is taken down: a teardown would go on writing records
      // from a state that does not hold. They are std::exceptions too, so they are asked for first.
      std::terminate();
   } catch( Kel::RangeError const & ) {
      std::terminate();
   } catch( Host::StoreError const & error ) {
      return fail( error, unusableStore );
   } catch( std::exception const & error ) {
      return fail( error, failed );
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
   } catch( std::runtime_error const & error ) {
      return fail( error, failed );
   }
}

int release( Arguments const & arguments ) {
   bool const everything = arguments.all || arguments.list;
   if( everything == !arguments.names.empty() ) {
      std::cerr << "maintd: --release takes names of links, or --all, or --list\n";
      return usage;
   }
   try {
      // Whoever runs holds its links on purpose, and would take them down again. To look is allowed beside an agent of
      // another store.
      std::optional<Host::NamespaceLock> claim;
      if( !arguments.list ) claim.emplace();
      Host::KernelLinks links;
      return Host::release(
         { Host::Store::in( arguments.options.stateDirectory ), arguments.names, Host::bootId(), arguments.list },
         links, std::cout, std::cerr );
   } catch( Host::StoreError const & error ) {
      return fail( error, unusableStore );
   } catch( std::exception const & error ) {
      return fail( error, failed );
   }
}

void addOptions( CLI::App & app, Arguments & arguments ) {
   Host::Agent::Options & options = arguments.options;
   app.set_version_flag( "--version", "maintd " RATEMON_VERSION, "print the version and exit" );
   app.add_option( "--config", options.configFile,
                   "the configuration, as /etc/ratemon/maintd.yaml; maintd.conf(5) has its keys" );
   app.add_option( "--state", options.stateDirectory,
                   "directory for what outlives maintd: units under way, held links" )
      ->capture_default_str();
   app.add_option( "--socket", options.socket, "unix socket of the API, for its group (mode 0660)" )
      ->capture_default_str();
   app.add_option( "--read-socket", options.readSocket,
                   "unix socket for everyone (mode 0666), which answers GET only; \"\" for none (default: read.sock "
                   "beside the other)" );
   app.add_option( "--plugin", options.plugin, "the rate monitor's shared object" )->capture_default_str();
   app.add_option( "--counter-table", options.counterTable,
                   "shared file for the interface counters (default: private memory)" );
   app.add_option(
      "--trace-file", options.traceFile,
      "the last messages, for maintctl trace; what is there is kept as FILE.1, FILE.2 and FILE.3; \"\" "
      "for none (default: maintd.trace beside the socket control.sock, and as any other socket is named)" );
   app.add_flag( "--check", arguments.checkOnly,
                 "only say whether the configuration holds, and what is odd about it on this box as it is now" );
   app.add_flag( "--release", arguments.release,
                 "only set up links that a maintd which does not run any more holds down: those named, or --all" );
   app.add_flag( "--all", arguments.all, "with --release: all of them" );
   app.add_flag( "--list", arguments.list, "with --release: only name those that it would set up, and touch none" );
   app.add_option( "LINK", arguments.names, "with --release: these" );
   app.add_flag( "--foreground", arguments.foreground,
                 "stay in the foreground (it always does: a service manager backgrounds it)" );
}

int run( Arguments & arguments ) {
   if( arguments.release ) return release( arguments );
   Service::Config::Config config;
   try {
      config = Host::readConfig( arguments.options.configFile );
   } catch( std::runtime_error const & error ) {
      // Names the file itself, in each of its lines.
      std::cerr << error.what() << "\n";
      return usage;
   }
   if( arguments.checkOnly ) return check( arguments.options.configFile, config );
   makeDirectoryOf( arguments.options.socket );
   if( !arguments.options.readSocket.empty() ) makeDirectoryOf( arguments.options.readSocket );
   return serve( std::move( config ), arguments.options );
}

}  // namespace

int main( int argc, char ** argv ) {
   CLI::App app( "Takes units of this box out of service, with proof that their traffic has gone, and back.",
                 "maintd" );
   Arguments arguments;
   addOptions( app, arguments );
   try {
      app.parse( argc, argv );
      if( !arguments.release && arguments.options.configFile.empty() ) throw CLI::RequiredError( "--config" );
      if( !arguments.release && ( arguments.all || arguments.list || !arguments.names.empty() ) )
         throw CLI::RequiresError( "LINK", "--release" );
   } catch( CLI::ParseError const & error ) {
      return Usage::ended( app, error );
   }
   // What counts is whether the option was given, not whether its text is empty: "" stands for none.
   auto & options = arguments.options;
   if( app.count( "--trace-file" ) == 0 ) options.traceFile = traceBeside( options.socket );
   if( app.count( "--read-socket" ) == 0 ) options.readSocket = readSocketBeside( options.socket );
   if( options.readSocket == options.socket ) {
      std::cerr << "maintd: --socket and --read-socket are the same: " << options.socket << "\n";
      return usage;
   }
   return run( arguments );
}

// maintctl check-config and release: what maintd does itself, with no daemon running.
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "Commands.h"

namespace Cli {

namespace {

// In place of this program, whose work is over: so nothing has to be passed on. Returns where it cannot be run.
int runMaintd( std::vector<std::string> arguments, std::string const & what ) {
   arguments.insert( arguments.begin(), "maintd" );
   std::vector<char *> taken;
   for( std::string & argument : arguments ) taken.push_back( argument.data() );
   taken.push_back( nullptr );
   std::cout.flush();
   // A program inherits what is ignored, and maintd is to find it as the caller of this one has it.
   std::signal( SIGPIPE, SIG_DFL );
   std::error_code error;
   auto const self = std::filesystem::read_symlink( "/proc/self/exe", error );
   // Beside this program in a build, and where an installation has it, which is not on everybody's PATH. Where there is
   // none, or none that can be run, it goes on here.
   for( char const * const place : { "maintd", "../sbin/maintd" } ) {
      if( !error ) ::execv( ( self.parent_path() / place ).c_str(), taken.data() );
   }
   ::execvp( "maintd", taken.data() );
   return complain( "maintd, which " + what + ", cannot be run: " + std::strerror( errno ) );
}

}  // namespace

int checkConfig( std::string const & file ) {
   return runMaintd( { "--check", "--config", file }, "knows what a configuration must be" );
}

int release( ReleaseOptions const & options ) {
   std::vector<std::string> arguments{ "--release" };
   if( !options.state.empty() ) arguments.insert( arguments.end(), { "--state", options.state } );
   if( options.all ) arguments.emplace_back( "--all" );
   // Whatever they begin with, what follows are names.
   if( !options.interfaces.empty() ) arguments.emplace_back( "--" );
   arguments.insert( arguments.end(), options.interfaces.begin(), options.interfaces.end() );
   return runMaintd( arguments, "knows which links it holds" );
}

}  // namespace Cli

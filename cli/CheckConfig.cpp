// maintctl check-config: maintd's own look at a configuration file.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "Commands.h"

namespace Cli {

int checkConfig( std::string const & file ) {
   std::error_code error;
   auto const self = std::filesystem::read_symlink( "/proc/self/exe", error );
   std::string const beside = ( self.parent_path() / "maintd" ).string();
   std::array<char const *, 5> const arguments{ "maintd", "--check", "--config", file.c_str(), nullptr };
   // execv(3) takes what it does not change as changeable.
   auto * const taken = const_cast<char * const *>( arguments.data() );
   // Instead of this program, whose work is over: so nothing has to be passed on. Where there is none, or none that can
   // be run, it goes on here.
   if( !error ) ::execv( beside.c_str(), taken );
   ::execvp( "maintd", taken );
   return complain( std::string( "maintd, which knows what a configuration must be, cannot be run: " ) +
                    std::strerror( errno ) );
}

}  // namespace Cli

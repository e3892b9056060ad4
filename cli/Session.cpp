// From where the caller is connected, so that maintd can warn before it takes down the link on that way.
#include <unistd.h>

#include <boost/asio/ip/address.hpp>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "Commands.h"

namespace Cli {

namespace {

constexpr std::string_view variable = "SSH_CONNECTION=";

// The client's address is the first of four words (ssh(1)). Where a session does not come over the network there is
// another word.
std::string addressOf( std::string const & text ) {
   std::string const first = text.substr( 0, text.find( ' ' ) );
   boost::system::error_code error;
   boost::asio::ip::make_address( first, error );
   return error ? "" : first;
}

std::string contents( std::string const & file ) {
   std::ostringstream text;
   text << std::ifstream( file ).rdbuf();
   return text.str();
}

// Of a process, out of /proc/PID/environ, where each variable ends in a zero byte; empty where it may not be read.
std::string addressIn( std::string const & environment ) {
   std::istringstream entries( environment );
   for( std::string entry; std::getline( entries, entry, '\0' ); ) {
      if( entry.starts_with( variable ) ) return addressOf( entry.substr( variable.size() ) );
   }
   return "";
}

// 0 where it cannot be told. The name before it, in parentheses, may have blanks and parentheses (proc(5)).
pid_t parentOf( pid_t process ) {
   std::string const stat = contents( "/proc/" + std::to_string( process ) + "/stat" );
   std::size_t const nameEnd = stat.rfind( ')' );
   if( nameEnd == std::string::npos ) return 0;
   std::istringstream fields( stat.substr( nameEnd + 1 ) );
   char state = 0;
   pid_t parent = 0;
   fields >> state >> parent;
   return fields ? parent : 0;
}

}  // namespace

std::string sessionAddress() {
   if( char const * const given = std::getenv( "SSH_CONNECTION" ) ) return addressOf( given );
   // sudo and the like take the variable away; the shell they were called from still has it.
   for( pid_t process = ::getppid(); process > 1; process = parentOf( process ) ) {
      std::string const address = addressIn( contents( "/proc/" + std::to_string( process ) + "/environ" ) );
      if( !address.empty() ) return address;
   }
   return "";
}

}  // namespace Cli

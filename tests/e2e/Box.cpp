#include "Box.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

namespace Test {

namespace {

using Clock = std::chrono::steady_clock;

void redirect( std::string const & path, int to ) {
   int const fd = ::open( path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600 );
   ::dup2( fd, to );
   ::close( fd );
}

int exitStatus( pid_t child ) {
   int status = 0;
   ::waitpid( child, &status, 0 );
   return WIFEXITED( status ) ? WEXITSTATUS( status ) : -1;
}

// Packets on a fixed schedule; after a delay it catches up, so that the average holds. A packet that the link does not
// take is lost.
[[noreturn]] void sendForEver( std::string const & link, std::string const & to, double bitsPerSecond ) {
   constexpr int frameBytes = 1000;
   constexpr int headerBytes = 14 + 20 + 8;  // Ethernet without check sequence, IPv4, UDP
   constexpr int atOnce = 64;                // packets at most after a delay
   int const out = ::socket( AF_INET, SOCK_DGRAM, 0 );
   ::setsockopt( out, SOL_SOCKET, SO_BINDTODEVICE, link.data(), static_cast<socklen_t>( link.size() ) );
   sockaddr_in address{};
   address.sin_family = AF_INET;
   address.sin_port = ::htons( 9 );
   ::inet_pton( AF_INET, to.c_str(), &address.sin_addr );
   std::vector<char> const payload( frameBytes - headerBytes );
   auto const spacing =
      std::chrono::duration_cast<Clock::duration>( std::chrono::duration<double>( frameBytes * 8 / bitsPerSecond ) );
   for( auto due = Clock::now();; due += spacing ) {
      std::this_thread::sleep_until( due );
      due = std::max( due, Clock::now() - atOnce * spacing );
      ::sendto( out, payload.data(), payload.size(), 0, reinterpret_cast<sockaddr *>( &address ), sizeof address );
   }
}

}  // namespace

Box::Box() {
   char name[] = "/tmp/ratemon-e2e-XXXXXX";
   directory_ = ::mkdtemp( name );
}

Box::~Box() {
   for( pid_t const sender : senders_ ) stop( sender );
   if( maintd_ != 0 ) stop( maintd_ );
   if( maintctl_ != 0 ) stop( maintctl_ );
   if( HasFailure() ) std::cerr << "maintd wrote:\n" << contents( path( "maintd.log" ) ) << "\n";
   std::filesystem::remove_all( directory_ );
}

void Box::link( std::string const & name, int number ) {
   std::string const n = std::to_string( number );
   std::string const far = "far" + name;
   ip( "link add " + name + " type veth peer name " + far + " address 02:00:00:00:0" + n + ":02\n" +  //
       "link set " + far + " up\nlink set " + name + " up\naddress add 10.9." + n + ".1/24 dev " + name + "\n" +
       "neighbour replace 10.9." + n + ".2 lladdr 02:00:00:00:0" + n + ":02 dev " + name );
}

pid_t Box::spawn( std::vector<std::string> const & command, std::string const & out, std::string const & err ) const {
   std::vector<char *> arguments;
   for( std::string const & argument : command ) arguments.push_back( const_cast<char *>( argument.c_str() ) );
   arguments.push_back( nullptr );
   pid_t const child = ::fork();
   if( child != 0 ) return child;
   ::prctl( PR_SET_PDEATHSIG, SIGKILL );
   redirect( out, STDOUT_FILENO );
   redirect( err, STDERR_FILENO );
   ::execv( arguments.front(), arguments.data() );
   ::_exit( 127 );
}

void Box::spawnMaintd( std::string const & config, std::vector<std::string> const & more, Faults const & faults ) {
   std::string const program = faults.inMaintd() ? RATEMON_MAINTD_WITH_FAULTS_PATH : RATEMON_MAINTD_PATH;
   ::setenv( "RATEMON_UNREAD_FILE", faults.unread.c_str(), 1 );
   ::setenv( "RATEMON_DEATH", faults.death.c_str(), 1 );
   std::vector<std::string> command;
   if( !faults.inside.empty() ) {
      command = { "/usr/bin/unshare", "--mount", "/bin/sh", "-c", faults.inside + " && exec \"$0\" \"$@\"" };
   }
   command.insert( command.end(), { program, "--config", file( "maintd.yaml", config ), "--socket",
                                    path( "maintd.sock" ), "--state", path( "state" ), "--foreground" } );
   command.insert( command.end(), more.begin(), more.end() );
   maintd_ = spawn( command, path( "maintd.out" ), path( "maintd.log" ) );
}

void Box::startMaintd( std::string const & config, std::vector<std::string> const & more, Faults const & faults ) {
   spawnMaintd( config, more, faults );
   // One that dies on its way is dead, and nobody has to wait for it.
   ASSERT_TRUE( eventually( [&] { return maintctl( { "units" } ).status == 0 || maintdDied(); } ) )
      << "maintd does not answer";
   ASSERT_TRUE( maintd_ != 0 || !faults.death.empty() ) << "maintd has died";
}

int Box::refusesToStart( std::string const & config, std::vector<std::string> const & more, Faults const & faults ) {
   spawnMaintd( config, more, faults );
   return exitStatus( std::exchange( maintd_, 0 ) );
}

bool Box::maintdDied() {
   if( maintd_ != 0 && ::waitpid( maintd_, nullptr, WNOHANG ) == maintd_ ) maintd_ = 0;
   return maintd_ == 0;
}

int Box::stopMaintd( int signal ) {
   ::kill( maintd_, signal );
   return exitStatus( std::exchange( maintd_, 0 ) );
}

void Box::changeConfig( std::string const & config ) {
   file( "maintd.yaml", config );
   ::kill( maintd_, SIGHUP );
}

pid_t Box::send( std::string const & link, int number, double bitsPerSecond ) {
   pid_t const child = ::fork();
   if( child == 0 ) {
      ::prctl( PR_SET_PDEATHSIG, SIGKILL );
      sendForEver( link, "10.9." + std::to_string( number ) + ".2", bitsPerSecond );
   }
   senders_.push_back( child );
   return child;
}

void Box::stop( pid_t child ) {
   ::kill( child, SIGKILL );
   ::waitpid( child, nullptr, 0 );
}

Result Box::run( std::vector<std::string> const & command ) const {
   int const status = exitStatus( spawn( command, path( "run.out" ), path( "run.err" ) ) );
   return { status, contents( path( "run.out" ) ), contents( path( "run.err" ) ) };
}

std::vector<std::string> Box::maintctlCommand( std::vector<std::string> const & arguments ) const {
   std::vector<std::string> command{ RATEMON_MAINTCTL_PATH, "--socket", path( "maintd.sock" ) };
   command.insert( command.end(), arguments.begin(), arguments.end() );
   return command;
}

Result Box::maintctl( std::vector<std::string> const & arguments ) const { return run( maintctlCommand( arguments ) ); }

void Box::beginMaintctl( std::vector<std::string> const & arguments ) {
   maintctl_ = spawn( maintctlCommand( arguments ), path( "begun.out" ), path( "begun.err" ) );
}

Result Box::maintctlEnds() {
   int const status = exitStatus( std::exchange( maintctl_, 0 ) );
   return { status, contents( path( "begun.out" ) ), contents( path( "begun.err" ) ) };
}

namespace {

boost::json::object named( boost::json::value const & answer, char const * list, char const * key,
                           std::string const & name ) {
   for( auto const & row : answer.at( list ).as_array() ) {
      if( row.at( key ).as_string() == name ) return row.as_object();
   }
   throw std::runtime_error( "maintctl shows no " + std::string( key ) + " " + name );
}

}  // namespace

boost::json::object Box::shown( std::string const & interface ) const {
   return named( boost::json::parse( maintctl( { "interfaces", "--json" } ).out ), "interfaces", "interface",
                 interface );
}

boost::json::object Box::shownUnit( std::string const & unit ) const {
   return boost::json::parse( maintctl( { "status", unit, "--json" } ).out ).as_object();
}

boost::json::object Box::account( std::string const & unit, std::string const & interface ) const {
   return named( shownUnit( unit ), "interfaces", "interface", interface );
}

std::string Box::state( std::string const & unit ) const { return text( shownUnit( unit ), "state" ); }

std::string Box::text( boost::json::object const & object, char const * member ) {
   auto const & value = object.at( member );
   return value.is_null() ? std::string() : std::string( value.as_string() );
}

std::string Box::file( std::string const & name, std::string const & content ) const {
   std::ofstream( path( name ) ) << content;
   return path( name );
}

std::string Box::contents( std::string const & path ) {
   std::ostringstream text;
   text << std::ifstream( path ).rdbuf();
   return text.str();
}

bool Box::eventually( std::function<bool()> const & holds, double seconds ) {
   auto const end = Clock::now() + std::chrono::duration<double>( seconds );
   while( !holds() ) {
      if( Clock::now() > end ) return false;
      std::this_thread::sleep_for( std::chrono::milliseconds( 50 ) );
   }
   return true;
}

boost::json::object Box::linkOf( std::string const & link ) {
   return ask( "-statistics -statistics address show dev " + link )[0].as_object();
}

bool Box::adminUp( std::string const & link ) {
   return std::ranges::count( linkOf( link ).at( "flags" ).as_array(), boost::json::value( "UP" ) ) != 0;
}

std::vector<std::string> Box::addresses( std::string const & link ) {
   std::vector<std::string> found;
   auto const about = linkOf( link );
   for( auto const & address : about.at( "addr_info" ).as_array() ) {
      if( address.at( "scope" ).as_string() != "global" ) continue;
      found.push_back( std::string( address.at( "local" ).as_string() ) + "/" +
                       std::to_string( address.at( "prefixlen" ).to_number<int>() ) );
   }
   return found;
}

double Box::sentBytes( std::string const & link ) {
   return ask( "-statistics link show " + link )[0].at( "stats64" ).at( "tx" ).at( "bytes" ).to_number<double>();
}

}  // namespace Test

#include "Maintctl.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

namespace Cli {

namespace {

double now() { return std::chrono::duration<double>( std::chrono::steady_clock::now().time_since_epoch() ).count(); }

}  // namespace

Maintctl::Maintctl() {
   char name[] = "/tmp/ratemon-maintctl-XXXXXX";
   directory_ = ::mkdtemp( name );
   // For another user, too.
   ::chmod( name, 0755 );
}

Maintctl::~Maintctl() {
   daemon_.reset();
   std::filesystem::remove_all( directory_ );
}

void Maintctl::daemonAnswers( Script script ) {
   daemonDoes( [this, script = std::move( script )]( int connection, std::string const & request ) mutable {
      std::ofstream( path( "requests" ), std::ios::app ) << request << "\n";
      auto const found = script.find( request );
      Reply reply{ 404, R"({"error": "not in the script"})" };
      if( found != script.end() ) {
         reply = found->second.front();
         if( found->second.size() > 1 ) found->second.erase( found->second.begin() );
      }
      sent( connection, reply.http() );
   } );
}

void Maintctl::daemonDoes( FakeDaemon::Behave const & behave, FakeDaemon::Manner manner ) {
   daemon_.reset();
   std::filesystem::remove( path( "socket" ) );
   daemon_ = std::make_unique<FakeDaemon>( path( "socket" ), behave, manner );
}

Running Maintctl::begun( Words arguments, Surroundings const & in ) {
   if( arguments.empty() || arguments.front() != "--socket" )
      arguments.insert( arguments.begin(), { "--socket", path( "socket" ) } );
   arguments.insert( arguments.begin(), in.program );
   std::vector<char *> taken;
   for( std::string & argument : arguments ) taken.push_back( argument.data() );
   taken.push_back( nullptr );
   Running running{ 0, "run" + std::to_string( count_++ ), now() };
   running.process = ::fork();
   if( running.process == 0 ) {
      ::dup2( ::creat( path( running.name + ".out" ).c_str(), 0600 ), STDOUT_FILENO );
      ::dup2( ::creat( path( running.name + ".err" ).c_str(), 0600 ), STDERR_FILENO );
      // The session of whoever runs the tests is not theirs.
      ::setenv( "SSH_CONNECTION", "", 1 );
      for( std::string const & variable : in.environment ) ::putenv( const_cast<char *>( variable.c_str() ) );
      if( in.user != 0 && ( ::setgroups( 0, nullptr ) != 0 || ::setresgid( in.user, in.user, in.user ) != 0 ||
                            ::setresuid( in.user, in.user, in.user ) != 0 ) )
         ::_exit( 126 );
      if( in.beforeExec ) in.beforeExec();
      ::execv( taken.front(), taken.data() );
      ::_exit( 127 );
   }
   return running;
}

Result Maintctl::ended( Running const & running ) const {
   int status = 0;
   rusage used{};
   ::wait4( running.process, &status, 0, &used );
   return { WIFEXITED( status ) ? WEXITSTATUS( status ) : -1, contents( running.name + ".out" ),
            contents( running.name + ".err" ), now() - running.begun, used.ru_maxrss };
}

std::string Maintctl::contents( std::string const & name ) const {
   std::ostringstream text;
   text << std::ifstream( path( name ) ).rdbuf();
   return text.str();
}

}  // namespace Cli

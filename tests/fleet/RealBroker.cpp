#include "RealBroker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "keys/Subjects.h"

namespace Fleet {

namespace {

std::string madeDirectory() {
   std::string name = "/tmp/broker.XXXXXX";
   EXPECT_NE( mkdtemp( name.data() ), nullptr );
   return name;
}

}  // namespace

bool soon( std::function<bool()> const & holds ) {
   auto const end = std::chrono::steady_clock::now() + std::chrono::seconds( 30 );
   while( !holds() ) {
      if( std::chrono::steady_clock::now() > end ) return false;
      std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) );
   }
   return true;
}

RealBroker::RealBroker( std::vector<std::string> const & boxes ) : directory_( madeDirectory() ), keys_( directory_ ) {
   keys_.init();
   keys_.add( boxes );
   std::string const certificate =
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1" +
      ( " -subj /CN=broker -addext subjectAltName=DNS:broker -keyout " + path( "tls.key" ) ) + " -out " +
      path( "tls.pem" ) + " 2>/dev/null";
   EXPECT_EQ( std::system( certificate.c_str() ), 0 );
   writeConfiguration();
   start();
}

RealBroker::~RealBroker() {
   kill();
   std::filesystem::remove_all( directory_ );
}

void RealBroker::writeConfiguration() const {
   std::ofstream( path( "nats.conf" ) ) << "listen: \"127.0.0.1:" << port_.number() << "\"\njetstream { store_dir: \""
                                        << path( "jetstream" ) << "\" }\ntls { cert_file: \"" << path( "tls.pem" )
                                        << "\", key_file: \"" << path( "tls.key" )
                                        << "\" }\ninclude \"./authorization.conf\"\n";
}

void RealBroker::start() {
   std::string const config = path( "nats.conf" );
   process_ = fork();
   if( process_ != 0 ) return;
   int const log = open( path( "log" ).c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600 );
   dup2( log, STDERR_FILENO );
   execlp( "nats-server", "nats-server", "-c", config.c_str(), nullptr );
   _exit( 127 );
}

void RealBroker::kill() {
   if( process_ <= 0 ) return;
   ::kill( process_, SIGKILL );
   waitpid( process_, nullptr, 0 );
   process_ = 0;
}

void RealBroker::answers( bool does ) {
   if( does ) {
      close( silent_ );
      silent_ = -1;
      return start();
   }
   kill();
   silent_ = socket( AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   int const again = 1;
   EXPECT_EQ( setsockopt( silent_, SOL_SOCKET, SO_REUSEADDR, &again, sizeof( again ) ), 0 );
   sockaddr_in const address{ .sin_family = AF_INET,
                              .sin_port = htons( static_cast<uint16_t>( port_.number() ) ),
                              .sin_addr = { htonl( INADDR_LOOPBACK ) },
                              .sin_zero = {} };
   EXPECT_EQ( bind( silent_, reinterpret_cast<sockaddr const *>( &address ), sizeof( address ) ), 0 );
   EXPECT_EQ( listen( silent_, 64 ), 0 );
}

void RealBroker::reload() const { ::kill( process_, SIGHUP ); }

std::string RealBroker::log() const {
   std::ifstream in( path( "log" ) );
   return { std::istreambuf_iterator<char>( in ), {} };
}

NatsOptions RealBroker::optionsOf( std::string const & box, std::string const & keyOf ) const {
   NatsOptions options;
   options.url = "tls://127.0.0.1:" + std::to_string( port_.number() );
   options.box = box;
   options.keyFile = keyOf.empty() ? "" : keys_.seedFile( keyOf );
   options.caFile = path( "tls.pem" );
   options.serverName = "broker";
   options.reconnectSeconds = 0.2;
   return options;
}

}  // namespace Fleet

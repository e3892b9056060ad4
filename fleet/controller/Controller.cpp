#include "controller/Controller.h"

#include <unistd.h>

#include <boost/asio/ip/host_name.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>

#include "controller/Api.h"
#include "controller/Feed.h"
#include "controller/Owner.h"
#include "files/FileText.h"
#include "http/HttpServer.h"
#include "kel/ActivityLoop.h"
#include "log/StandardError.h"
#include "log/SystemLog.h"
#include "loop/AsioLoop.h"
#include "loop/ShiftedClock.h"
#include "memory/SqliteMemory.h"
#include "notify/ServiceManager.h"

namespace Fleet {

namespace {

namespace asio = boost::asio;
using Error = boost::system::error_code;
using Service::Severity;

constexpr std::chrono::milliseconds turnEvery( 500 );
// So long may clients take to read the last of their streams.
constexpr std::chrono::seconds partingTime( 1 );

constexpr char const * programName = "maintfleet";

double unixNow() {
   return std::chrono::duration<double>( std::chrono::system_clock::now().time_since_epoch() ).count();
}

// "ctl-1, process 4711"
std::string whereWeAre() { return boost::asio::ip::host_name() + ", process " + std::to_string( getpid() ); }

Inventory inventoryIn( std::string const & file ) { return readInventory( Host::fileText( file ), file ); }

std::optional<Keys> keysIn( std::string const & file ) {
   if( file.empty() ) return std::nullopt;
   return Keys::inFile( file );
}

void tellOddities( Inventory const & inventory ) {
   for( std::string const & oddity : odditiesOf( inventory ) ) Host::logLine( Severity::warning, oddity );
}

NatsOptions telling( NatsOptions broker ) {
   broker.told = []( std::string const & text ) { Host::logLine( Severity::notice, text ); };
   return broker;
}

// All of it, in the order in which it must come and go. The memory, which nobody else can have meanwhile, is opened by
// whoever makes this: a second owner ends before it touches a socket.
class Controller {
 public:
   Controller( ControllerOptions const & options, Inventory inventory, std::optional<Keys> keys, Ledger & memory,
               Host::StandardError & standardError )
      : options_( options ),
        activityLoop_( Kel::Ptr<Host::ShiftedClock>( new Host::ShiftedClock( 0 ) ) ),
        loop_( activityLoop_ ),
        standardErrorRetry_( loop_, standardError ),
        manager_( loop_ ),
        ends_( loop_.io(), SIGTERM, SIGINT ),
        hangUps_( loop_.io(), SIGHUP ),
        timer_( loop_.io() ),
        parting_( loop_.io() ),
        broker_( telling( options.broker ) ),
        owner_( std::move( inventory ), { memory, broker_, unixNow, Host::logLine, whereWeAre() } ),
        feed_( { owner_.dispatcher(), [this] { return owner_.now(); }, [this] { return owner_.surroundings(); } } ),
        api_( { .dispatcher = owner_.dispatcher(),
                .now = [this] { return owner_.now(); },
                .surroundings = [this] { return owner_.surroundings(); },
                .changed = [this] { owner_.decide(); },
                .stream = [this] { return feed_.stream(); },
                .keys = std::move( keys ),
                .socket = options.socket } ),
        server_( loop_, { .path = options.socket, .program = programName },
                 [this]( Host::HttpRequest const & request ) { return api_.answer( request ); } ) {
      if( options.listen.empty() ) return;
      netServer_.emplace( loop_,
                          Host::HttpServer::Place{ .path = {}, .program = programName, .address = options.listen },
                          [this]( Host::HttpRequest const & request ) { return api_.answer( request ); } );
   }
   Controller( Controller const & ) = delete;
   Controller & operator=( Controller const & ) = delete;
   ~Controller() {
      server_.dropStreams();
      if( netServer_ ) netServer_->dropStreams();
   }

   void run() {
      awaitEnd();
      awaitHangUp();
      awaitTurn();
      loop_.turn( [this] { owner_.turn(); } );
      manager_.ready( [this] { return reloadTrouble_ + owner_.line(); } );
      loop_.run();
   }

 private:
   void awaitTurn() {
      timer_.expires_after( turnEvery );
      timer_.async_wait( [this]( Error error ) {
         if( error ) return;
         loop_.turn( [this] {
            owner_.turn();
            feed_.handleTurn();
         } );
         awaitTurn();
      } );
   }

   void awaitEnd() {
      ends_.async_wait( [this]( Error error, int ) {
         if( error ) return;
         manager_.stopping();
         Host::logLine( Severity::notice, "stopping; nothing changes in the fleet" );
         timer_.cancel();
         parting_.expires_after( partingTime );
         parting_.async_wait( [this]( Error cancelled ) {
            if( !cancelled ) loop_.stop();
         } );
         server_.stop( [this] {
            if( !netServer_ ) return loop_.stop();
            netServer_->stop( [this] { loop_.stop(); } );
         } );
      } );
   }

   void awaitHangUp() {
      hangUps_.async_wait( [this]( Error error, int ) {
         if( error ) return;
         manager_.reloading();
         loop_.turn( [this] { reload(); } );
         manager_.reloaded();
         awaitHangUp();
      } );
   }

   void reload() {
      try {
         Inventory inventory = inventoryIn( options_.inventoryFile );
         auto keys = keysIn( options_.keyFile );
         tellOddities( inventory );
         owner_.inventoryIs( std::move( inventory ) );
         api_.keysIs( std::move( keys ) );
         feed_.handleInventory();
         reloadTrouble_.clear();
         Host::logLine( Severity::notice, "read again: " + options_.inventoryFile );
      } catch( std::runtime_error const & fault ) {
         std::string const text = std::string( "not read again, and all is as before: " ) + fault.what();
         reloadTrouble_ = text + "; ";
         Host::logLine( Severity::error, text );
      }
   }

   ControllerOptions const options_;
   Kel::ActivityLoop activityLoop_;
   Host::AsioLoop loop_;
   Host::StandardErrorRetry standardErrorRetry_;
   Host::ServiceManager manager_;
   asio::signal_set ends_;
   asio::signal_set hangUps_;  // from the start, as one that came earlier would end the process
   asio::steady_timer timer_;
   asio::steady_timer parting_;
   std::string reloadTrouble_;  // with what parts it from what follows; empty when all was read
   NatsBroker broker_;
   Owner owner_;
   Feed feed_;
   Api api_;
   Host::HttpServer server_;
   std::optional<Host::HttpServer> netServer_;
};

int serveFleet( ControllerOptions const & options, Inventory inventory, std::optional<Keys> keys,
                Host::StandardError & standardError ) {
   tellOddities( inventory );
   std::filesystem::create_directories( options.stateDirectory );
   SqliteMemory memory( options.stateDirectory + "/owner.db" );
   std::string const boxes = std::to_string( inventory.boxes().size() );
   bool const changes = keys && !keys->empty();
   Controller controller( options, std::move( inventory ), std::move( keys ), memory, standardError );
   Host::logLine( Severity::notice, boxes + " boxes, serving at " + options.socket +
                                       ( options.listen.empty() ? "" : " and, over the network, " + options.listen ) +
                                       ( options.listen.empty() || changes ? "" : ", there for reading only" ) );
   controller.run();
   return 0;
}

}  // namespace

int runController( ControllerOptions const & options ) {
   std::signal( SIGPIPE, SIG_IGN );
   std::signal( SIGXFSZ, SIG_IGN );
   std::optional<Inventory> inventory;
   std::optional<Keys> keys;
   try {
      inventory = inventoryIn( options.inventoryFile );
      keys = keysIn( options.keyFile );
      // Made and dropped: whether address, key and certificates hold is known before anything is opened.
      NatsBroker const holds( options.broker );
   } catch( std::runtime_error const & fault ) {
      // Names the file itself, in each of its lines.
      std::cerr << fault.what() << "\n";
      return 2;
   }
   Host::StandardError standardError;
   try {
      return serveFleet( options, std::move( *inventory ), std::move( keys ), standardError );
   } catch( Kel::InternalException const & ) {
      // Our own mistakes end the process here: nothing is to be decided from a state that does not hold.
      std::terminate();
   } catch( Kel::RangeError const & ) {
      std::terminate();
   } catch( MemoryDamaged const & fault ) {
      Host::logLine( Severity::error, fault.what() );
      return 3;
   } catch( std::exception const & fault ) {
      Host::logLine( Severity::error, fault.what() );
      return 1;
   }
}

int checkInventory( std::string const & file ) {
   try {
      Inventory const inventory = inventoryIn( file );
      auto const oddities = odditiesOf( inventory );
      for( std::string const & oddity : oddities ) std::cerr << "warning: " << oddity << "\n";
      std::cout << file << " holds: " << inventory.boxes().size() << " boxes, " << inventory.groups().size()
                << " groups, " << oddities.size() << " warnings\n";
      return 0;
   } catch( std::runtime_error const & fault ) {
      std::cerr << fault.what() << "\n";
      return 2;
   }
}

}  // namespace Fleet

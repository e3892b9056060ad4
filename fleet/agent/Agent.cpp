#include "agent/Agent.h"

#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <csignal>
#include <filesystem>

#include "agent/MaintdOverHttp.h"
#include "box/BoxAgent.h"
#include "broker/Broker.h"
#include "kel/ActivityLoop.h"
#include "log/StandardError.h"
#include "log/SystemLog.h"
#include "loop/AsioLoop.h"
#include "loop/ShiftedClock.h"
#include "memory/SqliteMemory.h"
#include "notify/ServiceManager.h"

namespace Fleet {

namespace {

using Severity = Service::Severity;

constexpr std::chrono::milliseconds pause( 500 );
constexpr double readSeconds = 60;  // between two looks at what the broker has, whatever has come by itself
constexpr double sayAgainSeconds = 60;

double unixTime() {
   return std::chrono::duration<double>( std::chrono::system_clock::now().time_since_epoch() ).count();
}

class Agent {
 public:
   Agent( AgentOptions const & options, Memory & memory )
      : box_( options.broker.box ),
        broker_( options.broker ),
        maintd_( options.controlSocket, options.readSocket ),
        agent_( box_, memory, maintd_, options.heartbeatSeconds, unixTime() ) {}

   // Twice a second.
   void turn( double now ) {
      try {
         for( Broker::Letter const & letter : broker_.arrived() ) take( letter, now );
         bool const connected = broker_.connected();
         if( connected && ( !connected_ || now >= nextRead_ ) ) {
            broker_.read( "desired." + box_ );
            nextRead_ = now + readSeconds;
         }
         if( connected && !connected_ ) Host::logLine( Severity::notice, "the broker is reached" );
         connected_ = connected;
         agent_.connectedIs( connected );
         auto const status = agent_.turn( now );
         if( status ) broker_.put( "status." + box_, textOf( *status ) );
         line_ = lineOf( status );
      } catch( MemoryFault const & fault ) {
         // What cannot be kept is not done, and who cannot keep is silent: the fleet counts its units as out.
         say( fault.what(), now );
      }
   }

   // For the service manager.
   [[nodiscard]] std::string const & line() const { return line_; }

 private:
   void take( Broker::Letter const & letter, double now ) {
      try {
         if( letter.key == "desired." + box_ ) agent_.desiredIs( desiredFrom( letter.text ) );
      } catch( BadDocument const & fault ) {
         say( std::string( "what the owner wants cannot be read: " ) + fault.what(), now );
      }
   }

   // Not more often than it helps.
   void say( std::string const & what, double now ) {
      if( what == said_ && now < saidAt_ + sayAgainSeconds ) return;
      said_ = what;
      saidAt_ = now;
      Host::logLine( Severity::error, what );
   }

   [[nodiscard]] std::string lineOf( std::optional<Status> const & status ) const {
      if( !connected_ ) return "cut off: " + broker_.trouble();
      if( !status ) return line_;
      if( !status->trouble.empty() ) return status->trouble;
      std::size_t out = 0;
      for( auto const & [name, unit] : status->units ) out += unit.state != UnitState::active;
      return std::to_string( status->units.size() ) + " units, " + std::to_string( out ) + " not in service";
   }

   std::string const box_;
   NatsBroker broker_;
   MaintdOverHttp maintd_;
   BoxAgent agent_;
   bool connected_ = false;
   double nextRead_ = 0;
   std::string line_ = "not connected yet";
   std::string said_;
   double saidAt_ = 0;
};

int serve( AgentOptions const & options ) {
   std::filesystem::create_directories( options.stateDirectory );
   SqliteMemory memory( options.stateDirectory + "/agent.db" );
   Kel::Ptr<Host::ShiftedClock> const clock( new Host::ShiftedClock( 0 ) );
   Kel::ActivityLoop activityLoop( clock );
   Host::AsioLoop loop( activityLoop );
   Agent agent( options, memory );
   Host::ServiceManager manager( loop );

   boost::asio::signal_set signals( loop.io(), SIGTERM, SIGINT );
   signals.async_wait( [&]( boost::system::error_code fault, int ) {
      if( !fault ) loop.stop();
   } );
   boost::asio::steady_timer timer( loop.io() );
   std::function<void()> const next = [&] {
      timer.expires_after( pause );
      timer.async_wait( [&]( boost::system::error_code fault ) {
         if( fault ) return;
         loop.turn( [&] { agent.turn( unixTime() ); } );
         next();
      } );
   };
   next();
   manager.ready( [&] { return agent.line(); } );
   Host::logLine( Severity::notice, "serves box " + options.broker.box );
   loop.run();
   manager.stopping();
   return 0;
}

}  // namespace

int runAgent( AgentOptions const & options ) {
   std::signal( SIGPIPE, SIG_IGN );
   Host::StandardError standardError;
   AgentOptions given = options;
   try {
      NatsBroker const holds( options.broker );
   } catch( std::runtime_error const & fault ) {
      Host::logLine( Severity::error, fault.what() );
      return 2;
   }
   given.broker.told = []( std::string const & text ) { Host::logLine( Severity::notice, text ); };
   try {
      return serve( given );
   } catch( Kel::InternalException const & ) {
      std::terminate();
   } catch( MemoryDamaged const & fault ) {
      Host::logLine( Severity::error, fault.what() );
      return 3;
   } catch( std::exception const & fault ) {
      Host::logLine( Severity::error, fault.what() );
      return 1;
   }
}

}  // namespace Fleet

#include "simulate/Simulate.h"

#include <sys/resource.h>

#include <boost/asio/signal_set.hpp>
#include <boost/asio/ssl/context.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <fstream>
#include <iostream>
#include <iterator>

#include "broker/Address.h"
#include "config/Config.h"
#include "inventory/Inventory.h"
#include "simulate/SimulatedBox.h"

namespace Fleet {

namespace asio = boost::asio;

namespace {

constexpr std::chrono::milliseconds slice{ 100 };
constexpr std::size_t slicesInSecond = 10;
constexpr rlim_t otherFiles = 64;

double unixTime() {
   return std::chrono::duration<double>( std::chrono::system_clock::now().time_since_epoch() ).count();
}

std::string contentOf( std::string const & file ) {
   std::ifstream in( file );
   if( !in ) throw std::runtime_error( file + ": " + std::strerror( errno ) );
   return { std::istreambuf_iterator<char>( in ), {} };
}

// A socket a box.
void allowSockets( std::size_t boxes ) {
   rlimit files{};
   getrlimit( RLIMIT_NOFILE, &files );
   if( files.rlim_max < boxes + otherFiles ) {
      throw std::runtime_error( std::to_string( boxes ) + " boxes need as many sockets, and only " +
                                std::to_string( files.rlim_max ) + " files may be open: raise ulimit -n" );
   }
   files.rlim_cur = files.rlim_max;
   setrlimit( RLIMIT_NOFILE, &files );
}

std::vector<SimulatedBox::Plan> plansOf( SimulateOptions const & options ) {
   std::vector<SimulatedBox::Plan> plans;
   if( !options.inventoryFile.empty() ) {
      Inventory const inventory = readInventory( contentOf( options.inventoryFile ), options.inventoryFile );
      for( Box const & box : inventory.boxes() ) {
         plans.push_back( { box.name, box.units, std::nullopt, inventory.heartbeatSeconds() } );
      }
   } else {
      for( unsigned long number = 1; number <= options.boxes; ++number ) {
         plans.push_back( { "box-" + std::to_string( number ), { "fabric" }, std::nullopt, options.heartbeatSeconds } );
      }
   }
   if( options.keysDirectory.empty() ) return plans;
   for( auto & plan : plans ) plan.key = NKey::fromFile( options.keysDirectory + "/" + plan.name + ".nk" );
   return plans;
}

class Simulation {
 public:
   explicit Simulation( SimulateOptions const & options );
   void run();

 private:
   using Clock = std::chrono::steady_clock;

   [[nodiscard]] LightNetwork networkOf( Address const & address );
   void handleSlice();
   void handleScript( double elapsed );
   void tell( double elapsed ) const;

   SimulateOptions const & options_;
   std::mt19937_64 random_;
   asio::io_context io_{ 1 };
   asio::ssl::context tls_{ asio::ssl::context::tls_client };
   LightNetwork const network_;
   std::deque<SimulatedBox> boxes_;
   std::vector<Mishap> coming_;    // that have not begun, and
   std::vector<Mishap> underWay_;  // that have
   SimulatedBox::Counts counts_;
   asio::steady_timer timer_{ io_ };
   asio::signal_set ends_{ io_, SIGINT, SIGTERM };
   Clock::time_point const began_ = Clock::now();
   double toldAt_ = 0;  // s, since it began
   std::size_t next_ = 0;
};

LightNetwork Simulation::networkOf( Address const & address ) {
   if( address.tls ) tls_.load_verify_file( options_.caFile );
   asio::ip::tcp::resolver resolver( io_ );
   auto const found = resolver.resolve( address.host, std::to_string( address.port ) );
   return { .io = io_,
            .broker = found.begin()->endpoint(),
            .tls = address.tls ? &tls_ : nullptr,
            .serverName = options_.serverName.empty() ? address.host : options_.serverName,
            .reconnectSeconds = options_.reconnectSeconds,
            .random = random_ };
}

Simulation::Simulation( SimulateOptions const & options )
   : options_( options ), random_( options.seed ), network_( networkOf( Address::of( options.url, options.caFile ) ) ) {
   auto plans = plansOf( options );
   allowSockets( plans.size() );
   std::vector<std::string> names;
   for( auto & plan : plans ) {
      names.push_back( plan.name );
      boxes_.emplace_back( std::move( plan ), network_, unixTime() );
   }
   if( !options.scriptFile.empty() ) coming_ = readScript( contentOf( options.scriptFile ), names, random_ );
}

void Simulation::run() {
   ends_.async_wait( [this]( auto const &, int ) { io_.stop(); } );
   timer_.expires_at( Clock::now() );
   handleSlice();
   io_.run();
   tell( std::chrono::duration<double>( Clock::now() - began_ ).count() );
}

// A tenth of the boxes, so that they do not all speak in one moment. What was missed is not made up for.
void Simulation::handleSlice() {
   double const elapsed = std::chrono::duration<double>( Clock::now() - began_ ).count();
   if( options_.seconds > 0 && elapsed >= options_.seconds ) return io_.stop();
   handleScript( elapsed );
   for( std::size_t place = next_; place < boxes_.size(); place += slicesInSecond ) {
      boxes_[place].turn( unixTime(), counts_ );
   }
   next_ = ( next_ + 1 ) % slicesInSecond;
   if( elapsed - toldAt_ >= options_.reportSeconds ) {
      tell( elapsed );
      toldAt_ = elapsed;
   }
   timer_.expires_at( std::max( timer_.expiry() + slice, Clock::now() ) );
   timer_.async_wait( [this]( auto const & failure ) {
      if( !failure ) handleSlice();
   } );
}

void Simulation::handleScript( double elapsed ) {
   std::erase_if( coming_, [&]( Mishap const & mishap ) {
      if( elapsed < mishap.at ) return false;
      for( std::size_t const place : mishap.boxes ) boxes_[place].faultBegins( mishap.fault );
      underWay_.push_back( mishap );
      return true;
   } );
   std::erase_if( underWay_, [&]( Mishap const & mishap ) {
      if( elapsed < mishap.until ) return false;
      for( std::size_t const place : mishap.boxes ) boxes_[place].faultEnds( mishap.fault, unixTime() );
      return true;
   } );
}

void Simulation::tell( double elapsed ) const {
   std::size_t connected = 0;
   std::size_t faulty = 0;
   std::string trouble;
   for( SimulatedBox const & box : boxes_ ) {
      connected += box.connected();
      faulty += box.faulty();
      if( trouble.empty() && !box.connected() && !box.faulty() ) trouble = box.trouble();
   }
   std::cout << static_cast<long>( elapsed ) << " s: " << connected << " of " << boxes_.size() << " boxes connected, "
             << counts_.statuses << " statuses sent, " << counts_.orders << " orders received, " << faulty
             << " boxes with a fault" << ( trouble.empty() ? "" : "; not connected: " + trouble ) << std::endl;
}

}  // namespace

int runSimulation( SimulateOptions const & options ) {
   try {
      Simulation( options ).run();
   } catch( Service::Config::ConfigError const & error ) {
      std::cerr << error.what() << "\n";
      return 1;
   } catch( std::runtime_error const & fault ) {
      std::cerr << "maintfleet: " << fault.what() << "\n";
      return 1;
   }
   return 0;
}

}  // namespace Fleet

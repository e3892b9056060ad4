#include "notify/ServiceManager.h"

#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/local/datagram_protocol.hpp>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <system_error>
#include <utility>

namespace Host {

namespace {

using Error = boost::system::error_code;

constexpr std::chrono::seconds betweenLines( 1 );

// The protocol is written by hand, as sd_notify(3) describes it for those who do without its library: a datagram with
// the text. The library brings six others along, a tenth of what this program takes in memory when there is nothing to
// do.
//
// What cannot be sent is lost: maintd does not fail for want of somebody who listens.
void send( boost::asio::io_context & io, std::string const & socket, std::string const & state ) {
   using Protocol = boost::asio::local::datagram_protocol;
   try {
      Protocol::socket( io, Protocol() ).send_to( boost::asio::buffer( state ), Protocol::endpoint( socket ) );
   } catch( boost::system::system_error const & ) {
   }
}

std::string listener() {
   char const * const name = std::getenv( "NOTIFY_SOCKET" );
   std::string socket = name ? name : "";
   // No file then, but a name that the kernel keeps.
   if( socket.starts_with( '@' ) ) socket.front() = '\0';
   return socket;
}

std::optional<int64_t> numberIn( char const * variable ) {
   char const * const text = std::getenv( variable );
   if( !text ) return std::nullopt;
   int64_t number = 0;
   char const * const end = text + std::strlen( text );
   auto const read = std::from_chars( text, end, number );
   if( read.ec != std::errc() || read.ptr != end ) return std::nullopt;
   return number;
}

// sd_watchdog_enabled(3)
std::chrono::microseconds wantedBeat() {
   auto const limit = numberIn( "WATCHDOG_USEC" );
   if( !limit || *limit <= 0 ) return {};
   // What is meant for the process that has started this one is none of its business.
   if( std::getenv( "WATCHDOG_PID" ) && numberIn( "WATCHDOG_PID" ) != getpid() ) return {};
   // Half of it, so that one that is late by a whole beat still comes in time.
   return std::chrono::microseconds( *limit / 2 );
}

}  // namespace

ServiceManager::ServiceManager( AsioLoop & loop )
   : loop_( loop ), listener_( listener() ), beat_( wantedBeat() ), beatTimer_( loop.io() ), lineTimer_( loop.io() ) {}

ServiceManager::~ServiceManager() { loop_.onTurn( {} ); }

void ServiceManager::ready( Line line ) {
   if( listener_.empty() ) return;
   line_ = std::move( line );
   told_ = line_();
   send( loop_.io(), listener_, "READY=1\nSTATUS=" + told_ );
   loop_.onTurn( [this] { handleTurn(); } );
   if( beat_.count() > 0 ) awaitBeat();
}

void ServiceManager::reloading() {
   if( listener_.empty() ) return;
   // With the moment, by which a manager tells the end of this reload from that of one before.
   timespec now{};
   clock_gettime( CLOCK_MONOTONIC, &now );
   auto const microseconds =
      static_cast<uint64_t>( now.tv_sec ) * 1'000'000 + static_cast<uint64_t>( now.tv_nsec ) / 1000;
   send( loop_.io(), listener_, "RELOADING=1\nMONOTONIC_USEC=" + std::to_string( microseconds ) );
}

void ServiceManager::reloaded() {
   if( !listener_.empty() ) send( loop_.io(), listener_, "READY=1" );
}

void ServiceManager::stopping() {
   if( listener_.empty() ) return;
   loop_.onTurn( {} );
   beatTimer_.cancel();
   lineTimer_.cancel();
   send( loop_.io(), listener_, "STOPPING=1\nSTATUS=stopping" );
}

void ServiceManager::awaitBeat() {
   send( loop_.io(), listener_, "WATCHDOG=1" );
   beatTimer_.expires_after( beat_ );
   beatTimer_.async_wait( [this]( Error error ) {
      if( !error ) awaitBeat();
   } );
}

// However many turns follow each other, the line is made once for all of them.
void ServiceManager::handleTurn() {
   if( std::exchange( lineIsDue_, true ) ) return;
   lineTimer_.expires_after( betweenLines );
   lineTimer_.async_wait( [this]( Error error ) {
      if( !error ) tellLine();
   } );
}

void ServiceManager::tellLine() {
   lineIsDue_ = false;
   std::string line = line_();
   if( line == told_ ) return;
   told_ = std::move( line );
   send( loop_.io(), listener_, "STATUS=" + told_ );
}

}  // namespace Host

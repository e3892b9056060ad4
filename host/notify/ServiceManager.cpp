#include "notify/ServiceManager.h"

#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <ctime>
#include <utility>

namespace Host {

namespace {

using Error = boost::system::error_code;

constexpr std::chrono::seconds betweenLines( 1 );

// What cannot be sent is lost: maintd does not fail for want of somebody who listens.
void send( std::string const & state ) { static_cast<void>( sd_notify( 0, state.c_str() ) ); }

bool isListening() {
   char const * const socket = std::getenv( "NOTIFY_SOCKET" );
   return socket && *socket;
}

std::chrono::microseconds wantedBeat() {
   uint64_t limit = 0;  // us
   if( sd_watchdog_enabled( 0, &limit ) <= 0 ) return {};
   // Half of it, so that one that is late by a whole beat still comes in time.
   return std::chrono::microseconds( limit / 2 );
}

}  // namespace

ServiceManager::ServiceManager( AsioLoop & loop )
   : loop_( loop ),
     listens_( isListening() ),
     beat_( wantedBeat() ),
     beatTimer_( loop.io() ),
     lineTimer_( loop.io() ) {}

ServiceManager::~ServiceManager() { loop_.onTurn( {} ); }

void ServiceManager::ready( Line line ) {
   if( !listens_ ) return;
   line_ = std::move( line );
   told_ = line_();
   send( "READY=1\nSTATUS=" + told_ );
   loop_.onTurn( [this] { handleTurn(); } );
   if( beat_.count() > 0 ) awaitBeat();
}

void ServiceManager::reloading() {
   if( !listens_ ) return;
   // With the moment, by which a manager tells the end of this reload from that of one before.
   timespec now{};
   clock_gettime( CLOCK_MONOTONIC, &now );
   auto const microseconds =
      static_cast<uint64_t>( now.tv_sec ) * 1'000'000 + static_cast<uint64_t>( now.tv_nsec ) / 1000;
   send( "RELOADING=1\nMONOTONIC_USEC=" + std::to_string( microseconds ) );
}

void ServiceManager::reloaded() {
   if( listens_ ) send( "READY=1" );
}

void ServiceManager::stopping() {
   if( !listens_ ) return;
   loop_.onTurn( {} );
   beatTimer_.cancel();
   lineTimer_.cancel();
   send( "STOPPING=1\nSTATUS=stopping" );
}

void ServiceManager::awaitBeat() {
   send( "WATCHDOG=1" );
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
   send( "STATUS=" + told_ );
}

}  // namespace Host

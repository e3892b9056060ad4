#include "log/StandardError.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <utility>

namespace Host {

namespace {

// What a pipe that can be written surely takes at once, as POSIX has it (_POSIX_PIPE_BUF).
constexpr std::size_t surelyTaken = 512;
constexpr std::chrono::milliseconds retryPause( 200 );

// Opened again, not duplicated: that it does not wait is then a property of ours alone. It may be refused, as for a
// pipe of another user, or because its reader has gone.
int openedAgain( int fd ) {
   std::string const path = "/proc/self/fd/" + std::to_string( fd );
   return ::open( path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC );
}

std::string noticeOf( uint64_t dropped ) {
   return "maintd: " + std::to_string( dropped ) + ( dropped == 1 ? " line" : " lines" ) +
          " dropped, because standard error was not read\n";
}

}  // namespace

StandardError::Kind StandardError::kindOf( int fd ) {
   struct stat status = {};
   if( ::fstat( fd, &status ) != 0 ) return Kind::other;
   if( S_ISSOCK( status.st_mode ) ) return Kind::socket;
   return S_ISFIFO( status.st_mode ) || ::isatty( fd ) ? Kind::pipeOrTerminal : Kind::other;
}

StandardError::StandardError( int fd )
   : fd_( fd ),
     kind_( kindOf( fd ) ),
     own_( kind_ == Kind::pipeOrTerminal ? openedAgain( fd ) : -1 ),
     stderrNow_( ::fopencookie( this, "w", { nullptr, cookieWrite, nullptr, nullptr } ) ),
     stderrBefore_( stderr ),
     cerrBefore_( std::cerr.rdbuf( this ) ) {
   if( !stderrNow_ ) return;  // no memory: C code keeps what it has
   std::setvbuf( stderrNow_, nullptr, _IONBF, 0 );
   stderr = stderrNow_;  // a variable, in the GNU C library
}

StandardError::~StandardError() {
   std::cerr.rdbuf( cerrBefore_ );
   stderr = stderrBefore_;
   if( stderrNow_ ) std::fclose( stderrNow_ );
   if( !line_.empty() ) takeLine();
   writeOn();
   if( own_ >= 0 ) ::close( own_ );
}

ssize_t StandardError::cookieWrite( void * self, char const * text, std::size_t bytes ) {
   static_cast<StandardError *>( self )->take( { text, bytes } );
   return static_cast<ssize_t>( bytes );
}

StandardError::int_type StandardError::overflow( int_type character ) {
   if( traits_type::eq_int_type( character, traits_type::eof() ) ) return traits_type::not_eof( character );
   char const one = traits_type::to_char_type( character );
   take( { &one, 1 } );
   return character;
}

std::streamsize StandardError::xsputn( char const * text, std::streamsize bytes ) {
   take( { text, static_cast<std::size_t>( bytes ) } );
   return bytes;
}

void StandardError::take( std::string_view text ) {
   bool const waited = waits();
   while( !text.empty() ) {
      std::size_t const end = std::min( text.find( '\n' ), text.size() - 1 ) + 1;
      // Of a line that is too long for all of the room only as much is kept as shows that.
      if( line_.size() <= waitingMax ) line_ += text.substr( 0, end );
      if( text[end - 1] == '\n' ) takeLine();
      text.remove_prefix( end );
   }
   if( !waited && waits() && onWaiting_ ) onWaiting_();
}

// Once lines were dropped all are, until there is room again for more than a few: otherwise those that are said to be
// missing would be missing everywhere.
void StandardError::takeLine() {
   writeOn();
   if( dropped_ > 0 || waiting_.size() + line_.size() > waitingMax ) {
      ++dropped_;
   } else {
      waiting_ += line_;
   }
   line_.clear();
   writeOn();
}

void StandardError::writeOn() {
   while( waits() ) {
      if( waiting_.empty() ) waiting_ = noticeOf( std::exchange( dropped_, 0 ) );
      std::size_t const taken = written( waiting_ );
      if( taken == 0 ) return;
      waiting_.erase( 0, taken );
   }
}

std::size_t StandardError::written( std::string_view text ) const {
   ssize_t taken = 0;
   if( kind_ == Kind::socket ) {
      taken = ::send( fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL );
   } else if( kind_ == Kind::other || own_ >= 0 ) {
      taken = ::write( own_ >= 0 ? own_ : fd_, text.data(), text.size() );
   } else {
      pollfd ready{ fd_, POLLOUT, 0 };
      if( ::poll( &ready, 1, 0 ) <= 0 ) return 0;
      taken = ::write( fd_, text.data(), std::min( text.size(), surelyTaken ) );
   }
   return taken > 0 ? static_cast<std::size_t>( taken ) : 0;
}

StandardErrorRetry::StandardErrorRetry( AsioLoop & loop, StandardError & error )
   : error_( error ), timer_( loop.io() ) {
   error_.onWaiting( [this] { await(); } );
   if( error_.waits() ) await();
}

StandardErrorRetry::~StandardErrorRetry() { error_.onWaiting( {} ); }

void StandardErrorRetry::await() {
   timer_.expires_after( retryPause );
   timer_.async_wait( [this]( boost::system::error_code error ) {
      if( error ) return;  // armed anew, or gone
      error_.writeOn();
      if( error_.waits() ) await();
   } );
}

}  // namespace Host

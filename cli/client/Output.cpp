#include "client/Output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <utility>

#include "tables/Printable.h"

namespace Cli {

namespace {

// Enough that a write is rare, and little beside the largest answer.
constexpr std::size_t outputPieceBytes = 64 * 1024;

// The length of the next piece, which does not end within a character.
std::size_t pieceOf( std::string_view text ) {
   if( text.size() <= outputPieceBytes ) return text.size();
   // In UTF-8 every byte of a character but its first is 10xxxxxx, and there are three of them at most.
   std::size_t length = outputPieceBytes;
   while( length > outputPieceBytes - 3 && ( static_cast<unsigned char>( text[length] ) & 0xc0 ) == 0x80 ) --length;
   return length;
}

void keepStandardDescriptors() {
   for( int const fd : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO } ) {
      // The lowest free number is given (open(2)), which is this one. For reading only, so that a write fails and is
      // not taken for done.
      if( ::fcntl( fd, F_GETFD ) < 0 && ::open( "/dev/null", O_RDONLY ) < 0 ) return;
   }
}

}  // namespace

Output::Output( std::ostream & stream, int fd ) : stream_( stream ), before_( stream.rdbuf( this ) ), fd_( fd ) {}

Output::~Output() {
   write();
   stream_.rdbuf( before_ );
}

Output::int_type Output::overflow( int_type c ) {
   if( traits_type::eq_int_type( c, traits_type::eof() ) ) return traits_type::not_eof( c );
   char const character = traits_type::to_char_type( c );
   return xsputn( &character, 1 ) == 1 ? c : traits_type::eof();
}

std::streamsize Output::xsputn( char const * text, std::streamsize length ) {
   std::string_view rest( text, static_cast<std::size_t>( length ) );
   while( !rest.empty() ) {
      std::size_t const piece = pieceOf( rest );
      pending_ += printableLines( rest.substr( 0, piece ) );
      rest.remove_prefix( piece );
      if( pending_.size() >= outputPieceBytes && !write() ) return 0;
   }
   return length;
}

int Output::sync() { return write() ? 0 : -1; }

// False when it fails.
bool Output::write() {
   std::string const text = std::exchange( pending_, "" );
   for( std::size_t done = 0; done < text.size(); ) {
      ssize_t const written = ::write( fd_, text.data() + done, text.size() - done );
      if( written >= 0 ) {
         done += static_cast<std::size_t>( written );
      } else if( errno == EAGAIN ) {
         // Whoever shares the descriptor has made it so.
         pollfd room{ fd_, POLLOUT, 0 };
         ::poll( &room, 1, -1 );
      } else if( errno != EINTR ) {
         failure_ = errno;
         return false;
      }
   }
   return true;
}

int runPrinting( std::function<int()> const & program, std::function<int( std::string const & )> const & complain ) {
   keepStandardDescriptors();
   // A reader that has gone shows when something is written.
   std::signal( SIGPIPE, SIG_IGN );
   Output const errors( std::cerr, STDERR_FILENO );
   Output const output( std::cout, STDOUT_FILENO );
   // Otherwise a failed write is only noted in the stream. Of standard error there is nowhere to tell.
   std::cout.exceptions( std::ios::badbit );
   try {
      int const status = program();
      std::cout.flush();
      return status;
   } catch( std::exception const & fault ) {
      // It would be thrown again by what is said about it: standard error has it written first.
      std::cout.exceptions( std::ios::goodbit );
      int const error = output.failure();
      if( error == 0 ) return complain( fault.what() );
      // The reader has gone, or there was none from the start: nobody wants to know.
      if( error == EPIPE || error == EBADF ) return EXIT_FAILURE;
      return complain( std::string( "what was to be printed cannot be written: " ) + std::strerror( error ) );
   }
}

}  // namespace Cli

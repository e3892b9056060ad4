// maintctl record: what happens on this box, written into a file that maintsim replays.
//
// Only whole lines are ever written, so whatever ends this leaves a recording that can be replayed up to there. It ends
// by itself when its time is over, and in good order when somebody interrupts it.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>

#include "Commands.h"
#include "client/LineStream.h"
#include "kel/QuantityText.h"
#include "tables/Printable.h"

namespace Cli {

namespace {

// How often it is looked whether somebody has interrupted this.
constexpr std::chrono::milliseconds pause( 200 );
constexpr std::size_t filePieceBytes = 64 * 1024;

std::sig_atomic_t volatile interrupted = 0;

class NotedInterrupts {
 public:
   NotedInterrupts() {
      struct sigaction action {};
      action.sa_handler = []( int ) { interrupted = 1; };
      for( int const signal : { SIGINT, SIGTERM, SIGHUP } ) ::sigaction( signal, &action, nullptr );
   }
};

// Where the lines go. What cannot be written whole is not there afterwards.
class LineFile {
 public:
   // Standard output where the name is "-".
   LineFile( std::string const & name, bool force ) : name_( name ) {
      if( name == "-" ) return;
      int const flags = O_WRONLY | O_CREAT | O_CLOEXEC | ( force ? O_TRUNC : O_EXCL );
      fd_ = ::open( name.c_str(), flags, 0666 );
      error_ = fd_ < 0 ? errno : 0;
   }
   LineFile( LineFile const & ) = delete;
   LineFile & operator=( LineFile const & ) = delete;
   ~LineFile() {
      if( fd_ >= 0 ) ::close( fd_ );
   }

   void add( std::string const & line ) {
      pending_ += line + "\n";
      if( pending_.size() >= filePieceBytes ) flush();
   }
   void flush() {
      if( error_ != 0 || pending_.empty() ) return;
      if( name_ == "-" ) {
         std::cout << pending_ << std::flush;
      } else {
         write();
      }
      if( error_ == 0 ) bytes_ += pending_.size();
      pending_.clear();
   }
   [[nodiscard]] int error() const { return error_; }  // 0 while all is well
   [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
   void write() {
      for( std::size_t done = 0; done < pending_.size(); ) {
         ssize_t const written = ::write( fd_, pending_.data() + done, pending_.size() - done );
         if( written > 0 ) done += static_cast<std::size_t>( written );
         if( written >= 0 || errno == EINTR ) continue;
         error_ = errno;
         // Back to where the last whole line ended; where the file is none that can be cut there is nothing to be done.
         auto const whole = pending_.rfind( '\n', done == 0 ? 0 : done - 1 );
         bytes_ += done == 0 || whole == std::string::npos ? 0 : whole + 1;
         static_cast<void>( !::ftruncate( fd_, static_cast<off_t>( bytes_ ) ) );
         return;
      }
   }

   std::string const name_;
   int fd_ = -1;
   int error_ = 0;
   std::string pending_;
   std::size_t bytes_ = 0;
};

std::string sizeText( std::size_t bytes ) {
   auto const kilobytes = static_cast<double>( bytes ) / 1000;
   return kilobytes < 1000 ? Kel::numberText( kilobytes, 1 ) + " kB" : Kel::numberText( kilobytes / 1000, 1 ) + " MB";
}

std::string cannotBeWritten( std::string const & name, int error ) {
   if( error == EEXIST ) return name + " is there already; --force writes over it";
   return name + ": cannot be written: " + std::strerror( error );
}

// What the last line says where maintd has ended the recording before its time; empty where it has not.
std::string endedEarly( std::string const & lastLine ) {
   constexpr std::string_view early = "# The recording ends early: ";
   return lastLine.starts_with( early ) ? lastLine.substr( 2 ) : "";
}

// The lines as they come, until they end or somebody interrupts this; the last one.
std::string follow( LineStream & lines, LineFile & file ) {
   std::string last;
   auto got = LineStream::Got::nothing;
   while( interrupted == 0 && got != LineStream::Got::end && file.error() == 0 ) {
      got = lines.next( last, Clock::now() );
      if( got == LineStream::Got::line ) {
         file.add( last );
         continue;
      }
      // All that has come is in the file while nothing more comes.
      file.flush();
      if( got != LineStream::Got::nothing ) continue;
      got = lines.next( last, Clock::now() + pause );
      if( got == LineStream::Got::line ) file.add( last );
   }
   file.flush();
   return last;
}

}  // namespace

int record( Client const & client, RecordOptions const & options ) {
   NotedInterrupts const interrupts;
   Target target{ "record" };
   if( options.seconds ) target.parameter( "for", Kel::numberText( *options.seconds, 3 ) );
   LineStream lines = client.lines( target );
   if( !lines.answer().ok() ) return complain( lines.answer() );
   // Not before maintd has agreed: otherwise nothing is touched.
   LineFile file( options.file, options.force );
   if( file.error() != 0 ) return complain( cannotBeWritten( options.file, file.error() ) );
   bool const toFile = options.file != "-";
   if( toFile ) std::cerr << "recording into " << printable( options.file ) << "; an interrupt ends it\n";
   auto const began = Clock::now();
   std::string early;
   int status = done;
   try {
      early = endedEarly( follow( lines, file ) );
   } catch( NotReached const & error ) {
      file.flush();
      early = error.what();
      status = notReached;
   }
   if( file.error() != 0 ) early = cannotBeWritten( options.file, file.error() );
   auto const seconds = std::chrono::duration<double>( Clock::now() - began ).count();
   std::cerr << "recorded " << Kel::durationText( seconds ) << ", " << sizeText( file.bytes() )
             << ( toFile ? ", in " + printable( options.file ) : "" ) << "\n";
   if( early.empty() ) return done;
   return complain( early, status == done ? failed : notReached );
}

}  // namespace Cli

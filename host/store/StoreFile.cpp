#include "store/StoreFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "store/StoreError.h"

namespace Host::StoreFile {

namespace {

using Kind = StoreError::Kind;
namespace fs = std::filesystem;

class Descriptor {
 public:
   explicit Descriptor( int fd ) : fd_( fd ) {}
   Descriptor( Descriptor const & ) = delete;
   Descriptor & operator=( Descriptor const & ) = delete;
   ~Descriptor() {
      if( fd_ >= 0 ) close( fd_ );
   }
   [[nodiscard]] int get() const { return fd_; }

 private:
   int const fd_;
};

std::string errorText( int error ) { return std::generic_category().message( error ); }

[[noreturn]] void refuse( std::string const & path, char const * what, int error ) {
   bool const full = error == ENOSPC || error == EDQUOT || error == EFBIG;
   throw StoreError( full ? Kind::full : Kind::unwritable, path, what + ( ": " + errorText( error ) ) );
}

[[noreturn]] void foreign( std::string const & path, std::string const & what ) {
   throw StoreError( Kind::foreign, path, "is no store of maintd: " + what );
}

// The file's first bytes as SQLite describes them (https://www.sqlite.org/fileformat.html, 1.3); fewer when there are
// no more.
constexpr std::size_t headerBytes = 100;

std::string header( std::string const & path, int fd ) {
   std::array<char, headerBytes> bytes{};
   ssize_t const got = pread( fd, bytes.data(), bytes.size(), 0 );
   if( got < 0 ) refuse( path, "cannot be read", errno );
   return { bytes.data(), static_cast<std::size_t>( got ) };
}

uint32_t bigEndian( std::string_view bytes, std::size_t at ) {
   uint32_t number = 0;
   for( char const c : bytes.substr( at, 4 ) ) number = number << 8 | static_cast<unsigned char>( c );
   return number;
}

void checkHeader( std::string const & path, std::string_view bytes ) {
   static constexpr std::string_view magic( "SQLite format 3\0", 16 );
   constexpr std::size_t layoutAt = 60;
   constexpr std::size_t applicationAt = 68;
   if( bytes.empty() ) foreign( path, "it is empty" );
   if( !bytes.starts_with( magic ) ) foreign( path, "it is no SQLite database" );
   if( bytes.size() < headerBytes ) throw StoreError( Kind::damaged, path, "is damaged: it ends in its first line" );
   if( bigEndian( bytes, applicationAt ) != applicationId ) foreign( path, "it is the database of another program" );
   uint32_t const found = bigEndian( bytes, layoutAt );
   if( found <= layout ) return;
   throw StoreError( Kind::newer, path,
                     "was written by a newer maintd, in layout " + std::to_string( found ) + "; this one knows " +
                        std::to_string( layout ) );
}

// None when there is nothing of that name. Not blocking, as it may be a pipe.
std::optional<struct stat> status( std::string const & path ) {
   struct stat found {};
   if( lstat( path.c_str(), &found ) == 0 ) return found;
   if( errno != ENOENT ) refuse( path, "cannot be looked at", errno );
   return std::nullopt;
}

// Whether it is there; refuses what is no regular file.
bool regularFile( std::string const & path ) {
   auto const found = status( path );
   if( !found ) return false;
   if( S_ISLNK( found->st_mode ) ) foreign( path, "it is a symbolic link" );
   if( !S_ISREG( found->st_mode ) ) foreign( path, "it is no regular file" );
   return true;
}

std::string directoryOf( std::string const & path ) {
   fs::path const directory = fs::path( path ).parent_path();
   return directory.empty() ? "." : directory.string();
}

void syncDirectory( std::string const & directory ) {
   Descriptor const fd( open( directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) );
   if( fd.get() < 0 || fsync( fd.get() ) != 0 ) refuse( directory, "cannot be written to disk", errno );
}

void makeDirectory( std::string const & directory ) {
   fs::path const above = fs::path( directory ).parent_path();
   std::error_code error;
   if( !above.empty() ) fs::create_directories( above, error );
   if( error ) refuse( directory, "cannot be made", error.value() );
   if( mkdir( directory.c_str(), 0750 ) == 0 ) {
      syncDirectory( directoryOf( directory ) );
   } else if( errno != EEXIST ) {
      refuse( directory, "cannot be made", errno );
   }
}

std::string unfinished( std::string const & path ) { return path + ".new"; }

}  // namespace

bool isThere( std::string const & path ) {
   std::string const log = path + "-wal";
   bool const withLog = regularFile( log );
   if( !regularFile( path ) ) {
      if( withLog && status( log )->st_size > 0 ) {
         foreign( log, "it is the latest part of " + path + ", which is not there; the two go together" );
      }
      return false;
   }
   Descriptor const fd( open( path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC ) );
   if( fd.get() < 0 ) refuse( path, "cannot be opened", errno );
   checkHeader( path, header( path, fd.get() ) );
   return true;
}

std::string begin( std::string const & path ) {
   makeDirectory( directoryOf( path ) );
   std::string const made = unfinished( path );
   // What is there is of an earlier start, which did not come to its end.
   for( char const * const part : { "", "-journal", "-wal" } ) {
      if( unlink( ( made + part ).c_str() ) != 0 && errno != ENOENT ) refuse( made + part, "cannot be removed", errno );
   }
   Descriptor const fd( open( made.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0640 ) );
   if( fd.get() < 0 ) refuse( path, "cannot be made", errno );
   // Whatever the mask of the process.
   if( fchmod( fd.get(), 0640 ) != 0 ) refuse( path, "cannot be given its mode", errno );
   // Made by root in the directory of the user that maintd has as a service, it is that user's, who could not open it
   // otherwise. SQLite gives the files that it makes beside it to the same. Where that cannot be, root has it.
   auto const directory = status( directoryOf( path ) );
   if( geteuid() == 0 && directory ) {
      static_cast<void>( !fchown( fd.get(), directory->st_uid, directory->st_gid ) );
   }
   return made;
}

void finish( std::string const & path ) {
   std::string const made = unfinished( path );
   if( rename( made.c_str(), path.c_str() ) != 0 ) refuse( path, "cannot be given its name", errno );
   syncDirectory( directoryOf( path ) );
}

}  // namespace Host::StoreFile

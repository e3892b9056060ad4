#include "hooks/Trusted.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <utility>

namespace Host {

namespace {

class Fd {
 public:
   explicit Fd( int fd ) : fd_( fd ) {}
   Fd( Fd && other ) noexcept : fd_( std::exchange( other.fd_, -1 ) ) {}
   Fd & operator=( Fd && other ) noexcept {
      std::swap( fd_, other.fd_ );
      return *this;
   }
   ~Fd() {
      if( fd_ >= 0 ) close( fd_ );
   }
   [[nodiscard]] int number() const { return fd_; }

 private:
   int fd_;
};

std::deque<std::string> components( std::string const & path ) {
   std::deque<std::string> parts;
   for( std::size_t at = 0; at < path.size(); ) {
      auto const slash = std::min( path.find( '/', at ), path.size() );
      if( auto const part = path.substr( at, slash - at ); !part.empty() && part != "." ) parts.push_back( part );
      at = slash + 1;
   }
   return parts;
}

std::string ownerObjection( struct stat const & status ) {
   if( status.st_uid != 0 && status.st_uid != geteuid() ) return "owned by user " + std::to_string( status.st_uid );
   if( ( status.st_mode & ( S_IWGRP | S_IWOTH ) ) != 0 ) return "writable by others";
   return {};
}

std::string modeObjection( struct stat const & status ) {
   if( !S_ISREG( status.st_mode ) ) return "no regular file";
   if( ( status.st_mode & ( S_IXUSR | S_IXGRP | S_IXOTH ) ) == 0 ) return "not executable";
   return {};
}

// Each component is opened for its path alone, without following it, and asked by that descriptor what it is.
class Walk {
 public:
   explicit Walk( std::string const & program ) : ahead_( components( program ) ) {}

   Trusted end() {
      std::string objection = enter( openat( AT_FDCWD, "/", O_PATH | O_CLOEXEC ) );
      while( objection.empty() && !ahead_.empty() ) objection = step();
      if( objection.empty() ) objection = modeObjection( status_ );
      if( !objection.empty() ) return { .path = {}, .objection = ( path_.empty() ? "/" : path_ ) + ": " + objection };
      return { .path = path_, .objection = {} };
   }

 private:
   std::string step() {
      if( !S_ISDIR( status_.st_mode ) ) return "no directory";
      std::string const name = std::move( ahead_.front() );
      ahead_.pop_front();
      std::string const above = path_;
      // No link stands in the path so far, so its text goes up as the directory does.
      path_ = name == ".." ? path_.substr( 0, path_.rfind( '/' ) ) : path_ + "/" + name;
      Fd next( openat( here_.number(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC ) );
      struct stat status {};
      if( next.number() < 0 || fstat( next.number(), &status ) != 0 ) return unfound();
      if( !S_ISLNK( status.st_mode ) ) return enter( std::move( next ) );
      return follow( next, above );
   }

   static std::string unfound() { return errno == ENOENT ? "no such file" : std::strerror( errno ); }

   std::string enter( int fd ) { return enter( Fd( fd ) ); }
   std::string enter( Fd next ) {
      if( next.number() < 0 || fstat( next.number(), &status_ ) != 0 ) return unfound();
      here_ = std::move( next );
      return ownerObjection( status_ );
   }

   std::string follow( Fd const & link, std::string const & above ) {
      constexpr int most = 40;  // as many as the kernel follows
      if( ++links_ > most ) return "too many symbolic links";
      std::array<char, PATH_MAX> target{};
      auto const length = readlinkat( link.number(), "", target.data(), target.size() );
      if( length <= 0 ) return "a symbolic link that cannot be read";
      std::string const text( target.data(), static_cast<std::size_t>( length ) );
      auto const parts = components( text );
      ahead_.insert( ahead_.begin(), parts.begin(), parts.end() );
      path_ = above;
      if( text.front() != '/' ) return {};
      path_.clear();
      return enter( openat( AT_FDCWD, "/", O_PATH | O_CLOEXEC ) );
   }

   std::deque<std::string> ahead_;
   std::string path_;  // of here_; empty for the root
   Fd here_{ -1 };
   struct stat status_ {};
   int links_ = 0;
};

}  // namespace

Trusted trustedProgram( std::string const & program ) {
   if( program.empty() || program.front() != '/' ) return { .path = {}, .objection = program + ": no absolute path" };
   return Walk( program ).end();
}

}  // namespace Host

// A file with these bytes, for what reads files by their path. In memory, and gone with this.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "Targets.h"
#include "kel/Assert.h"

namespace Fuzz {

class MemoryFile {
 public:
   explicit MemoryFile( Bytes bytes ) : fd( ::memfd_create( "fuzz", MFD_CLOEXEC ) ) {
      KEL_ASSERT( fd >= 0 );
      KEL_ASSERT( ::write( fd, bytes.data(), bytes.size() ) == static_cast<ssize_t>( bytes.size() ) );
   }
   MemoryFile( MemoryFile const & ) = delete;
   MemoryFile & operator=( MemoryFile const & ) = delete;
   ~MemoryFile() { ::close( fd ); }

   [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string( fd ); }

   int const fd;
};

}  // namespace Fuzz

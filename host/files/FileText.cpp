#include "files/FileText.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace Host {

std::string fileText( std::string const & path ) {
   auto const check = [&]( bool good ) {
      if( !good ) throw std::runtime_error( path + ": cannot be read: " + std::strerror( errno ) );
   };
   // By stdio, because a stream does not keep the reason of a failure. "e" closes the file in a child (fopen(3)).
   std::unique_ptr<std::FILE, int ( * )( std::FILE * )> const file( std::fopen( path.c_str(), "re" ), std::fclose );
   check( file != nullptr );
   std::string text;
   std::array<char, 4096> block;
   while( std::size_t const count = std::fread( block.data(), 1, block.size(), file.get() ) ) {
      text.append( block.data(), count );
   }
   // Not only for a failing disk: a directory can be opened like a file, and fails when it is read.
   check( !std::ferror( file.get() ) );
   return text;
}

}  // namespace Host

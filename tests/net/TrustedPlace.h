// A directory of the test's own in which a program lies that maintd would run: below no directory that anybody else may
// write to. Where the tree itself lies below such a one, as in /tmp, there is none.
#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>

// Its path; empty when there is none. Whoever asks removes it.
inline std::string trustedPlace() {
   std::string place = std::filesystem::canonical( "/proc/self/exe" ).parent_path().string() + "/hooks-XXXXXX";
   for( auto above = std::filesystem::path( place ).parent_path();; above = above.parent_path() ) {
      struct stat status {};
      if( ::stat( above.c_str(), &status ) != 0 || ( status.st_mode & S_IWOTH ) ) return "";
      if( above == above.root_path() ) break;
   }
   char const * const made = mkdtemp( place.data() );
   return made ? made : "";
}

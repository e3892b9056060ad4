// maintd on a box that can be told to keep its counters to itself: while the file named by RATEMON_UNREAD_FILE exists,
// the kernel's link statistics cannot be read. Everything else is maintd, source by source.
#include <unistd.h>

#include <cstdlib>

#include "StatsFaults.h"

namespace {

// Set before main begins, since maintd's own knows nothing of it.
[[maybe_unused]] bool const set = [] {
   char const * const file = std::getenv( "RATEMON_UNREAD_FILE" );
   if( file ) Faults::statsFaults().requestFails = [file] { return ::access( file, F_OK ) == 0; };
   return true;
}();

}  // namespace

#include "kel/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kel {

namespace {
AssertSink toldOfFailures = nullptr;
}

void assertSinkIs( AssertSink s ) { toldOfFailures = s; }

void assertionFailed( char const * expression, char const * file, int line ) {
   std::fprintf( stderr, "Assertion failed: \"%s\" at %s:%d\n", expression, file, line );
   // All streams: an abort leaves in their buffers what was printed before.
   std::fflush( nullptr );
   // Only now, when everything is said: whoever is told may fail in turn.
   if( AssertSink const s = toldOfFailures ) {
      toldOfFailures = nullptr;  // who fails an assertion himself must not come back here
      s( expression, file, line );
   }
   std::abort();
}

}  // namespace Kel

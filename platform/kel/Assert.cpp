#include "kel/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kel {

namespace {
AssertSink sink = nullptr;
}

void assertSinkIs( AssertSink s ) { sink = s; }

void assertionFailed( char const * expression, char const * file, int line ) {
   std::fprintf( stderr, "Assertion failed: \"%s\" at %s:%d\n", expression, file, line );
   // All streams: an abort leaves in their buffers what was printed before.
   std::fflush( nullptr );
   // Only now, when everything is said: the sink may fail in turn.
   if( AssertSink const s = sink ) {
      sink = nullptr;  // a sink that fails an assertion itself must not come back here
      s( expression, file, line );
   }
   std::abort();
}

}  // namespace Kel

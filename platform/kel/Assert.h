// Assertions for our own mistakes, on in every build.
//
// A broken invariant stops the agent: the expression, file and line go to standard error and to the ring trace (through
// the sink that the ring trace installs), then the process aborts. The world's faults are never asserted; they are
// results or exceptions, handled by whoever can decide.
#pragma once

namespace Kel {

// Reports the failed expression and aborts. Never returns.
[[noreturn]] void assertionFailed( char const * expression, char const * file, int line );

// Where a failed assertion is recorded besides standard error; null for nowhere. Called once, before the abort.
using AssertSink = void ( * )( char const * expression, char const * file, int line );
void assertSinkIs( AssertSink sink );

}  // namespace Kel

#define KEL_ASSERT( expression ) \
   ( ( expression ) ? static_cast<void>( 0 ) : ::Kel::assertionFailed( #expression, __FILE__, __LINE__ ) )

// For an invariant whose text is fixed and differs from the condition that tests it.
#define KEL_ASSERT_TEXT( condition, text ) \
   ( ( condition ) ? static_cast<void>( 0 ) : ::Kel::assertionFailed( text, __FILE__, __LINE__ ) )

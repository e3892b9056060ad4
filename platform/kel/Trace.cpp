#include "kel/Trace.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <utility>

#include "kel/ActivityLoop.h"
#include "kel/Assert.h"

namespace Kel {

namespace {

constexpr double exactWholeMax = 9007199254740992.0;  // 2^53: from here on neighbouring whole numbers run together

void writeToStandardError( TraceRecord const & record ) {
   std::fprintf( stderr, "%.6f %.*s %d %.*s\n", record.time, static_cast<int>( record.handle.size() ),
                 record.handle.data(), record.level, static_cast<int>( record.text.size() ), record.text.data() );
}

// The sink and the handles are never destroyed: static objects of a plug-in may still trace while the process ends.
TraceSink & theTraceSink() {
   static auto & sink = *new TraceSink( writeToStandardError );
   return sink;
}

std::map<std::string, TraceHandle, std::less<>> & theHandles() {
   static auto & handles = *new std::map<std::string, TraceHandle, std::less<>>;
   return handles;
}

}  // namespace

std::string doubleText( double value ) {
   // 24 characters are the longest shortest form of a double. Whole numbers print as such, not as the 1e+06 that is the
   // shorter text.
   std::array<char, 40> text;
   bool const whole = std::abs( value ) <= exactWholeMax && std::trunc( value ) == value;
   auto const end = whole ? std::to_chars( text.data(), text.data() + text.size(), value, std::chars_format::fixed )
                          : std::to_chars( text.data(), text.data() + text.size(), value );
   return { text.data(), end.ptr };
}

void TraceHandle::levelsIs( std::initializer_list<int> levels ) {
   Levels mask = 0;
   for( int const level : levels ) {
      KEL_ASSERT( level >= 0 && level <= levelMax );
      mask |= Levels( 1 ) << level;
   }
   levelsIs( mask );
}

// Searched by view, so that asking for a handle that is there makes no string.
TraceHandle & traceHandle( char const * name ) {
   auto const found = theHandles().find( std::string_view( name ) );
   return found != theHandles().end() ? found->second : theHandles().try_emplace( name, name ).first->second;
}

std::vector<TraceHandle *> traceHandles() {
   std::vector<TraceHandle *> handles;
   for( auto & [name, handle] : theHandles() ) handles.push_back( &handle );
   return handles;
}

void traceSinkIs( TraceSink sink ) { theTraceSink() = sink ? std::move( sink ) : writeToStandardError; }

// A stream is large and costly to make; by pointer a disabled writer is without one.
TraceHelper::TraceHelper( TraceHandle const & handle, int level )
   : handle_( &handle ), level_( level ), message_( std::make_unique<std::ostringstream>() ) {}

void TraceHelper::trace( char const * file, int line, char const * function ) {
   std::string const text = std::string( function ) + ": " + message_->str();
   theTraceSink()( { now(), handle_->name(), level_, text, file, line, function } );
}

}  // namespace Kel

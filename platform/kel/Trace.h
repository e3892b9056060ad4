// The framework trace: lines of text for whoever follows what the agent decides, one level at a time.
//
// A TraceHandle is a named set of enabled levels. Handles live in a process-wide registry, are created on first use and
// never go away, so levels can be set before the code that traces is loaded. A call site asks for a writer; where the
// level is disabled that costs a load and a branch, and nothing of the message is evaluated. An enabled line is built
// and handed to the one sink, by default standard error. Every line begins with the name of its function and ": ".
//
// Trace output never changes behaviour: no handler may depend on a line having been written.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Kel {

// A double as trace, log and ring trace print it: whole numbers up to 2^53 with all their digits, everything else as
// the shortest text that reads back the same.
[[nodiscard]] std::string doubleText( double value );

// Prints as `<<` does, except that doubles follow doubleText().
template<class T>
void printText( std::ostream & out, T const & value ) {
   if constexpr( std::floating_point<T> ) {
      out << doubleText( static_cast<double>( value ) );
   } else {
      out << value;
   }
}

class TraceHandle {
 public:
   using Levels = uint32_t;  // bit n set: level n is enabled
   static constexpr int levelMax = 31;

   explicit TraceHandle( std::string_view name ) : name_( name ) {}
   TraceHandle( TraceHandle const & ) = delete;
   TraceHandle & operator=( TraceHandle const & ) = delete;

   [[nodiscard]] std::string const & name() const { return name_; }

   [[nodiscard]] bool levelEnabled( int level ) const { return ( ( levels_ >> level ) & 1u ) != 0; }
   [[nodiscard]] Levels levels() const { return levels_; }
   void levelsIs( Levels mask ) { levels_ = mask; }
   // Exactly these levels, each 0..levelMax.
   void levelsIs( std::initializer_list<int> levels );

 private:
   Levels levels_ = 0;
   std::string const name_;
};

// The handle of this name, created with every level disabled when it is asked for the first time.
[[nodiscard]] TraceHandle & traceHandle( char const * name );
// Every handle, by name.
[[nodiscard]] std::vector<TraceHandle *> traceHandles();

// One emitted line. The views hold during the sink's call only.
struct TraceRecord {
   double time;  // s, the present turn
   std::string_view handle;
   int level;
   std::string_view text;  // function, ": ", message
   char const * file;
   int line;
   char const * function;
};

// Where lines go from now on; an empty function restores standard error.
using TraceSink = std::function<void( TraceRecord const & )>;
void traceSinkIs( TraceSink sink );

// The writer of one line; false as a bool where the level is disabled, and then not to be written to.
class TraceHelper {
 public:
   [[nodiscard]] static TraceHelper createIfEnabled( TraceHandle const & handle, int level ) {
      return handle.levelEnabled( level ) ? TraceHelper( handle, level ) : TraceHelper();
   }

   explicit operator bool() const { return message_ != nullptr; }

   // Numbers are taken by copy: a variable that is only ever traced can then stay in a register.
   template<class T>
   requires( std::is_arithmetic_v<T> || std::is_enum_v<T> ) TraceHelper & operator<<( T value ) {
      printText( *message_, value );
      return *this;
   }
   template<class T>
   requires( !std::is_arithmetic_v<T> && !std::is_enum_v<T> ) TraceHelper & operator<<( T const & value ) {
      printText( *message_, value );
      return *this;
   }

   // Emits what was written so far, once.
   void trace( char const * file, int line, char const * function );

 private:
   TraceHelper() = default;
   TraceHelper( TraceHandle const & handle, int level );

   TraceHandle const * handle_ = nullptr;
   int level_ = 0;
   std::unique_ptr<std::ostringstream> message_;
};

}  // namespace Kel

// KEL_TRACE( handle, 5, "intf " << id << ", state " << s ): a line that begins with the enclosing function's name.
#define KEL_TRACE( handle, level, ... ) KEL_TRACE_AS( handle, level, __func__, __VA_ARGS__ )

// The same with a beginning other than that name, for example in a lambda. The level is asked for before there is a
// writer, so that a disabled line is one branch and neither makes nor destroys anything.
#define KEL_TRACE_AS( handle, level, beginning, ... )                                \
   do {                                                                              \
      if( ( handle ).levelEnabled( level ) ) [[unlikely]] {                          \
         auto kelTraceWriter = ::Kel::TraceHelper::createIfEnabled( handle, level ); \
         kelTraceWriter << __VA_ARGS__;                                              \
         kelTraceWriter.trace( __FILE__, __LINE__, beginning );                      \
      }                                                                              \
   } while( false )

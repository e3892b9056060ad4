// System-log messages: each kind is defined once, with what it means and what an operator should do about it.
//
// A LogHandle is a static object of the module that logs; while it lives it is listed in the process-wide registry, so
// a tool can print every message an agent may write. log() fills the format's %s in order, asks okToLog(), and hands
// the message to the one sink, by default syslog(3) with facility LOG_DAEMON. Severities are those of syslog: 0
// emergency .. 7 debug.
#pragma once

#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "kel/Trace.h"

namespace Kel {

// The recommended action of messages that only inform.
inline constexpr char const * NoActionRequired = "No action is required.";

class LogHandle {
 public:
   // The texts are literals: they are kept by pointer. d1 is the shortest time in seconds between two messages with the
   // same text, 0.0 for no limit. d2 and flag are kept for the definition's reader and have no effect on this platform.
   LogHandle( char const * name, int severity, char const * format, char const * explanation,
              char const * recommendedAction, double d1, double d2, int flag );
   LogHandle( LogHandle const & ) = delete;
   LogHandle & operator=( LogHandle const & ) = delete;
   ~LogHandle();

   [[nodiscard]] char const * name() const { return name_; }
   [[nodiscard]] int severity() const { return severity_; }
   [[nodiscard]] char const * format() const { return format_; }
   [[nodiscard]] char const * explanation() const { return explanation_; }
   [[nodiscard]] char const * recommendedAction() const { return recommendedAction_; }
   [[nodiscard]] double d1() const { return d1_; }
   [[nodiscard]] double d2() const { return d2_; }
   [[nodiscard]] int flag() const { return flag_; }

   // One argument per %s of the format (asserted), of any type that prints.
   template<class... Args>
   void log( Args const &... args ) {
      emit( { textOf( args )... } );
   }

   // Whether a message with this text may be logged now. A yes is taken as done: the text's interval begins.
   [[nodiscard]] bool okToLog( std::string const & text );

 private:
   template<class T>
   static std::string textOf( T const & value ) {
      std::ostringstream out;
      printText( out, value );
      return out.str();
   }
   void emit( std::vector<std::string> const & args );

   char const * const name_;
   int const severity_;
   char const * const format_;
   char const * const explanation_;
   char const * const recommendedAction_;
   double const d1_;
   double const d2_;
   int const flag_;
   std::map<std::string, double> loggedAt_;  // text -> s; only texts whose interval still runs
};

// Every handle alive, in the order of construction.
[[nodiscard]] std::vector<LogHandle const *> const & logHandles();

// One message on its way out. The view holds during the sink's call only.
struct LogRecord {
   double time;  // s, the present turn
   LogHandle const & handle;
   std::string_view text;
};

// Where messages go from now on; an empty function restores syslog.
using LogSink = std::function<void( LogRecord const & )>;
void logSinkIs( LogSink sink );

}  // namespace Kel

#include "kel/LogHandle.h"

#include <syslog.h>

#include <utility>

#include "kel/ActivityLoop.h"
#include "kel/Assert.h"

namespace Kel {

namespace {

void writeToSyslog( LogRecord const & record ) {
   // The text is an argument and never the format: names in it may hold per cent signs. With its length, because a view
   // has no end mark; printf wants that as an int.
   syslog( LOG_MAKEPRI( LOG_DAEMON, record.handle.severity() ), "%s: %.*s", record.handle.name(),
           static_cast<int>( record.text.size() ), record.text.data() );
}

// The sink and the list of handles are never destroyed: handles of a plug-in that is never unloaded go after the
// objects of this file.
LogSink & theLogSink() {
   static auto & sink = *new LogSink( writeToSyslog );
   return sink;
}

std::vector<LogHandle const *> & theLogHandles() {
   static auto & handles = *new std::vector<LogHandle const *>;
   return handles;
}

// The format with its %s replaced in order; %% is a per cent sign. The number of arguments must be right.
std::string formatted( std::string_view format, std::vector<std::string> const & args ) {
   std::string text;
   auto arg = args.begin();
   for( std::size_t at = 0; at < format.size(); ++at ) {
      if( format[at] != '%' ) {
         text += format[at];
         continue;
      }
      ++at;
      KEL_ASSERT( at < format.size() && ( format[at] == '%' || ( format[at] == 's' && arg != args.end() ) ) );
      text += format[at] == '%' ? "%" : *arg++;
   }
   KEL_ASSERT( arg == args.end() );
   return text;
}

}  // namespace

LogHandle::LogHandle( char const * name, int severity, char const * format, char const * explanation,
                      char const * recommendedAction, double d1, double d2, int flag )
   : name_( name ),
     severity_( severity ),
     format_( format ),
     explanation_( explanation ),
     recommendedAction_( recommendedAction ),
     d1_( d1 ),
     d2_( d2 ),
     flag_( flag ) {
   KEL_ASSERT( severity >= LOG_EMERG && severity <= LOG_DEBUG );
   theLogHandles().push_back( this );
}

LogHandle::~LogHandle() { std::erase( theLogHandles(), this ); }

bool LogHandle::okToLog( std::string const & text ) {
   if( d1_ <= 0 ) return true;
   // Texts carry names, so there is no end of them: none is remembered longer than it matters.
   std::erase_if( loggedAt_, [this]( auto const & entry ) { return now() - entry.second >= d1_; } );
   // A message that is held back does not begin the interval anew, or a steady stream would be silent for ever.
   return loggedAt_.try_emplace( text, now() ).second;
}

void LogHandle::emit( std::vector<std::string> const & args ) {
   std::string const text = formatted( format_, args );
   if( okToLog( text ) ) theLogSink()( { now(), *this, text } );
}

std::vector<LogHandle const *> const & logHandles() { return theLogHandles(); }

void logSinkIs( LogSink sink ) { theLogSink() = sink ? std::move( sink ) : writeToSyslog; }

}  // namespace Kel

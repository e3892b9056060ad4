#include "log/SystemLog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "brisklog/Brisklog.h"
#include "kel/Printable.h"

namespace Host {

using Service::Severity;

namespace {

char const * logName = "maintd";

void trace( Severity severity, std::string const & text ) {
   switch( severity ) {
      case Severity::error: BRISKLOG( 0, "{}", text ); return;
      case Severity::warning: BRISKLOG( 1, "{}", text ); return;
      case Severity::notice:
      case Severity::info: BRISKLOG( 3, "{}", text ); return;
   }
}

}  // namespace

void logNameIs( char const * name ) { logName = name; }

bool isJournalStream( int fd, char const * named ) {
   struct stat status = {};
   if( !named || ::fstat( fd, &status ) != 0 ) return false;
   return std::to_string( status.st_dev ) + ":" + std::to_string( status.st_ino ) == named;
}

std::string logLineText( Severity severity, std::string const & text, bool journal ) {
   std::string head = std::string( logName ) + ": ";
   if( severity <= Severity::warning ) head += std::string( enumName( severity ) ) + ": ";
   if( journal ) head = "<" + std::to_string( static_cast<int>( severity ) ) + ">";
   return head + Kel::printable( text ) + "\n";
}

std::string logText( Service::Event const & event ) {
   std::string text;
   if( event.unit ) text = "unit " + event.unit->str() + ": ";
   // A link that is of no unit, or of many, is named as one.
   if( event.interface ) text += ( event.unit ? "" : "link " ) + event.interface->str() + ": ";
   return text + event.kind.str() + ": " + event.text.str();
}

void logLine( Severity severity, std::string const & text ) {
   // For good: it is what the process was started with.
   static bool const journal = isJournalStream( STDERR_FILENO, std::getenv( "JOURNAL_STREAM" ) );
   trace( severity, text );
   std::cerr << logLineText( severity, text, journal );
}

void logEvent( Service::Event const & event ) { logLine( severityOf( event ), logText( event ) ); }

}  // namespace Host

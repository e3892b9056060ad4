#include "streams/LineText.h"

#include <charconv>

#include "kel/Json.h"

namespace Host::LineText {

namespace {

template<class Number>
void appendNumber( std::string & line, Number number ) {
   char text[32];
   line.append( std::begin( text ), std::to_chars( std::begin( text ), std::end( text ), number ).ptr );
}

}  // namespace

void appendHead( std::string & line, uint64_t number, double time ) {
   line += "{\"seq\": ";
   appendNumber( line, number );
   line += ", \"t\": ";
   appendNumber( line, time );
   line += ", ";
}

void appendPath( std::string & line, Dovra::StateComponents const & path ) {
   for( std::string const & component : path ) {
      if( &component != &path.front() ) line += ", ";
      Kel::appendJson( line, component );
   }
}

void appendEnd( std::string & line, std::string_view value ) {
   line += "], \"value\": ";
   line += value;
   line += "}\n";
}

std::string lastLine( uint64_t place, std::string_view why ) {
   std::string line = "{\"seq\": ";
   appendNumber( line, place );
   line += ", \"end\": ";
   Kel::appendJson( line, why );
   line += ", \"resumeAfter\": ";
   appendNumber( line, place );
   return line + "}\n";
}

}  // namespace Host::LineText

// maintctl report: a window as text, as the page that goes into a change ticket, or as JSON.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>

#include "Commands.h"
#include "kel/Exception.h"
#include "report/WindowPage.h"
#include "tables/Printable.h"
#include "tables/Report.h"

namespace Cli {

namespace {

// By stdio, because a stream does not keep the reason of a failure.
int writeFile( std::string const & path, std::string const & content ) {
   std::FILE * const file = std::fopen( path.c_str(), "we" );
   if( !file ) return complain( path + ": cannot be written: " + std::strerror( errno ) );
   bool const written = std::fwrite( content.data(), 1, content.size(), file ) == content.size();
   // Only now does a full disk show, where everything fitted into the buffer.
   if( std::fclose( file ) != 0 || !written )
      return complain( path + ": cannot be written: " + std::strerror( errno ) );
   return done;
}

std::string page( Answer const & answer ) {
   try {
      return Report::windowPage( kelValue( answer.body ) );
   } catch( Kel::AttributeError const & error ) {
      throw WrongAnswer( error.what() );
   }
}

}  // namespace

int report( Client const & client, ReportOptions const & options, std::string const & unit ) {
   std::string const generation = options.generation ? std::to_string( *options.generation ) : "last";
   Answer const answer = client.get( { "windows", unit, generation }, windowShape );
   if( !answer.ok() ) return complain( answer );
   if( options.json ) {
      printJson( answer );
      return done;
   }
   if( options.htmlFile.empty() ) {
      // All or nothing, as every table.
      std::ostringstream out;
      printReport( out, answer.object() );
      std::cout << out.str();
      return done;
   }
   int const status = writeFile( options.htmlFile, page( answer ) );
   if( status == done ) std::cout << printable( options.htmlFile ) << "\n";
   return status;
}

}  // namespace Cli

// maintctl report: a window as text, as the page that goes into a change ticket, or as JSON.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "Commands.h"
#include "report/WindowPage.h"
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

}  // namespace

int report( Client const & client, ReportOptions const & options, std::string const & unit ) {
   std::string const generation = options.generation ? std::to_string( *options.generation ) : "last";
   Answer const answer = client.get( "/v1/windows/" + encoded( unit ) + "/" + generation );
   if( !answer.ok() ) return complain( answer );
   if( options.json ) {
      std::cout << answer.text;
      return done;
   }
   if( options.htmlFile.empty() ) {
      printReport( std::cout, answer.body.as_object() );
      return done;
   }
   int const status = writeFile( options.htmlFile, Report::windowPage( kelValue( answer.body ) ) );
   if( status == done ) std::cout << options.htmlFile << "\n";
   return status;
}

}  // namespace Cli

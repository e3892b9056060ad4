#include "ConfigFile.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace Host {

namespace {

// The whole of a file; throws std::runtime_error when it cannot be read.
std::string contentsOf( std::string const & path ) {
   auto const check = [&]( bool good ) {
      if( !good ) throw std::runtime_error( path + ": cannot be read: " + std::strerror( errno ) );
   };
   // By stdio, because a stream does not keep the reason of a failure. "e" closes the file in a child (fopen(3)).
   std::unique_ptr<std::FILE, int ( * )( std::FILE * )> const file( std::fopen( path.c_str(), "re" ), std::fclose );
   check( file != nullptr );
   std::string text;
   std::array<char, 4096> block;
   while( std::size_t const count = std::fread( block.data(), 1, block.size(), file.get() ) ) {
      text.append( block.data(), count );
   }
   // Not only for a failing disk: a directory can be opened like a file, and fails when it is read.
   check( !std::ferror( file.get() ) );
   return text;
}

// What the file asks for and this agent does not do is an error at the start, not a surprise in the next maintenance.
std::string notCarriedOut( Service::Config::Config const & config ) {
   for( auto const & profile : config.profiles ) {
      if( profile.shutdown )
         return "profile \"" + profile.name + "\": this maintd takes no link down, shutdown must be false";
   }
   for( auto const * stages : { &config.stages.maintEnter, &config.stages.maintExit } ) {
      for( auto const & stage : *stages ) {
         if( !stage.run.empty() ) return "stage \"" + stage.name + "\": this maintd runs no programs";
      }
   }
   return "";
}

}  // namespace

Service::Config::Config readConfig( std::string const & file ) {
   auto config = Service::Config::parse( contentsOf( file ), file );
   if( auto const why = notCarriedOut( config ); !why.empty() ) throw std::runtime_error( file + ": " + why );
   return config;
}

}  // namespace Host

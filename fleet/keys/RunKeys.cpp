#include <filesystem>
#include <iostream>

#include "keys/KeyStore.h"

namespace Fleet {

namespace {

constexpr char const * reread =
   "Have the broker read its configuration again: systemctl reload nats-server (SIGHUP).\n";

void initAndTell( KeyStore & keys, std::string const & directory ) {
   keys.init();
   std::cout << "The owner's key is in " << keys.seedFile( "owner" )
             << ".\nnats-server.conf is to have a line that includes " << keys.authorizationFile()
             << ",\nby its path from there, as it takes no absolute one. In /etc/nats-server.conf: include \"./"
             << std::filesystem::absolute( keys.authorizationFile() ).lexically_relative( "/etc" ).string() << "\"\n"
             << "Then make a key for each box: maintfleet keys add --dir " << directory << " BOX...\n";
}

void addAndTell( KeyStore & keys, std::vector<std::string> const & boxes ) {
   keys.add( boxes );
   for( std::string const & box : boxes ) {
      std::cout << box << ": take " << keys.seedFile( box ) << " there, readable for its agent alone\n";
   }
   std::cout << reread;
}

void revokeAndTell( KeyStore & keys, std::vector<std::string> const & boxes ) {
   keys.revoke( boxes );
   for( std::string const & box : boxes ) std::cout << box << ": revoked\n";
   std::cout << "They are in until then. " << reread;
}

void run( KeysOptions const & options ) {
   KeyStore keys( options.directory );
   bool const ofBoxes = options.verb == KeysOptions::Verb::add || options.verb == KeysOptions::Verb::revoke;
   if( ofBoxes && options.boxes.empty() ) throw KeyFault( "which boxes? Name at least one" );
   switch( options.verb ) {
      case KeysOptions::Verb::init: return initAndTell( keys, options.directory );
      case KeysOptions::Verb::add: return addAndTell( keys, options.boxes );
      case KeysOptions::Verb::revoke: return revokeAndTell( keys, options.boxes );
      case KeysOptions::Verb::list:
         for( auto const & entry : keys.entries() ) std::cout << entry.publicKey << "  " << entry.name << "\n";
   }
}

}  // namespace

int runKeys( KeysOptions const & options ) {
   try {
      run( options );
   } catch( KeyFault const & fault ) {
      std::cerr << "maintfleet: " << fault.what() << "\n";
      return 1;
   }
   return 0;
}

}  // namespace Fleet

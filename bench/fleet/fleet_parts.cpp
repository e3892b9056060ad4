// The parts of a fleet that ./broker-return starts, each as a process of its own:
//
//    keys DIRECTORY BOXES                          keys for an owner and box-1 to box-BOXES
//    boxes DIRECTORY URL CA NAME BOXES RECONNECT   those boxes, until it is ended
//    bare-owner DIRECTORY URL CA NAME              an owner that only listens; each second a line: is it connected, how
//                                                  many boxes has it heard since it was last connected, letters so far
//    owner DIRECTORY URL CA NAME INVENTORY         the owner as it is, with its socket and its state in DIRECTORY
#include <poll.h>

#include <cstdlib>
#include <iostream>
#include <set>
#include <span>

#include "broker/NatsBroker.h"
#include "keys/KeyStore.h"
#include "orders/Orders.h"
#include "simulate/Simulate.h"

#ifdef RATEMON_HAS_CONTROLLER
#include "controller/Controller.h"
#endif

namespace {

using namespace Fleet;
using Words = std::span<char * const>;

constexpr int turnMilliseconds = 500;

int makeKeys( Words words ) {
   KeyStore keys( words[0] );
   keys.init();
   std::vector<std::string> boxes;
   for( long number = 1; number <= std::atol( words[1] ); ++number )
      boxes.push_back( "box-" + std::to_string( number ) );
   keys.add( boxes );
   return 0;
}

int runBoxes( Words words ) {
   SimulateOptions options;
   options.keysDirectory = words[0];
   options.url = words[1];
   options.caFile = words[2];
   options.serverName = words[3];
   options.boxes = static_cast<unsigned long>( std::atol( words[4] ) );
   options.reconnectSeconds = std::atof( words[5] );
   return runSimulation( options );
}

NatsOptions ownerAt( Words words ) {
   NatsOptions options;
   options.keyFile = words[0] + std::string( "/owner.nk" );
   options.url = words[1];
   options.caFile = words[2];
   options.serverName = words[3];
   return options;
}

int runBareOwner( Words words ) {
   NatsBroker broker( ownerAt( words ) );
   std::set<std::string> heard;
   unsigned long letters = 0;
   for( unsigned turn = 0;; ++turn ) {
      auto const arrived = broker.arrived();
      if( !broker.connected() ) heard.clear();
      for( auto const & letter : arrived ) {
         ++letters;
         heard.insert( statusFrom( letter.text ).box );
      }
      if( turn % 2 == 0 ) {
         std::cout << broker.connected() << " " << heard.size() << " " << letters << " " << broker.trouble()
                   << std::endl;
      }
      poll( nullptr, 0, turnMilliseconds );
   }
}

int runOwner( [[maybe_unused]] Words words ) {
#ifdef RATEMON_HAS_CONTROLLER
   ControllerOptions options;
   options.inventoryFile = words[4];
   options.stateDirectory = words[0] + std::string( "/state" );
   options.socket = words[0] + std::string( "/fleet.sock" );
   options.broker = ownerAt( words );
   return runController( options );
#else
   std::cerr << "this build has no owner\n";
   return 1;
#endif
}

struct Part {
   std::string_view name;
   std::size_t words;
   int ( *run )( Words );
};

constexpr Part parts[] = {
   { "keys", 2, makeKeys }, { "boxes", 6, runBoxes }, { "bare-owner", 4, runBareOwner }, { "owner", 5, runOwner } };

}  // namespace

int main( int count, char ** words ) {
   Words const given( words, static_cast<std::size_t>( count ) );
   for( Part const & part : parts ) {
      if( given.size() == part.words + 2 && given[1] == part.name ) {
         try {
            return part.run( given.subspan( 2 ) );
         } catch( std::runtime_error const & fault ) {
            std::cerr << "fleet_parts: " << fault.what() << "\n";
            return 1;
         }
      }
   }
   std::cerr << "usage: see the head of bench/fleet/fleet_parts.cpp\n";
   return 2;
}

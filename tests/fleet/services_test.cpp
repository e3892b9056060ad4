// What agent and controller end with when they cannot begin: the service manager starts them again only where that may
// help.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "agent/Agent.h"
#include "controller/Controller.h"
#include "memory/SqliteMemory.h"

namespace FleetTest {

namespace {

class FleetServices : public ::testing::Test {
 protected:
   FleetServices() {
      std::filesystem::create_directories( directory );
      std::ofstream( controller.inventoryFile ) << "boxes: { s1a: { units: [ fabric ] } }\n";
      agent.broker.box = "s1a";
   }
   ~FleetServices() override { std::filesystem::remove_all( directory ); }

   std::string const directory =
      std::filesystem::temp_directory_path() / ( "fleet-services-" + std::to_string( getpid() ) );
   Fleet::ControllerOptions controller{
      .inventoryFile = directory + "/fleet.yaml", .stateDirectory = directory, .socket = directory + "/fleet.sock" };
   Fleet::AgentOptions agent{ .broker = {}, .stateDirectory = directory };
};

}  // namespace

TEST_F( FleetServices, endSoThatTheyAreStartedAgainOnlyWhereThatMayHelp ) {
   controller.broker.keyFile = agent.broker.keyFile = directory + "/no-such.nk";
   EXPECT_EQ( runController( controller ), 2 );
   EXPECT_EQ( runAgent( agent ), 2 );
   EXPECT_FALSE( std::filesystem::exists( directory + "/owner.db" ) );
   controller.broker.keyFile = agent.broker.keyFile = "";
   {
      // Somebody else may have gone by the next time.
      Fleet::SqliteMemory const books( directory + "/owner.db" );
      Fleet::SqliteMemory const work( directory + "/agent.db" );
      EXPECT_EQ( runController( controller ), 1 );
      EXPECT_EQ( runAgent( agent ), 1 );
   }
   Fleet::SqliteMemory( directory + "/owner.db" ).commit( { { "slot/", "{}" } } );
   EXPECT_EQ( runController( controller ), 3 );
   for( char const * file : { "/owner.db", "/agent.db" } )
      std::ofstream( directory + file ) << "this is no database, and was one of ours once upon a time";
   EXPECT_EQ( runController( controller ), 3 );
   EXPECT_EQ( runAgent( agent ), 3 );
}

}  // namespace FleetTest

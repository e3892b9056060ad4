#include "ScenarioInput.h"

#include <algorithm>
#include <sstream>

#include "dovra/StatePath.h"
#include "kel/Json.h"
#include "scenario/Scenario.h"

namespace Test {

namespace {

bool isStart( Kel::Value const & line ) {
   if( auto const * const lines = line.as<Kel::Value::List>() ) {
      return std::any_of( lines->begin(), lines->end(), isStart );
   }
   auto const * const members = line.as<Kel::Value::Object>();
   return members && std::any_of( members->begin(), members->end(), []( auto const & member ) {
             return member.first == "start" || ( member.first == "batch" && isStart( member.second ) );
          } );
}

bool startsThePlugin( std::string const & line ) {
   try {
      return isStart( Sim::parseJson( line ).value() );
   } catch( Sim::LineError const & ) {
      return false;  // the scenario says what is wrong with it
   }
}

std::string withoutStarts( std::string_view input ) {
   std::istringstream in{ std::string( input ) };
   std::string kept;
   for( std::string line; std::getline( in, line ); ) {
      if( !startsThePlugin( line ) ) kept += line + "\n";
   }
   return kept;
}

bool isObject( std::string const & answer ) {
   try {
      return Sim::parseJson( answer ).value().as<Kel::Value::Object>() != nullptr;
   } catch( Sim::LineError const & ) {
      return false;
   }
}

// Every record, set to what it prints in the words of a scenario, is as it was.
void checkRecords( Sim::World & world, Sim::Scenario & scenario, std::vector<std::string> & faults ) {
   for( std::string const & path : world.database()->paths() ) {
      auto const printed = [&] { return Kel::toJson( Dovra::stateValue( *world.database(), path ) ); };
      std::string const before = printed();
      try {
         scenario.line( "{\"set\": [" + Kel::toJson( path ) + "], \"to\": " + before + "}" );
      } catch( Sim::LineError const & error ) {
         faults.push_back( path + " does not take what it prints: " + error.what() + ": " + before );
      }
      if( printed() != before ) faults.push_back( path + " printed " + before + " and then " + printed() );
   }
}

}  // namespace

ScenarioRun runScenario( std::string_view input ) {
   ScenarioRun run;
   std::istringstream lines( withoutStarts( input ) );
   std::stringstream printed;
   Sim::World world( RATEMON_PLUGIN_PATH, 1000 );
   Sim::Scenario scenario( world, printed );
   try {
      scenario.run( lines );
   } catch( Sim::ScenarioError const & error ) {
      run.error = error.what();
   }
   for( std::string answer; std::getline( printed, answer ); ) run.answers.push_back( answer );
   for( std::string const & answer : run.answers ) {
      if( !isObject( answer ) ) run.faults.push_back( "not a JSON object: " + answer );
   }
   checkRecords( world, scenario, run.faults );
   return run;
}

}  // namespace Test

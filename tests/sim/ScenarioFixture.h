// A scenario that is run line by line, and what it prints.
#pragma once

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "scenario/Scenario.h"

namespace Test {

// What the real maintsim prints, on either stream, and its exit status behind it. `before` is what feeds it, up to the
// pipe.
inline std::string maintsim( std::string const & arguments, std::string const & before = "" ) {
   std::string const command = before + "'" RATEMON_MAINTSIM_PATH "' " + arguments + " 2>&1; echo $?";
   std::FILE * const pipe = ::popen( command.c_str(), "r" );
   std::string text;
   std::array<char, 4096> chunk{};
   for( std::size_t n = 0; ( n = std::fread( chunk.data(), 1, chunk.size(), pipe ) ) > 0; )
      text.append( chunk.data(), n );
   ::pclose( pipe );
   return text;
}

class ScenarioFixture : public ::testing::Test {
 protected:
   // What the lines print, line by line; with an error its text is the last one.
   std::vector<std::string> run( std::string const & lines ) {
      std::istringstream in( lines );
      try {
         scenario_.run( in );
      } catch( Sim::ScenarioError const & error ) {
         out_ << error.what() << "\n";
      }
      std::vector<std::string> answers;
      std::istringstream printed( out_.str() );
      for( std::string answer; std::getline( printed, answer ); ) answers.push_back( answer );
      out_.str( "" );
      return answers;
   }
   KelQuill::CounterTable::LastRead row( std::string const & intf ) const {
      for( uint32_t i = 0; i < world_.counterTable().rows(); ++i ) {
         auto const entry = world_.counterTable().entry( i );
         if( entry && entry->name == intf ) return entry->counters;
      }
      throw std::runtime_error( "no row of " + intf );
   }
   // The line that `get` prints; the path without its brackets.
   std::string get( std::string const & path ) { return run( R"({"get": [)" + path + "]}" ).back(); }

   std::ostringstream out_;
   Sim::World world_{ RATEMON_PLUGIN_PATH, 1000 };
   Sim::Scenario scenario_{ world_, out_ };
};

}  // namespace Test

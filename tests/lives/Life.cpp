#include "Life.h"

#include <chrono>
#include <fstream>
#include <sstream>

#include "scenario/Scenario.h"

namespace Lives {

namespace json = boost::json;

namespace {

void oneLine( Sim::Scenario & scenario, Oracle & oracle, std::stringstream & printed, std::string const & text ) {
   auto const line = json::parse( text );
   oracle.before( line.as_object() );
   scenario.line( text );
   oracle.after( line.as_object() );
   for( std::string answer; std::getline( printed, answer ); ) oracle.answer( json::parse( answer ).as_object() );
   printed.clear();
   printed.str( {} );
}

}  // namespace

Outcome live( Lines const & lines ) {
   Sim::World world( RATEMON_PLUGIN_PATH, 1000 );
   std::stringstream printed;
   Sim::Scenario scenario( world, printed );
   Oracle oracle( world );
   Outcome outcome;
   for( ; outcome.line < lines.size() && !oracle.fault(); ++outcome.line ) {
      try {
         oneLine( scenario, oracle, printed, lines[outcome.line] );
      } catch( Sim::LineError const & error ) {
         // No life of a box: the line cannot be.
         outcome.fault = Fault{ "line", lines[outcome.line] + ": " + error.what() };
         return outcome;
      }
   }
   outcome.fault = oracle.fault();
   outcome.tally = oracle.tally();
   return outcome;
}

Lines shrunk( Lines lines, std::string const & kind, double seconds ) {
   auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>( seconds );
   auto const fails = [&]( Lines const & tried ) {
      auto const fault = live( tried ).fault;
      return fault && fault->kind == kind;
   };
   lines.resize( std::min( lines.size(), live( lines ).line ) );
   // Pieces of half of it first, then ever smaller ones, until no single line can be spared.
   for( size_t piece = lines.size() / 2; piece > 0; ) {
      bool spared = false;
      for( size_t from = 0; from < lines.size() && std::chrono::steady_clock::now() < end; ) {
         Lines tried = lines;
         auto const first = tried.begin() + static_cast<ptrdiff_t>( from );
         tried.erase( first, first + static_cast<ptrdiff_t>( std::min( piece, lines.size() - from ) ) );
         if( fails( tried ) ) {
            lines = std::move( tried );
            spared = true;
         } else {
            from += piece;
         }
      }
      if( std::chrono::steady_clock::now() >= end ) break;
      if( !spared || piece > 1 ) piece /= 2;
   }
   return lines;
}

void write( std::filesystem::path const & file, Lines const & lines, std::string const & remarks ) {
   std::ofstream out( file );
   std::istringstream each( remarks );
   for( std::string remark; std::getline( each, remark ); ) out << "# " << remark << "\n";
   for( std::string const & line : lines ) out << line << "\n";
}

Lines read( std::filesystem::path const & file ) {
   std::ifstream in( file );
   Lines lines;
   for( std::string line; std::getline( in, line ); ) {
      if( !line.empty() && line[0] != '#' ) lines.push_back( line );
   }
   return lines;
}

}  // namespace Lives

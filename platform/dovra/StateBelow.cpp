// What there is instead of what somebody asked for.
#include <algorithm>
#include <iterator>
#include <span>

#include "dovra/StatePath.h"
#include "kel/NearMiss.h"

namespace Dovra {

namespace {

// What exists once per cell is found without this as well.
constexpr std::string_view ofFirstCell = "cell/0/";
// As many names as somebody reads.
constexpr std::size_t mostNames = 20;

std::string pathOf( std::span<std::string const> components ) {
   std::string text;
   for( std::string const & component : components ) text.append( text.empty() ? "" : "/" ).append( component );
   return text;
}

Kel::Value valueAt( EntityManager const & database, StateComponents const & path ) {
   try {
      return stateValue( database, path );
   } catch( Kel::AttributeError const & ) {
      return {};  // nothing is there
   }
}

// "in lag/config there are: phyIntf, portChannel", said of what `missing` is not one of.
std::string instead( std::string const & missing, std::string const & where, std::vector<std::string> const & names ) {
   std::string const none = "there is no \"" + missing + "\" " + where;
   if( names.empty() ) return none + ", where there is nothing";
   std::string const near = Kel::didYouMean( missing, names );
   if( !near.empty() && names.size() == 1 ) return none + near;
   return none + near + ( near.empty() ? "; there are: " : " There are: " ) + Kel::listed( names, mostNames );
}

}  // namespace

std::vector<std::string> stateBelow( EntityManager const & database, StateComponents const & path ) {
   std::string const above = path.empty() ? "" : pathOf( path ) + "/";
   std::vector<std::string> names;
   for( std::string const & mounted : database.paths() ) {
      for( std::string_view const prefix : { std::string_view(), ofFirstCell } ) {
         std::string const start = std::string( prefix ) + above;
         if( !mounted.starts_with( start ) ) continue;
         std::string const rest = mounted.substr( start.size() );
         // The cell itself is no news to somebody who may leave it out.
         if( above.empty() && prefix.empty() && mounted.starts_with( ofFirstCell ) ) continue;
         names.push_back( rest.substr( 0, rest.find( '/' ) ) );
      }
   }
   std::ranges::sort( names );
   names.erase( std::unique( names.begin(), names.end() ), names.end() );
   return names;
}

std::string stateAbsence( EntityManager const & database, StateComponents const & path ) {
   if( auto const below = stateBelow( database, path ); !below.empty() )
      return "there is no record at " + pathOf( path ) + "; below it there are: " + Kel::listed( below, mostNames );
   // The longest beginning that leads somewhere; without any component it is the top.
   for( std::size_t n = path.size(); n-- > 1; ) {
      StateComponents const known( path.begin(), path.begin() + static_cast<std::ptrdiff_t>( n ) );
      auto names = stateBelow( database, known );
      Kel::Value const value = valueAt( database, known );
      if( names.empty() && value.isNull() ) continue;
      auto const * const object = value.as<Kel::Value::Object>();
      if( names.empty() && !object ) return pathOf( known ) + " is one value, and nothing is below it";
      if( object )
         std::ranges::transform( *object, std::back_inserter( names ), []( auto const & m ) { return m.first; } );
      return instead( path[n], "in " + pathOf( known ), names );
   }
   return instead( path.empty() ? "" : path.front(), "at the top", stateBelow( database, {} ) );
}

}  // namespace Dovra

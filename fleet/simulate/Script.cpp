#include "simulate/Script.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <sstream>

#include "orders/Member.h"

namespace Fleet {

namespace {

constexpr std::pair<std::string_view, Fault> faultNames[] = { { "silent", Fault::silent },
                                                              { "traffic-stays", Fault::trafficStays },
                                                              { "maintd-off", Fault::maintdOff },
                                                              { "dies", Fault::dies } };

Fault faultNamed( std::string const & name ) {
   auto const known = std::ranges::find( faultNames, name, []( auto const & pair ) { return pair.first; } );
   if( known != std::end( faultNames ) ) return known->second;
   throw BadDocument( "there is no fault \"" + name + "\": silent, traffic-stays, maintd-off, dies" );
}

std::size_t placeOf( std::string_view name, std::vector<std::string> const & names ) {
   auto const place = std::ranges::find( names, name );
   if( place == names.end() ) throw BadDocument( "there is no box \"" + std::string( name ) + "\"" );
   return static_cast<std::size_t>( place - names.begin() );
}

// "10%"; at least one.
std::vector<std::size_t> drawn( std::string_view share, std::size_t from, std::mt19937_64 & random ) {
   double percent = 0;
   auto const read = std::from_chars( share.data(), share.data() + share.size() - 1, percent );
   if( read.ec != std::errc() || read.ptr != share.data() + share.size() - 1 || !( percent > 0 && percent <= 100 ) ) {
      throw BadDocument( "\"" + std::string( share ) + "\" is no share of the boxes" );
   }
   std::vector<std::size_t> places( from );
   std::iota( places.begin(), places.end(), std::size_t{ 0 } );
   std::ranges::shuffle( places, random );
   places.resize(
      std::clamp<std::size_t>( static_cast<std::size_t>( static_cast<double>( from ) * percent / 100 ), 1, from ) );
   return places;
}

std::vector<std::size_t> boxesOf( Object const & line, std::vector<std::string> const & names,
                                  std::mt19937_64 & random ) {
   auto const & boxes = line.member( "boxes" );
   if( boxes.is_string() ) {
      std::string_view const text = boxes.as_string();
      if( text.ends_with( '%' ) ) return drawn( text, names.size(), random );
      return { placeOf( text, names ) };
   }
   std::vector<std::size_t> places;
   for( auto const & box : line.list( "boxes" ) ) {
      if( !box.is_string() ) throw BadDocument( "boxes must be names" );
      places.push_back( placeOf( box.as_string(), names ) );
   }
   return places;
}

Mishap mishapFrom( std::string_view text, std::vector<std::string> const & names, std::mt19937_64 & random ) {
   auto const document = documentIn( text, "it" );
   Object const line = objectIn( document, "it" );
   Mishap mishap{ .at = line.number( "at" ), .fault = faultNamed( line.text( "fault" ) ), .boxes = {} };
   if( auto const seconds = line.numberIfAny( "for" ) ) mishap.until = mishap.at + *seconds;
   mishap.boxes = boxesOf( line, names, random );
   return mishap;
}

}  // namespace

std::vector<Mishap> readScript( std::string_view text, std::vector<std::string> const & names,
                                std::mt19937_64 & random ) {
   std::vector<Mishap> script;
   std::istringstream lines{ std::string( text ) };
   std::string line;
   for( int number = 1; std::getline( lines, line ); ++number ) {
      if( line.find_first_not_of( " \t\r" ) == std::string::npos ) continue;
      try {
         script.push_back( mishapFrom( line, names, random ) );
      } catch( BadDocument const & fault ) {
         throw BadScript( "line " + std::to_string( number ) + ": " + fault.what() );
      }
   }
   return script;
}

}  // namespace Fleet

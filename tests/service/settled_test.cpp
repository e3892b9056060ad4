// What a window says of its interfaces is the same whoever looks into it, and how often.
#include <array>
#include <random>

#include "Box.h"

namespace Service {
namespace {

using CellsOfAll = std::map<std::string, std::vector<double>>;

class WatchedLife final : public Box {
 public:
   // Two units that share an interface, under traffic that comes and goes, links that flap, profiles that change, and a
   // crash. `everySecond`: all windows are read then.
   CellsOfAll live( unsigned seed, bool everySecond );

 private:
   void TestBody() override {}
   void second( std::mt19937 & random );
   [[nodiscard]] CellsOfAll cells() const;
};

void WatchedLife::second( std::mt19937 & random ) {
   auto const oneIn = [&random]( unsigned n ) { return random() % n == 0; };
   std::string const name = std::array{ "up1", "up2", "down1" }[random() % 3];
   if( oneIn( 3 ) ) traffic( name, random() % 3 * 0.7 * Mbps, random() % 2 * 0.3 * Mbps );
   if( oneIn( 40 ) ) link( name, false );
   if( oneIn( 10 ) ) link( name, true );
   if( oneIn( 60 ) ) reload( fileWith( "", random() % 2 == 0 ? "up1, up2" : "up1, up2, down1" ) );
   if( oneIn( 90 ) ) exit( "rack" );
   if( oneIn( 40 ) ) enter( "rack" );
   if( oneIn( 150 ) ) {
      crash();
      begin( fileWith( "" ) );
   }
   advance( 1 );
}

CellsOfAll WatchedLife::cells() const {
   CellsOfAll found;
   auto const windows = database_->getEntity<Evidence::WindowDir const>( Maintenance::Path::windows );
   for( auto [key, window] : windows->windowIteratorConst() ) {
      for( auto [intf, record] : window->intfIteratorConst() ) {
         auto & numbers = found[key.str() + " " + record->name()];
         for( auto const & c : record->rates() )
            numbers.insert( numbers.end(),
                            { c.from, c.to, c.inLow, c.inMean, c.inHigh, c.outLow, c.outMean, c.outHigh } );
      }
   }
   return found;
}

CellsOfAll WatchedLife::live( unsigned seed, bool everySecond ) {
   std::mt19937 random( seed );
   for( char const * const name : { "up1", "up2", "down1" } ) link( name, true );
   begin( fileWith( "" ) );
   enter( "fabric" );
   enter( "rack" );
   CellsOfAll found;
   constexpr int seconds = 600;
   for( int s = 1; s <= seconds; ++s ) {
      second( random );
      if( everySecond || s == seconds ) found = cells();
   }
   return found;
}

TEST( Windows, areTheSameHoweverOftenTheyAreRead ) {
   for( unsigned seed = 1; seed <= 3; ++seed ) {
      auto const read = WatchedLife().live( seed, true );
      EXPECT_EQ( WatchedLife().live( seed, false ), read ) << "seed " << seed;
      std::size_t numbers = 0;
      for( auto const & [intf, all] : read ) numbers += all.size();
      EXPECT_GT( numbers, 8 * 60u );
   }
}

}  // namespace
}  // namespace Service

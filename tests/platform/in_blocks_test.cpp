// Objects that stand side by side are made and freed as any others.
#include "kel/InBlocks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "kel/Ptr.h"

namespace Kel {
namespace {

struct alignas( 64 ) Seat final : PtrInterface, InBlocks<Seat> {
   explicit Seat( int n ) : number( n ) {}
   int number;
};

TEST( InBlocks, objectsKeepWhatTheyAreHoweverManyComeAndGo ) {
   std::mt19937 random( 3 );
   std::vector<Ptr<Seat>> seats;
   std::vector<int> numbers;
   for( int i = 0; i < 5000; ++i ) {
      // Down to none in between, so that all memory goes and comes again.
      bool const grows = i / 250 % 2 == 0;
      if( seats.empty() || random() % 4 < ( grows ? 3u : 1u ) ) {
         seats.emplace_back( new Seat( i ) );
         numbers.push_back( i );
         ASSERT_EQ( reinterpret_cast<uintptr_t>( seats.back().get() ) % 64, 0u );
      } else {
         auto const at = static_cast<std::ptrdiff_t>( random() % seats.size() );
         seats.erase( seats.begin() + at );
         numbers.erase( numbers.begin() + at );
      }
      ASSERT_TRUE( std::ranges::equal( seats, numbers, {}, []( auto const & s ) { return s->number; } ) );
   }
}

}  // namespace
}  // namespace Kel

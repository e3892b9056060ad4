// Counter values that may be missing: presence, differences across the wrap, printing, and the reflected form.
#include "brim/MaybeU63.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using Brim::MaybeU63;

constexpr uint64_t max63 = ( uint64_t{ 1 } << 63 ) - 1;
MaybeU63 const none = MaybeU63::none();

TEST( MaybeU63, aNewOneIsZeroAndNoValueIsNotZero ) {
   EXPECT_TRUE( MaybeU63().hasValue() );
   EXPECT_EQ( MaybeU63().value(), 0u );
   EXPECT_FALSE( none.hasValue() );
   EXPECT_NE( none, MaybeU63() );
   EXPECT_EQ( none, MaybeU63::none() );
   EXPECT_DEATH( static_cast<void>( none.value() ), "hasValue" );
}

TEST( MaybeU63, holdsTheLow63Bits ) {
   EXPECT_EQ( MaybeU63( max63 ).value(), max63 );
   EXPECT_EQ( MaybeU63( max63 + 1 ), MaybeU63( 0 ) );
   EXPECT_EQ( MaybeU63( ~uint64_t{ 0 } ).value(), max63 );
}

TEST( MaybeU63, differencesCountAcrossTheWrapAndNeedBothValues ) {
   struct {
      MaybeU63 now, before, moved;
   } const cases[] = {
      { 7, 5, 2 },         { 5, 5, 0 },       { max63, 0, max63 }, { 3, max63, 4 },
      { 5, 7, max63 - 1 }, { none, 5, none }, { 5, none, none },   { none, none, none },
   };
   for( auto const & c : cases ) EXPECT_EQ( c.now - c.before, c.moved ) << c.now << " - " << c.before;
}

TEST( MaybeU63, printsAndReflectsAsANumberOrNothing ) {
   std::ostringstream text;
   text << MaybeU63( max63 ) << ' ' << none << ' ' << MaybeU63( 0 );
   EXPECT_EQ( text.str(), "9223372036854775807 - 0" );

   using Traits = Kel::ValueTraits<MaybeU63>;
   for( MaybeU63 const m : { MaybeU63( 0 ), MaybeU63( max63 ), none } ) {
      EXPECT_EQ( Traits::fromValue( Traits::toValue( m ) ), m );
   }
   EXPECT_TRUE( Traits::toValue( none ).isNull() );
   EXPECT_THROW( Traits::fromValue( Kel::Value( max63 + 1 ) ), Kel::AttributeError );
}

}  // namespace

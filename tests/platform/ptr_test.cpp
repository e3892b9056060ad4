#include "kel/Ptr.h"

#include <gtest/gtest.h>

#include "kel/String8.h"

namespace {

struct Counted : Kel::PtrInterface {
   explicit Counted( int & alive ) : alive_( alive ) { ++alive_; }
   ~Counted() override { --alive_; }
   int & alive_;
};

struct Derived final : Counted {
   using Counted::Counted;
};

// Both ways of counting; the parameter is enableThreadSafePointers.
class PtrModes : public ::testing::TestWithParam<bool> {
 protected:
   PtrModes() { Kel::VFPtrInterface::enableThreadSafePointers = GetParam(); }
   ~PtrModes() override { Kel::VFPtrInterface::enableThreadSafePointers = false; }

   int alive_ = 0;
};

INSTANTIATE_TEST_SUITE_P( Plain, PtrModes, ::testing::Values( false ) );
INSTANTIATE_TEST_SUITE_P( Atomic, PtrModes, ::testing::Values( true ) );

TEST_P( PtrModes, theLastReferenceFrees ) {
   Kel::Ptr<Derived> first( new Derived( alive_ ) );
   {
      Kel::Ptr<Counted const> const second = first;
      EXPECT_EQ( first->getRefCount(), 2u );
      EXPECT_TRUE( second == first );
   }
   EXPECT_EQ( first->getRefCount(), 1u );
   Kel::Ptr<Derived> moved = std::move( first );
   EXPECT_FALSE( first );
   EXPECT_EQ( moved->getRefCount(), 1u );
   auto & self = moved;
   moved = self;
   EXPECT_EQ( moved->getRefCount(), 1u );
   EXPECT_EQ( alive_, 1 );
   moved = nullptr;
   EXPECT_EQ( alive_, 0 );
}

TEST_P( PtrModes, platformFlagsAreNoPartOfTheCount ) {
   Kel::Ptr<Derived> const object( new Derived( alive_ ) );
   object->hasNotificationActiveIs( false );
   object->kelDoZombieReactors( true );
   Kel::Ptr<Derived> const second = object;
   EXPECT_EQ( object->getRefCount(), 2u );
   EXPECT_FALSE( object->hasNotificationActive() );
   EXPECT_TRUE( object->kelZombieReactors() );
   object->hasNotificationActiveIs( true );
   object->kelDoZombieReactors( false );
   EXPECT_TRUE( object->kelDeliverable() );
   EXPECT_EQ( object->getRefCount(), 2u );
}

// A destructor may hand out references to its own object, as a machine's teardown does.
struct SelfReferring final : Counted {
   using Counted::Counted;
   ~SelfReferring() override { Kel::Ptr<SelfReferring> const again( this ); }
};

TEST_P( PtrModes, aDestructorMayReferToItsOwnObject ) {
   { Kel::Ptr<SelfReferring> const object( new SelfReferring( alive_ ) ); }
   EXPECT_EQ( alive_, 0 );
}

TEST( Ptr, assigningAMemberOfTheOldObjectIsSafe ) {
   struct Node final : Kel::PtrInterface {
      Kel::Ptr<Node> next;
   };
   Kel::Ptr<Node> head( new Node );
   head->next = new Node;
   head = head->next;
   EXPECT_EQ( head->getRefCount(), 1u );
}

TEST( Ptr, aFactoryThatYieldsNothingIsARangeError ) {
   try {
      static_cast<void>( Kel::validPtr( static_cast<Derived *>( nullptr ) ) );
      FAIL() << "a null object was taken";
   } catch( Kel::RangeError const & error ) {
      EXPECT_STREQ( error.what(), "null ValidPtr" );
   }
}

TEST( String8, comparesByTextAndSharesItsCopies ) {
   Kel::String8 const a( "uplink" );
   Kel::String8 const copy = a;
   EXPECT_EQ( a.c_str(), copy.c_str() );  // the same storage
   EXPECT_EQ( a, Kel::String8( "uplink" ) );
   EXPECT_NE( a, Kel::String8( "uplinks" ) );
   EXPECT_LT( Kel::String8( "a" ), Kel::String8( "b" ) );
   EXPECT_EQ( Kel::String8( "" ), Kel::String8() );
   EXPECT_TRUE( Kel::String8( "" ).empty() );
   EXPECT_EQ( std::hash<Kel::String8>{}( a ), std::hash<Kel::String8>{}( Kel::String8( "uplink" ) ) );
}

}  // namespace

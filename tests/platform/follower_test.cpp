// What a follower of a ring file tells, whatever happens to the file and its writer.
#include "brisklog/Follower.h"

#include "RingTest.h"
#include "brisklog/Reader.h"

namespace Test {

class FollowerTest : public RingTest {
 protected:
   void newRing() { Brisklog::ringIs( Brisklog::RingFile::create( path, smallest ) ); }

   // The texts of one call's messages, with what else it says before them; "nothing" for none.
   std::string next() {
      auto const news = follower.next();
      if( !news ) return "nothing";
      std::string text = news->newRing ? "new ring: " : "";
      if( news->missed > 0 ) text += "missed " + std::to_string( news->missed ) + ": ";
      if( news->damaged ) text += "damaged: ";
      for( Brisklog::Message const & message : news->messages ) text += message.text + " ";
      return text;
   }

   Brisklog::Follower follower{ path };
};

TEST_F( FollowerTest, everyMessageIsGivenOnceAcrossRestarts ) {
   EXPECT_EQ( next(), "nothing" );  // no file yet
   newRing();
   BRISKLOG( 3, "a" );
   BRISKLOG( 3, "b" );
   EXPECT_EQ( next(), "a b " );
   EXPECT_EQ( next(), "nothing" );
   BRISKLOG( 3, "c" );
   EXPECT_EQ( next(), "c " );
   BRISKLOG( 3, "last-words" );
   newRing();
   BRISKLOG( 3, "d" );
   EXPECT_EQ( next(), "last-words " );
   EXPECT_EQ( next(), "new ring: d " );
   EXPECT_EQ( next(), "nothing" );
   std::filesystem::remove( path );
   BRISKLOG( 3, "e" );  // the writer still has the file that was removed
   EXPECT_EQ( next(), "e " );
   EXPECT_EQ( next(), "nothing" );
   newRing();
   EXPECT_EQ( next(), "new ring: " );
}

TEST_F( FollowerTest, whatWasOverwrittenMeanwhileIsCounted ) {
   newRing();
   BRISKLOG( 3, "first" );
   EXPECT_EQ( next(), "first " );
   for( uint64_t i = 0; i < 5000; ++i ) BRISKLOG( 3, "{}", i );  // 32 bytes each, more than the ring has
   auto const news = follower.next();
   ASSERT_TRUE( news );
   EXPECT_EQ( news->missed + news->messages.size(), 5000u );
   EXPECT_EQ( news->messages.front().text, std::to_string( news->missed ) );
   EXPECT_EQ( news->messages.back().text, "4999" );
   EXPECT_GT( news->missed, 0u );
}

TEST_F( FollowerTest, damageIsToldOnceAndNoRingIsRefused ) {
   newRing();
   BRISKLOG( 3, "whole" );
   BRISKLOG( 3, "broken" );
   std::string bytes = bytesOf( path );
   std::size_t const second = bytes.size() - smallest + sizeof( Brisklog::RecordHeader );
   bytes[second + offsetof( Brisklog::RecordHeader, level )] = 2;
   fileIs( path, bytes );
   EXPECT_EQ( next(), "damaged: whole " );
   BRISKLOG( 3, "behind" );
   EXPECT_EQ( next(), "" );
   fileIs( folder + "/none", "no ring" );
   std::filesystem::rename( folder + "/none", path );
   EXPECT_THROW( static_cast<void>( follower.next() ), Brisklog::RingError );
}

}  // namespace Test

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nats/nats.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>

#include "RealBroker.h"
#include "keys/NKey.h"
#include "keys/Subjects.h"

namespace Fleet {

using testing::ElementsAre;
using testing::HasSubstr;
using Letter = Broker::Letter;

// An end of the broker, and all that has come to it.
struct End {
   explicit End( NatsOptions options ) : broker( std::move( options ) ) {}

   bool up() {
      take();
      return broker.connected();
   }
   bool has( Letter const & letter ) {
      take();
      return std::ranges::find( letters, letter ) != letters.end();
   }
   bool troubled( std::string const & part ) {
      take();
      return broker.trouble().find( part ) != std::string::npos;
   }
   void take() {
      for( auto & letter : broker.arrived() ) letters.push_back( std::move( letter ) );
   }

   NatsBroker broker;
   std::vector<Letter> letters;
};

struct BrokerStory : testing::Test {
   [[nodiscard]] End as( std::string const & box, std::string const & keyOf ) {
      return End( real.optionsOf( box, keyOf ) );
   }
   // Everything that an end has sent until now has been taken by the broker.
   void settle( End & end, std::string const & box ) {
      ASSERT_TRUE( end.broker.put( statusKey( box ), "last" ) );
      ASSERT_TRUE( soon( [&] { return owner.has( { statusKey( box ), "last" } ); } ) );
   }

   RealBroker real{ { "a", "b" } };
   End owner{ real.optionsOf( "", "owner" ) };
};

TEST_F( BrokerStory, statusesComeToTheOwnerAndOrdersToTheirBoxAlsoWhenItIsLate ) {
   End a = as( "a", "a" );
   ASSERT_TRUE( soon( [&] { return owner.up() && a.up(); } ) ) << owner.broker.trouble() << real.log();
   EXPECT_EQ( owner.broker.trouble(), "" );
   ASSERT_TRUE( a.broker.put( "status.a", "well" ) );
   EXPECT_TRUE( soon( [&] { return owner.has( { "status.a", "well" } ); } ) );
   ASSERT_TRUE( owner.broker.put( "desired.a", "old" ) );
   ASSERT_TRUE( owner.broker.put( "desired.a", "for a" ) );
   ASSERT_TRUE( owner.broker.put( "desired.b", "for b" ) );
   EXPECT_TRUE( soon( [&] { return a.has( { "desired.a", "for a" } ); } ) );

   End b = as( "b", "b" );
   ASSERT_TRUE( soon( [&] { return b.up(); } ) );
   b.broker.read( "desired.b" );
   EXPECT_TRUE( soon( [&] { return b.has( { "desired.b", "for b" } ); } ) );
   owner.letters.clear();
   // One that is not there is no letter.
   for( char const * key : { "desired.nobody", "desired.a" } ) owner.broker.read( key );
   EXPECT_TRUE( soon( [&] { return owner.has( { "desired.a", "for a" } ); } ) );
   EXPECT_THAT( owner.letters, ElementsAre( Letter{ "desired.a", "for a" } ) );
}

TEST_F( BrokerStory, aBrokerThatWasAwayIsUsedAgainAndGetsNothingOfTheTimeBetween ) {
   std::vector<std::string> told;
   NatsOptions options = real.optionsOf( "a", "a" );
   options.told = [&]( std::string const & text ) { told.push_back( text ); };
   End a( options );
   ASSERT_TRUE( soon( [&] { return owner.up() && a.up(); } ) );
   ASSERT_TRUE( owner.broker.put( "desired.a", "lost" ) );

   real.kill();
   ASSERT_TRUE( soon( [&] { return !owner.up() && !a.up(); } ) );
   EXPECT_NE( a.broker.trouble(), "" );
   EXPECT_FALSE( a.broker.put( "status.a", "said to nobody" ) );
   real.start();
   ASSERT_TRUE( soon( [&] { return owner.up() && a.up(); } ) ) << owner.broker.trouble();
   EXPECT_THAT( told,
                ElementsAre( "connected to the broker", HasSubstr( "no connection" ), "connected to the broker" ) );

   owner.letters.clear();
   settle( a, "a" );
   EXPECT_THAT( owner.letters, ElementsAre( Letter{ "status.a", "last" } ) );
   // The bucket was made anew.
   ASSERT_TRUE( owner.broker.put( "desired.a", "new" ) );
   owner.broker.read( "desired.a" );
   EXPECT_TRUE( soon( [&] { return owner.has( { "desired.a", "new" } ); } ) );
}

TEST_F( BrokerStory, twoOwnersHearEachOther ) {
   End other = as( "", "owner" );
   ASSERT_TRUE( soon( [&] { return owner.up() && other.up(); } ) );
   ASSERT_TRUE( other.broker.put( "owner", "the other" ) );
   EXPECT_TRUE( soon( [&] { return owner.has( { "owner", "the other" } ); } ) ) << other.broker.trouble();
}

// Restarted between two looks, as by an operator, it is still seen to have been away.
TEST_F( BrokerStory, aConnectionMadeAnewBetweenTwoLooksIsSeenAsLost ) {
   ASSERT_TRUE( soon( [&] { return owner.up(); } ) );
   real.kill();
   real.start();
   End a = as( "a", "a" );
   ASSERT_TRUE( soon( [&] { return a.up(); } ) );
   std::this_thread::sleep_for( std::chrono::seconds( 1 ) );
   owner.take();
   EXPECT_FALSE( owner.broker.connected() );
   EXPECT_TRUE( soon( [&] { return owner.up(); } ) );
}

// As with a machine that is off: whoever looks for it has other things to do, be it new or known.
TEST_F( BrokerStory, aBrokerThatDoesNotAnswerHoldsUpNobodyForLong ) {
   using Clock = std::chrono::steady_clock;
   ASSERT_TRUE( soon( [&] { return owner.up(); } ) );
   real.answers( false );
   End a = as( "a", "a" );
   std::map<End *, double> held{ { &owner, 0 }, { &a, 0 } };
   for( auto const end = Clock::now() + std::chrono::seconds( 10 ); Clock::now() < end; ) {
      for( auto & [one, seconds] : held ) {
         auto const begin = Clock::now();
         one->take();
         seconds += std::chrono::duration<double>( Clock::now() - begin ).count();
      }
      std::this_thread::sleep_for( std::chrono::milliseconds( 20 ) );
   }
   for( auto const & [one, seconds] : held ) {
      EXPECT_FALSE( one->up() );
      EXPECT_LT( seconds, 3 ) << "of ten";
      EXPECT_THAT( one->broker.trouble(), HasSubstr( "imeout" ) );
   }
   real.answers( true );
   EXPECT_TRUE( soon( [&] { return owner.up() && a.up(); } ) ) << a.broker.trouble();
}

TEST_F( BrokerStory, aKeyIsGoodForItsOwnBoxAlone ) {
   End a = as( "a", "a" );
   End b = as( "b", "b" );
   ASSERT_TRUE( soon( [&] { return owner.up() && a.up() && b.up(); } ) );
   ASSERT_TRUE( owner.broker.put( "desired.b", "for b" ) );
   ASSERT_TRUE( soon( [&] { return b.has( { "desired.b", "for b" } ); } ) );

   ASSERT_TRUE( a.broker.put( "status.b", "forged" ) );
   EXPECT_TRUE( soon( [&] { return a.troubled( "status.b" ); } ) );
   ASSERT_TRUE( a.broker.put( "desired.b", "forged" ) );
   EXPECT_TRUE( soon( [&] { return a.troubled( "desired.b" ); } ) );
   ASSERT_TRUE( a.broker.put( "owner", "I am" ) );
   EXPECT_TRUE( soon( [&] { return a.troubled( "$KV.fleet.owner" ); } ) );
   a.broker.read( "desired.b" );
   EXPECT_TRUE( soon( [&] { return a.troubled( "DIRECT.GET.KV_fleet.$KV.fleet.desired.b" ); } ) );
   // With its own key in the place of the other, it does not hear what the other hears.
   End thief = as( "b", "a" );
   EXPECT_TRUE( soon( [&] { return thief.troubled( "Subscription" ); } ) ) << thief.broker.trouble();
   ASSERT_TRUE( owner.broker.put( "desired.b", "secret" ) );
   settle( a, "a" );
   thief.take();
   EXPECT_THAT( thief.letters, ElementsAre() );
   EXPECT_TRUE( soon( [&] { return b.has( { "desired.b", "secret" } ); } ) );
   EXPECT_THAT( b.letters, ElementsAre( Letter{ "desired.b", "for b" }, Letter{ "desired.b", "secret" } ) );
   EXPECT_THAT( owner.letters, ElementsAre( Letter{ "status.a", "last" } ) );
   EXPECT_THAT( real.log(), HasSubstr( "Publish Violation" ) );
   EXPECT_THAT( real.log(), HasSubstr( "Subscription Violation" ) );
}

// The broker sends an answer wherever the reader says, as the broker itself: also to where the bucket is removed.
TEST_F( BrokerStory, anAnswerToABoxReachesNothingOfTheBucket ) {
   End a = as( "a", "a" );
   ASSERT_TRUE( soon( [&] { return owner.up() && a.up(); } ) );
   ASSERT_TRUE( owner.broker.put( "desired.b", "for b" ) );
   NatsOptions const with = real.optionsOf( "a", "a" );
   natsOptions * options = nullptr;
   natsConnection * forger = nullptr;
   std::string const publicKey = NKey::fromFile( with.keyFile ).publicText();
   ASSERT_EQ( natsOptions_Create( &options ), NATS_OK );
   ASSERT_EQ( natsOptions_SetURL( options, with.url.c_str() ), NATS_OK );
   ASSERT_EQ( natsOptions_LoadCATrustedCertificates( options, with.caFile.c_str() ), NATS_OK );
   ASSERT_EQ( natsOptions_SetExpectedHostname( options, "broker" ), NATS_OK );
   ASSERT_EQ( natsOptions_SetNKeyFromSeed( options, publicKey.c_str(), with.keyFile.c_str() ), NATS_OK );
   ASSERT_EQ( natsConnection_Connect( &forger, options ), NATS_OK );
   // There are none for it, so the answer is empty, which is how the bucket is removed.
   ASSERT_EQ( natsConnection_PublishRequest( forger, readSubjectOf( "desired.a" ).c_str(),
                                             "$JS.API.STREAM.DELETE.KV_fleet", nullptr, 0 ),
              NATS_OK );
   ASSERT_EQ( natsConnection_Flush( forger ), NATS_OK );
   natsConnection_Destroy( forger );
   natsOptions_Destroy( options );
   settle( a, "a" );
   owner.broker.read( "desired.b" );
   EXPECT_TRUE( soon( [&] { return owner.has( { "desired.b", "for b" } ); } ) );
}

TEST_F( BrokerStory, nobodyGetsInWithoutAKeyThatHolds ) {
   End a = as( "a", "a" );
   ASSERT_TRUE( soon( [&] { return owner.up() && a.up(); } ) );
   std::string const seed = real.keys().seedFile( "a" );
   std::string const publicPart = seed.substr( 0, seed.size() - 2 ) + "pub";
   std::filesystem::copy( seed, seed + ".kept" );
   std::filesystem::copy( publicPart, publicPart + ".kept" );
   EXPECT_THROW( real.keys().revoke( { "a", "nosuch" } ), KeyFault );
   EXPECT_EQ( real.keys().entries()[1].name, "a" ) << "revoked, and nobody was told to reload the broker";
   real.keys().revoke( { "a" } );
   // Who has it keeps it.
   std::filesystem::rename( seed + ".kept", seed );
   real.reload();
   EXPECT_TRUE( soon( [&] { return !a.up() && a.troubled( "Authorization" ); } ) ) << a.broker.trouble();
   End nobody = as( "b", "" );
   EXPECT_TRUE( soon( [&] { return nobody.troubled( "Authorization" ); } ) ) << nobody.broker.trouble();
   EXPECT_THAT( real.log(), HasSubstr( "authentication error" ) );
   // It goes on trying, and is in again when it may.
   auto const refusals = [&] {
      std::string const log = real.log();
      std::size_t count = 0;
      for( std::size_t at = 0; ( at = log.find( "authentication error", at ) ) != std::string::npos; ++at ) ++count;
      return count;
   };
   EXPECT_TRUE( soon( [&] { return !a.up() && refusals() >= 8; } ) );
   EXPECT_FALSE( nobody.up() );
   std::filesystem::rename( publicPart + ".kept", publicPart );
   real.keys().add( { "c" } );
   real.reload();
   EXPECT_TRUE( soon( [&] { return a.up(); } ) ) << a.broker.trouble();
}

TEST_F( BrokerStory, whatCouldShowAKeyToOthersIsRefused ) {
   std::string const seed = real.keys().seedFile( "a" );
   auto const refusalOf = []( NatsOptions const & options ) -> std::string {
      try {
         NatsBroker const broker( options );
      } catch( std::runtime_error const & fault ) {
         return fault.what();
      }
      return "taken";
   };
   NatsOptions const good = real.optionsOf( "a", "a" );
   EXPECT_EQ( refusalOf( good ), "taken" );
   for( mode_t const mode : { 0640u, 0604u } ) {
      ASSERT_EQ( chmod( seed.c_str(), mode ), 0 );
      EXPECT_THAT( refusalOf( good ), HasSubstr( "open to others" ) );
   }
   NatsOptions clear = good;
   clear.keyFile.clear();
   clear.caFile.clear();
   EXPECT_THAT( refusalOf( clear ), HasSubstr( "CA file" ) );
   for( auto const & [url, refused] : { std::pair{ "nats://127.0.0.1", false },
                                        { "nats://localhost:4", false },
                                        { "nats://[::1]:4222", false },
                                        { "nats://10.0.0.1:4222", true },
                                        { "nats://broker", true },
                                        { "http://127.0.0.1", true } } ) {
      clear.url = url;
      EXPECT_EQ( refusalOf( clear ) != "taken", refused ) << url;
   }
   // Another's certificate will not do.
   NatsOptions other = good;
   ASSERT_EQ( chmod( seed.c_str(), 0600 ), 0 );
   other.serverName = "elsewhere";
   End a( other );
   EXPECT_TRUE( soon( [&] { return a.troubled( "SSL" ); } ) ) << a.broker.trouble();
   EXPECT_FALSE( a.up() );
}

// As the broker's own tools make and take them.
TEST( FleetKeys, keysAreInTheBrokersForm ) {
   NKey const key = NKey::made();
   EXPECT_EQ( key.seedText().substr( 0, 2 ), "SU" );
   EXPECT_EQ( key.seedText().size(), 58u );
   EXPECT_EQ( NKey::fromSeed( key.seedText() ).publicText(), key.publicText() );
   EXPECT_TRUE( isPublicKey( key.publicText() ) );
   std::string altered = key.publicText();
   altered[20] = altered[20] == 'A' ? 'B' : 'A';
   EXPECT_FALSE( isPublicKey( altered ) );
   EXPECT_THROW( static_cast<void>( NKey::fromSeed( key.publicText() ) ), KeyFault );
}

}  // namespace Fleet

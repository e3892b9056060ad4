#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ssl/context.hpp>
#include <optional>

#include "RealBroker.h"
#include "keys/Subjects.h"
#include "simulate/SimulatedBox.h"

namespace Fleet {

// A box as the simulation has it, and the owner as it is, with a second that passes with each turn.
struct SimulatedFleet : testing::Test {
   SimulatedFleet() {
      NatsOptions const asA = real.optionsOf( "a", "a" );
      tls.load_verify_file( asA.caFile );
      Address const address = Address::of( asA.url, asA.caFile );
      network.emplace( LightNetwork{ .io = io,
                                     .broker = { boost::asio::ip::make_address( address.host ), address.port },
                                     .tls = &tls,
                                     .serverName = "broker",
                                     .reconnectSeconds = 0.2,
                                     .random = random } );
      a.emplace( SimulatedBox::Plan{ "a", { "fabric" }, NKey::fromFile( asA.keyFile ), 15 }, *network, now );
   }
   // Goes on until a status says so.
   [[nodiscard]] bool says( std::function<bool( Status const & )> const & wanted ) {
      return soon( [&] {
         io.restart();
         io.poll();
         a->turn( now += 1, counts );
         for( auto const & letter : owner.arrived() ) heard = statusFrom( letter.text );
         return heard && wanted( *heard );
      } );
   }
   [[nodiscard]] bool saysUnit( std::function<bool( UnitStatus const & )> const & wanted ) {
      return says( [&]( Status const & status ) { return wanted( status.units.at( "fabric" ) ); } );
   }
   void order( uint64_t number, Want want ) {
      Desired desired{ .box = "a", .orders = {} };
      desired.orders["fabric"] = { .number = number, .want = want, .plan = "plan-1", .expires = now + 1e6 };
      ASSERT_TRUE( soon( [&] { return !owner.arrived().empty() || owner.connected(); } ) );
      ASSERT_TRUE( owner.put( desiredKey( "a" ), textOf( desired ) ) );
   }

   RealBroker real{ { "a" } };
   NatsBroker owner{ real.optionsOf( "", "owner" ) };
   std::mt19937_64 random{ 1 };
   boost::asio::io_context io;
   boost::asio::ssl::context tls{ boost::asio::ssl::context::tls_client };
   std::optional<LightNetwork> network;
   std::optional<SimulatedBox> a;
   double now = 1e9;
   SimulatedBox::Counts counts;
   std::optional<Status> heard;
};

TEST_F( SimulatedFleet, aBoxDrainsAsARealOneAlsoWhenItsAgentOrTheBrokerDies ) {
   ASSERT_TRUE( saysUnit( []( auto const & unit ) { return unit.state == UnitState::active; } ) ) << a->trouble();
   uint64_t const life = heard->life;
   a->faultBegins( Fault::trafficStays );
   order( 7, Want::maintenance );
   ASSERT_TRUE( saysUnit( []( auto const & unit ) { return unit.outcome == Outcome::carried; } ) );
   ASSERT_TRUE( saysUnit( []( auto const & unit ) { return unit.state == UnitState::entering && !unit.ready; } ) );
   double const since = heard->units.at( "fabric" ).since;

   a->faultBegins( Fault::dies );
   a->turn( now += 1, counts );
   EXPECT_FALSE( a->connected() );
   a->faultEnds( Fault::dies, now );
   ASSERT_TRUE( says(
      [&]( Status const & status ) { return status.life > life && status.units.at( "fabric" ).acknowledged == 7; } ) );
   // It knew what it had done, and did not begin it again.
   EXPECT_EQ( heard->units.at( "fabric" ).since, since );
   a->faultEnds( Fault::trafficStays, now );
   ASSERT_TRUE( saysUnit( []( auto const & unit ) { return unit.ready; } ) );

   real.kill();
   ASSERT_TRUE( soon( [&] {
      io.poll();
      static_cast<void>( owner.arrived() );
      return !a->connected() && !owner.connected();
   } ) );
   heard.reset();
   real.start();
   EXPECT_TRUE( saysUnit( []( auto const & unit ) { return unit.ready; } ) ) << a->trouble();
   order( 8, Want::service );
   EXPECT_TRUE( saysUnit( []( auto const & unit ) { return unit.state == UnitState::active; } ) );
}

TEST_F( SimulatedFleet, orderOfTheTimeInWhichABoxWasCutOffIsReadWhenItIsBack ) {
   ASSERT_TRUE( says( []( auto const & ) { return true; } ) );
   a->faultBegins( Fault::silent );
   EXPECT_FALSE( a->connected() );
   order( 9, Want::maintenance );
   heard.reset();
   a->faultEnds( Fault::silent, now );
   EXPECT_TRUE( saysUnit( []( auto const & unit ) { return unit.acknowledged == 9; } ) );
   a->faultBegins( Fault::maintdOff );
   EXPECT_TRUE( says( []( auto const & status ) { return !status.trouble.empty(); } ) );
}

TEST( FleetProtocol, messagesAreTheSameWhereverTheirBytesAreParted ) {
   std::string const text =
      "INFO {\"nonce\":\"x\"}\r\nPING\r\nMSG $KV.fleet.desired.a 1 5\r\na\r\nbc\r\n"
      "HMSG inbox 2 answer 33 36\r\nNATS/1.0\r\nNats-Subject: $KV.b\r\n\r\nyes\r\n-ERR 'no'\r\nPONG\r\n";
   using enum ProtocolReader::Message::Kind;
   for( std::size_t parted = 0; parted <= text.size(); ++parted ) {
      ProtocolReader reader;
      auto messages = reader.take( text.substr( 0, parted ) );
      for( auto & message : reader.take( text.substr( parted ) ) ) messages.push_back( message );
      ASSERT_EQ( messages.size(), 6u ) << parted;
      EXPECT_EQ( messages[0].text, "{\"nonce\":\"x\"}" );
      EXPECT_EQ( messages[2].text, "a\r\nbc" );
      EXPECT_EQ( messages[2].subject, "$KV.fleet.desired.a" );
      EXPECT_EQ( messages[3].text, "yes" );
      EXPECT_EQ( headerOf( messages[3], "Nats-Subject" ), "$KV.b" );
      EXPECT_EQ( messages[4].text, "'no'" );
      EXPECT_EQ( messages[5].kind, pong );
   }
   for( char const * wrong :
        { "HTTP/1.1 400\r\n", "MSG a 1 x\r\n", "MSG a 1\r\n", "HMSG a 1 9 3\r\n", "MSG a 1 99999999999\r\n" } ) {
      EXPECT_THROW( static_cast<void>( ProtocolReader().take( wrong ) ), ProtocolFault ) << wrong;
   }
}

TEST( FleetScript, linesNameBoxesAndSharesOrSayWhatIsWrong ) {
   std::vector<std::string> const names{ "a", "b", "c", "d" };
   std::mt19937_64 random{ 1 };
   auto const script = readScript(
      "{\"at\": 5, \"boxes\": \"50%\", \"fault\": \"dies\", \"for\": 2}\n\n"
      "{\"at\": 6, \"boxes\": [\"d\", \"b\"], \"fault\": \"silent\"}\n",
      names, random );
   ASSERT_EQ( script.size(), 2u );
   EXPECT_EQ( script[0].boxes.size(), 2u );
   EXPECT_EQ( script[0].until, 7 );
   EXPECT_THAT( script[1].boxes, testing::ElementsAre( 3u, 1u ) );
   for( char const * wrong :
        { "{\"at\": 5, \"boxes\": \"e\", \"fault\": \"dies\"}", "{\"at\": 5, \"boxes\": \"0%\", \"fault\": \"dies\"}",
          "{\"at\": 5, \"boxes\": \"a\", \"fault\": \"sleeps\"}", "{\"boxes\": []}", "at 5" } ) {
      EXPECT_THROW( static_cast<void>( readScript( wrong, names, random ) ), BadScript ) << wrong;
   }
}

}  // namespace Fleet

// Watching records: a snapshot, then each change, from a history that all who watch share.
#include <gmock/gmock.h>

#include <boost/json.hpp>
#include <random>

#include "ApiBox.h"
#include "streams/ChangeReader.h"

namespace Host {
namespace {

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using WatchedLines = std::vector<std::string>;

class WatchTest : public ::testing::Test, protected ApiBox {
 protected:
   void groupIs( std::string const & name ) {
      loop_.turn( [&] { state_.groupStatus->statusIs( Kel::String8( name ) ); } );
   }
   void groupDel( std::string const & name ) {
      loop_.turn( [&] { state_.groupStatus->statusDel( Kel::String8( name ) ); } );
   }
   void memberIs( std::string const & group, char const * intf, bool there ) {
      loop_.turn( [&] {
         auto const status = state_.groupStatus->status( Kel::String8( group ) );
         there ? status->intfIs( Lumo::IntfId( intf ), true ) : status->intfDel( Lumo::IntfId( intf ) );
      } );
   }
   void secondsPass( double seconds ) { loop_.runUntil( *clock_, clock_->now() + seconds ); }

   std::shared_ptr<HttpStream> watched( std::string const & target ) {
      auto const answer = ask( "GET", "/v1/watch" + target );
      EXPECT_EQ( answer.status, 200u ) << answer.body;
      return answer.stream;
   }
   // What it says next, without times: "7 change [\"a\",\"b\"] null".
   WatchedLines said( HttpStream & stream, std::size_t bytes = 16 * 1024 ) {
      std::string text;
      loop_.turn( [&] {
         for( std::string piece; !( piece = stream.next( bytes ) ).empty(); ) text += piece;
      } );
      WatchedLines lines;
      for( std::size_t end = 0; ( end = text.find( '\n' ) ) != std::string::npos; text.erase( 0, end + 1 ) ) {
         auto const line = boost::json::parse( text.substr( 0, end ) ).as_object();
         std::string said = boost::json::serialize( line.at( "seq" ) );
         for( char const * kind : { "snapshot", "change", "end", "value", "resumeAfter" } ) {
            if( !line.contains( kind ) ) continue;
            bool const named = line.at( kind ).is_array() || std::string_view( kind ) == "end";
            said += ( named ? std::string( " " ) + kind : "" ) + " " + boost::json::serialize( line.at( kind ) );
         }
         lines.push_back( said );
      }
      EXPECT_EQ( text, "" ) << "half a line";
      return lines;
   }
   unsigned statusOf( std::string const & target ) { return ask( "GET", "/v1/watch" + target ).status; }
};

TEST_F( WatchTest, beginsWithWhatIsThereAndGoesOnAfterWhatWasRead ) {
   groupIs( "before" );
   auto const all = watched( "/group/status/interface" );
   int told = 0;
   all->onMore( [&] { ++told; } );
   EXPECT_THAT( said( *all, 7 ),
                ElementsAre( "1 snapshot [\"group/status/interface\"] {\"status\":{\"before\":{\"intf\":{}}}}" ) );
   EXPECT_EQ( told, 0 );
   loop_.turn( [&] {
      state_.groupStatus->statusIs( Kel::String8( "g" ) )->intfIs( Lumo::IntfId( "Ethernet1/1" ), true );
      EXPECT_EQ( told, 1 );
   } );
   groupDel( "g" );
   EXPECT_EQ( told, 1 );
   WatchedLines const changes{ "2 change [\"group/status/interface\",\"status\",\"g\"] {\"intf\":{}}",
                               "3 change [\"group/status/interface\",\"status\",\"g\",\"intf\",\"Ethernet1/1\"] true",
                               "4 change [\"group/status/interface\",\"status\",\"g\"] null" };
   EXPECT_EQ( said( *all ), changes );
   EXPECT_EQ( said( *watched( "/group/status/interface?after=2" ) ),
              WatchedLines( changes.begin() + 1, changes.end() ) );
   EXPECT_THAT( said( *watched( "/group/status/interface?after=4" ) ), IsEmpty() );
   // Of the rest nobody knows what has changed since.
   EXPECT_EQ( statusOf( "?after=4" ), 410u );
   all->stop();
   EXPECT_THAT( said( *all ), ElementsAre( ContainsRegex( "^([0-9]+) end \"stopping\" [0-9]+$" ) ) );
   EXPECT_TRUE( all->ended() );
}

TEST_F( WatchTest, ofAnEntryHearsOfItsGroupAndNotOfItsNeighbours ) {
   groupIs( "g" );
   auto const one = watched( "/group/status/interface/status/g/intf/Ethernet1%2F1" );
   EXPECT_THAT( said( *one ), ElementsAre( HasSubstr( "\"intf\",\"Ethernet1/1\"] null" ) ) );
   memberIs( "g", "Ethernet1/11", true );
   memberIs( "g", "Ethernet1/1", true );
   groupIs( "g2" );
   EXPECT_THAT( said( *one ), ElementsAre( HasSubstr( "\"Ethernet1/1\"] true" ) ) );
   groupDel( "g" );
   EXPECT_THAT( said( *one ), ElementsAre( "5 change [\"group/status/interface\",\"status\",\"g\"] null" ) );
}

TEST_F( WatchTest, refusesWhatItCannotGoOnWith ) {
   std::string const path = "/group/status/interface";
   auto const watching = watched( path );
   for( int i = 0; i < 3; ++i ) groupIs( std::to_string( i ) );
   std::map<std::string, unsigned> const answers = {
      { "?after=4", 200 },
      { "?after=1", 200 },
      { "?after=0", 410 },
      { "?after=5", 410 },
      { "?after=-1", 400 },
      { "?after=", 400 },
      { "?after", 400 },
      { "?after=1e0", 400 },
      { "?after=0x1", 400 },
      { "?after=1%20", 400 },
      { "?after=1&after=1", 400 },
      { "?before=1", 400 },
      { "?after=18446744073709551615", 410 },
      { "?after=18446744073709551616", 400 },
   };
   for( auto const & [query, status] : answers ) EXPECT_EQ( statusOf( path + query ), status ) << query;
   EXPECT_EQ( statusOf( "/nowhere" ), 404u );
   EXPECT_EQ( statusOf( path + "/wrong" ), 404u );
   EXPECT_EQ( ask( "POST", "/v1/watch" + path ).status, 405u );
   auto const gone = boost::json::parse( ask( "GET", "/v1/watch/maintenance/unit/status?after=2" ).body );
   // That directory is followed only since now.
   EXPECT_EQ( gone.at( "oldest" ).to_number<uint64_t>(), 6u );
   EXPECT_THAT( gone.at( "error" ).as_string().c_str(), HasSubstr( "after 2 " ) );
}

TEST_F( WatchTest, isFollowedForAWhileAfterTheLastHasGone ) {
   auto watching = watched( "/group/status/interface" );
   groupIs( "a" );
   watching.reset();
   secondsPass( 50 );
   groupIs( "b" );
   EXPECT_THAT( said( *watched( "/group/status/interface?after=1" ) ).size(), 2u );
   secondsPass( 61 );
   groupIs( "c" );
   EXPECT_EQ( statusOf( "/group/status/interface?after=3" ), 410u );
   EXPECT_THAT( said( *watched( "/group/status/interface" ) ), ElementsAre( StartsWith( "4 snapshot" ) ) );
}

TEST_F( WatchTest, numbersGoOnBehindThoseOfAnEarlierAgent ) {
   Dovra::EntityManager database;
   uint64_t last = 0;
   for( int start = 0; start < 3; ++start ) {
      loop_.turn( [&] {
         Service::SequenceNumbers numbers( database, "test", 10 );
         for( int i = 0; i < 25; ++i ) {
            uint64_t const number = numbers.next();
            // One after the other within one agent.
            EXPECT_TRUE( i == 0 ? number > last : number == last + 1 ) << number;
            last = number;
            // As the store has it, also where the block that was reserved last is not on disk yet.
            EXPECT_GE( Service::sequenceDir( database )->block( Kel::Name( "test" ) )->reserved(), number + 4 );
         }
      } );
   }
}

// Readers of some paths, each at a pace of its own, against a plain list of all changes.
class ChangesTest : public WatchTest {
 protected:
   struct Model {
      std::unique_ptr<ChangeReader> reader;
      std::string top;  // as JSON
      WatchedLines expected;
      WatchedLines read;
   };
   void changeIs( std::string const & path, std::string const & value ) {
      for( Model & each : models_ ) {
         bool const below = ( path + "," ).starts_with( each.top + "," ) || each.top.empty();
         if( below || ( each.top + "," ).starts_with( path + "," ) ) each.expected.push_back( path + value );
      }
   }
   void readSome( Model & model, std::size_t bytes ) {
      std::string text;
      loop_.turn( [&] { text = model.reader->next( bytes ); } );
      EXPECT_LT( text.size(), bytes + 300 );
      for( std::size_t end = 0; ( end = text.find( '\n' ) ) != std::string::npos; text.erase( 0, end + 1 ) ) {
         auto const line = boost::json::parse( text.substr( 0, end ) );
         std::string const path = boost::json::serialize( line.at( "change" ) );
         model.read.push_back( path.substr( 1, path.size() - 2 ) + boost::json::serialize( line.at( "value" ) ) );
      }
   }
   std::vector<Model> models_;
};

TEST_F( ChangesTest, areReadByAllAtTheirOwnPaceAsOftenAsTheyAreKept ) {
   unsigned const seed = std::random_device()();
   std::mt19937 random( seed );
   SCOPED_TRACE( seed );
   auto const upTo = [&]( unsigned n ) { return std::uniform_int_distribution<unsigned>( 0, n )( random ); };
   ChangeHistory history( *database_,
                          { .bytes = 10'000, .unreadBytes = 40'000, .turnBytes = 40'000, .blockBytes = 4'000 } );
   std::string const mount = "group/status/interface";
   std::vector<Dovra::StateComponents> const paths{
      {}, { mount }, { mount, "status" }, { mount, "status", "0" }, { mount, "status", "1", "intf", "Ethernet1" } };
   loop_.turn( [&] {
      for( auto const & path : paths ) {
         std::string top = boost::json::serialize( boost::json::value_from( path ) );
         models_.push_back(
            { std::make_unique<ChangeReader>( history, path ), top.substr( 1, top.size() - 2 ), {}, {} } );
      }
   } );
   std::string const dir = "\"group/status/interface\",\"status\",";
   std::size_t lost = 0;
   for( int i = 0; i < 3'000; ++i ) {
      std::string const group = std::to_string( upTo( 2 ) ), quoted = "\"" + group + "\"";
      std::string const intf = "Ethernet" + std::to_string( upTo( 3 ) );
      auto const status = state_.groupStatus->status( Kel::String8( group ) );
      if( !status ) {
         groupIs( group );
         changeIs( dir + quoted, "{\"intf\":{}}" );
      } else if( upTo( 9 ) == 0 ) {
         groupDel( group );
         changeIs( dir + quoted, "null" );
      } else {
         bool const there = !status->intf( Lumo::IntfId( intf ) );
         memberIs( group, intf.c_str(), there );
         changeIs( dir + quoted + ",\"intf\",\"" + intf + "\"", there ? "true" : "null" );
      }
      // The last block may have twice the room that it needs.
      EXPECT_LE( history.bytes(), 50'000u );
      Model & model = models_[upTo( static_cast<unsigned>( models_.size() - 1 ) )];
      // Now and then one sleeps until its place may be gone.
      if( upTo( 60 ) != 0 && i % 1000 > 400 ) continue;
      if( model.reader->lost() ) {
         ++lost;
         EXPECT_FALSE( model.reader->placeIs( model.reader->place() ) );
         EXPECT_TRUE( model.reader->placeIs( history.last() ) );
         model.read = model.expected;
      } else {
         readSome( model, 1 + upTo( 2'000 ) );
      }
   }
   EXPECT_GT( lost, 0u );
   for( Model & model : models_ ) {
      if( model.reader->lost() ) continue;
      while( model.read.size() < model.expected.size() ) {
         auto const before = model.read.size();
         readSome( model, 5'000 );
         ASSERT_GT( model.read.size(), before );
      }
      EXPECT_EQ( model.read, model.expected ) << model.top;
   }
   models_.clear();
}

}  // namespace
}  // namespace Host

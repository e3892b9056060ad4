// The live view, without a terminal: what it makes of answers and keys.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>

#include "Answers.h"
#include "watch/Batch.h"
#include "watch/Columns.h"
#include "watch/View.h"

namespace Cli::Watch {
namespace {

using Service::AccountAnswer;
using Service::UnitAnswer;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr Look unicode{ true };
constexpr Look ascii{ false };

AccountAnswer accountIn( char const * name, char const * verdict, std::optional<double> out = {},
                         std::optional<double> needed = {} ) {
   AccountAnswer answer;
   answer.interface = name;
   answer.verdict = verdict;
   answer.since = 990;
   answer.settled = needed == 0;
   answer.stillNeededSeconds = needed;
   answer.outBitsRate = out;
   if( out ) answer.inBitsRate = 0;
   answer.thresholdBitsRate = 100e3;
   answer.loadIntervalSeconds = 30;
   return answer;
}

UnitAnswer entering( std::vector<AccountAnswer> interfaces ) {
   UnitAnswer answer;
   answer.unit = "fabric";
   answer.state = "entering";
   answer.stage = "verify";
   answer.generation = 3;
   answer.since = 940;
   answer.requestedBy = "alice";
   answer.now = 1000;
   answer.interfaces = std::move( interfaces );
   return answer;
}

// Of every standing, with names that nobody would choose.
UnitAnswer mixed() {
   return entering(
      { accountIn( "eth10", "quiet", 40e3, 18 ), accountIn( "eth2", "quiet", 0, 0 ), accountIn( "up1", "loud", 100e3 ),
        accountIn( "up2", "loud", 4e6 ),
        accountIn( "\u4e0a\u884c\u94fe\u8def-e\u0301\u0301\u0301-\u4e0a\u884c\u94fe\u8def\u4e0a\u884c", "waiting" ),
        accountIn( "eth1", "quiet", 0, 0 ), accountIn( "bad\x1b[2J\n", "unwatched" ),
        accountIn( "eth3", "quiet", 30e3, 25 ), accountIn( "eth9", "left out", {}, 0 ) } );
}

class WatchStory : public ::testing::Test {
 protected:
   // Widths of characters are those of the locale.
   void SetUp() override { ASSERT_NE( std::setlocale( LC_CTYPE, "C.UTF-8" ), nullptr ); }
   void TearDown() override { std::setlocale( LC_CTYPE, "C" ); }

   void answers( UnitAnswer const & unit ) { scene.answerIs( received( unit ), 1 ); }
   void press( std::string const & keys ) {
      for( char const key : keys ) view.pressed( { Key::text, std::string( 1, key ) } );
   }
   [[nodiscard]] std::string shown( Size size = { 80, 24 } ) {
      std::string all;
      for( Line const & line : view.frame( size, circumstances ).lines ) all += line.text() + "\n";
      return all;
   }

   Scene scene{ unicode };
   View view{ scene, unicode };
   Circumstances circumstances{ "", "14:05:09", 1, "", 0 };
};

std::vector<std::string> namesIn( Scene const & scene, Selection const & selection ) {
   std::vector<std::string> names;
   for( Intf const * const intf : selected( scene.units().front(), selection ) ) names.push_back( intf->name );
   return names;
}

TEST_F( WatchStory, whatHoldsTheUnitUpComesFirst ) {
   answers( mixed() );
   auto const names = namesIn( scene, {} );
   ASSERT_EQ( names.size(), 9u );
   EXPECT_THAT( std::vector( names.begin(), names.begin() + 3 ), ElementsAre( "up2", "up1", "bad\\u001b[2J\\n" ) );
   EXPECT_THAT( std::vector( names.begin() + 4, names.end() ), ElementsAre( "eth3", "eth10", "eth1", "eth2", "eth9" ) );
   EXPECT_THAT( namesIn( scene, { .order = Order::name, .pattern = "ETH" } ),
                ElementsAre( "eth1", "eth2", "eth3", "eth9", "eth10" ) );
   EXPECT_THAT( namesIn( scene, { .reversed = true, .pattern = "loud" } ), ElementsAre( "up1", "up2" ) );
   EXPECT_THAT( namesIn( scene, { .order = Order::needed, .show = Show::proving } ), ElementsAre( "eth3", "eth10" ) );
}

TEST( WatchTexts, areMeasuredInColumns ) {
   std::setlocale( LC_CTYPE, "C.UTF-8" );
   EXPECT_EQ( columnsOf( "\u4e0a\u884c" ), 4 );
   EXPECT_EQ( columnsOf( "e\u0301a" ), 2 );
   // Half of a wide character is not shown, and an accent stays with its letter.
   EXPECT_EQ( cut( "\u4e0a\u884c\u94fe", 4, unicode ), "\u4e0a\u2026" );
   EXPECT_EQ( cutMiddle( "xe\u0301abcde\u0301y", 5, unicode ), "xe\u0301\u2026e\u0301y" );
   EXPECT_EQ( cutMiddle( "Ethernet1/1/14", 9, ascii ), "Ethe~1/14" );
   EXPECT_EQ( padded( "\u4e0a", 4 ), "\u4e0a  " );
   // A mark with nothing before it, and what is no character.
   EXPECT_EQ( fit( "\u0301a\xff", unicode ), "\\xcc\\x81a\\xff" );
   EXPECT_EQ( fit( "\u00e4", ascii ), "\\xc3\\xa4" );
   std::setlocale( LC_CTYPE, "C" );
}

TEST( WatchTexts, sayHowFarItIs ) {
   Intf intf;
   intf.standing = Standing::loud;
   intf.threshold = 100e3;
   EXPECT_EQ( distanceText( intf ), "-" );
   struct Case {
      double rate;
      char const * text;
   };
   for( auto const & [rate, text] :
        { Case{ 0, "0 %" }, Case{ 1, "<1 %" }, Case{ 40e3, "40 %" }, Case{ 99999, "99 %" }, Case{ 100e3, "1x over" },
          Case{ 320e3, "3.2x over" }, Case{ 4e6, "40x over" }, Case{ 1e12, ">999x" } } ) {
      intf.out = rate;
      EXPECT_EQ( distanceText( intf ), text ) << rate;
   }
   EXPECT_EQ( needsText( intf ), "-" );
   intf.pace = "stuck";
   EXPECT_EQ( needsText( intf ), "stuck" );
   intf.quietIn = 39.2;
   EXPECT_EQ( needsText( intf ), "~40 s" );
}

TEST( WatchSparks, haveTheThresholdInTheMiddleAndGapsWhereNothingWasMeasured ) {
   Series series;
   series.pastIs( { { 0, 10, 0, 0 }, { 10, 20, 0, 99e3 }, { 30, 40, 100e3, 0 }, { 40, 50, 0, 9e6 } } );
   // What is read again later is neither drawn nor kept twice.
   series.cellIs( { 45, 60, 0, 9e6 } );
   series.cellIs( { 60, 61, 0, 9e6 } );
   EXPECT_EQ( series.cells().size(), 4u );
   Line line;
   addSpark( line, highest( series.cells(), Direction::either, lastColumns( 59.5, 60, 6 ) ), 100e3, unicode );
   EXPECT_EQ( line.text(), "\u2581\u2584 \u2585\u2588\u2588" );
   EXPECT_EQ( line.spans.back().style, Style::loud );
   Line out;
   addSpark( out, highest( series.cells(), Direction::out, lastColumns( 59.5, 60, 6 ) ), 100e3, ascii );
   EXPECT_EQ( out.text(), "_= _##" );
}

TEST_F( WatchStory, aTimeWithoutAnswersIsAGap ) {
   auto unit = entering( { accountIn( "up1", "loud", 4e6 ) } );
   answers( unit );
   unit.now = 1060;
   answers( unit );
   auto const & cells = scene.intf( "fabric", "up1" )->series->cells();
   ASSERT_EQ( cells.size(), 2u );
   EXPECT_EQ( cells[0].to, 1000 );
   EXPECT_EQ( cells[1].from, 1058 );
}

// Every line fills its row and none is longer, whatever is shown and however small the terminal is.
TEST_F( WatchStory, everyPictureFitsItsTerminal ) {
   auto unit = mixed();
   unit.without = { "eth9" };
   answers( unit );
   Service::WindowAnswer window;
   window.interfaces.resize( 1 );
   window.interfaces[0].events = { { 950, "break", "a loud reading" }, { 960, "spike", "out 4 Mbps" } };
   window.interfaces[0].rates = { { 940, 950, 0, 0, 0, 1e6, 2e6, 3e6 } };
   for( std::string const & keys : std::vector<std::string>{ "", "?", "/u", "vvv" } ) {
      View each( scene, unicode );
      for( char const key : keys ) each.pressed( { Key::text, std::string( 1, key ) } );
      for( bool const history : { false, true } ) {
         if( history ) each.pressed( { Key::enter, "" } );
         if( history ) each.windowIs( received( window ) );
         for( int columns = 1; columns <= 210; columns += columns < 90 ? 1 : 10 ) {
            for( int const rows : { 3, 5, 10, 24, 50 } ) {
               Frame const frame = each.frame( { columns, rows }, circumstances );
               ASSERT_EQ( frame.lines.size(), static_cast<std::size_t>( rows ) ) << keys << columns;
               for( Line const & line : frame.lines )
                  ASSERT_TRUE( line.spans.empty() || line.columns() == columns ) << keys << columns << line.text();
            }
         }
      }
   }
}

TEST_F( WatchStory, narrowTerminalsShowWhatMatters ) {
   answers( mixed() );
   std::string const narrow = shown( { 40, 10 } );
   EXPECT_THAT( narrow, HasSubstr( "fabric  entering  NOT READY" ) );
   EXPECT_THAT( narrow, HasSubstr( "\u25b2 up2        loud       40x over       -\n" ) );
   std::string const wide = shown( { 200, 24 } );
   EXPECT_THAT( wide, HasSubstr( "3 of 9 settled" ) ) << "eth1, eth2 and what was left out";
}

TEST_F( WatchStory, theCursorGoesWithItsInterfaceButTheTopStaysTheTop ) {
   answers( mixed() );
   view.pressed( { Key::enter, "" } );
   EXPECT_EQ( view.historyOf(), ListView::Place( "fabric", "up2" ) );
   view.pressed( { Key::escape, "" } );
   view.pressed( { Key::down, "" } );
   auto unit = mixed();
   unit.interfaces[2].outBitsRate = 9e6;  // up1 comes to the top
   answers( unit );
   view.pressed( { Key::enter, "" } );
   EXPECT_EQ( view.historyOf(), ListView::Place( "fabric", "up1" ) );
}

TEST_F( WatchStory, aThousandInterfacesAreWalkedThrough ) {
   std::vector<AccountAnswer> many;
   std::vector<std::string> names;
   for( int i = 0; i < 1000; ++i ) names.push_back( "eth" + std::to_string( i ) );
   for( std::string const & name : names ) many.push_back( accountIn( name.c_str(), "quiet", 0, 0 ) );
   answers( entering( many ) );
   view.pressed( { Key::end, "" } );
   EXPECT_THAT( shown(), HasSubstr( "1000 of 1000\n" ) );
   EXPECT_THAT( shown(), HasSubstr( " eth999 " ) );
   EXPECT_THAT( shown(), HasSubstr( "fabric  entering" ) ) << "its head stays in sight";
   view.pressed( { Key::pageUp, "" } );
   EXPECT_THAT( shown(), Not( HasSubstr( "1000 of 1000\n" ) ) );
   press( "/eth77" );
   EXPECT_THAT( shown(), HasSubstr( " eth779 " ) );
   EXPECT_THAT( shown(), Not( HasSubstr( " eth999 " ) ) );
   view.pressed( { Key::escape, "" } );
   EXPECT_FALSE( view.left() ) << "a letter of a pattern is no key";
   press( "q" );
   EXPECT_TRUE( view.left() );
}

// What is out of date must not look like what is now.
TEST_F( WatchStory, withoutAnswersNothingLooksLive ) {
   answers( mixed() );
   circumstances.trouble = "maintd is not running";
   circumstances.silentSeconds = 12;
   EXPECT_THAT( shown(), HasSubstr( "NO ANSWER for 12 s" ) );
   auto const frame = view.frame( { 80, 24 }, circumstances );
   EXPECT_EQ( frame.lines[1].spans.front().style, Style::alarm );
   for( std::size_t i = 2; i + 1 < frame.lines.size(); ++i ) {
      for( Span const & span : frame.lines[i].spans ) EXPECT_EQ( span.style, Style::faint ) << span.text;
   }
}

TEST_F( WatchStory, theHistoryShowsWhatTheWindowKeeps ) {
   answers( entering( { accountIn( "up1", "loud", 4e6 ), accountIn( "up2", "loud", 5e6 ) } ) );
   Service::WindowAnswer window;
   window.asOf = 1000;
   window.requested = 940;
   window.interfaces.resize( 2 );
   window.interfaces[0].interface = "up1";
   window.interfaces[1].interface = "up2";
   window.interfaces[1].events = { { 950, "break", "a loud reading" } };
   window.interfaces[1].rates = { { 940, 950, 0, 0, 0, 0, 0, 0 }, { 950, 990, 0, 0, 0, 1e6, 2e6, 3e6 } };
   view.pressed( { Key::enter, "" } );
   view.windowIs( onlyInterface( received( window ), "up2" ) );
   EXPECT_THAT( shown(), HasSubstr( "b  break     a loud reading" ) );
   EXPECT_THAT( shown(), HasSubstr( "950 s" ) );
   EXPECT_THAT( shown(), HasSubstr( "\u2500b\u2500" ) ) << "its mark under the chart";
   auto const recent = onlyRecent( received( window ), 15 );
   EXPECT_EQ( list( object( list( recent, "interfaces" )[1] ), "rates" ).size(), 1u );
}

TEST_F( WatchStory, linesForAPipeStayInTheirColumns ) {
   answers( mixed() );
   std::string const lines = batchLines( scene, "2026-03-01 14:05:09" );
   EXPECT_THAT( lines, ::testing::StartsWith( "2026-03-01 14:05:09  fabric  entering       up2 " ) );
   EXPECT_THAT( lines, HasSubstr( "bad\\u001b[2J\\n" ) );
   EXPECT_EQ( std::count( lines.begin(), lines.end(), '\n' ), 9 );
   EXPECT_EQ( lines.find( '\x1b' ), std::string::npos );
}

}  // namespace
}  // namespace Cli::Watch

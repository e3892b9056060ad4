// The page of a window: what it says, that it says nothing that is not so, and that it is HTML whatever the names are.
#include <gmock/gmock.h>

#include <regex>
#include <set>
#include <tuple>

#include "Stories.h"
#include "kel/Exception.h"
#include "kel/Optional.h"
#include "report/RateCurves.h"
#include "report/WindowPage.h"

namespace Test {
namespace {

using Kel::Value;
using Report::WindowStory;
using Service::Text;
using Service::WindowAnswer;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

WindowStory story( WindowAnswer const & window ) { return WindowStory( Kel::value( window ) ); }

// The text of the page's first lines, without tags.
std::string firstLines( WindowAnswer const & window ) {
   std::string const all = page( window );
   std::size_t const from = all.find( "<header" ), to = all.find( "</header>" );
   return std::regex_replace( all.substr( from, to - from ), std::regex( "<[^>]*>" ), "" );
}

// What is wrong with the nesting of elements, with what is quoted, and with references within the page.
std::vector<std::string> faults( std::string const & html ) {
   static std::set<std::string> const empty{ "meta", "col" };
   std::vector<std::string> open, found;
   std::set<std::string> ids, wanted;
   std::regex const tag( R"re(<(/?)([a-zA-Z0-9]+)((?:\s+[-a-zA-Z0-9:]+(?:="[^"<]*")?)*)\s*(/?)>|<!DOCTYPE html>|<)re" );
   std::regex const attribute( R"re((id|href)="([^"]*)")re" );
   for( std::sregex_iterator at( html.begin(), html.end(), tag ), end; at != end; ++at ) {
      std::string const name = ( *at )[2], attributes = ( *at )[3];
      if( at->str() == "<" ) found.push_back( "a bare < at " + std::to_string( at->position() ) );
      if( name.empty() ) continue;
      for( std::sregex_iterator a( attributes.begin(), attributes.end(), attribute ); a != end; ++a ) {
         bool const isId = ( *a )[1] == "id";
         if( isId && !ids.insert( ( *a )[2] ).second ) found.push_back( "id twice: " + a->str() );
         if( !isId ) wanted.insert( ( *a )[2] );
      }
      if( ( *at )[1] == "/" ) {
         if( open.empty() || open.back() != name ) {
            found.push_back( "</" + name + "> out of place at " + std::to_string( at->position() ) );
         } else {
            open.pop_back();
         }
      } else if( ( *at )[4] != "/" && !empty.contains( name ) ) {
         open.push_back( name );
      }
   }
   for( std::string const & name : open ) found.push_back( "<" + name + "> is not closed" );
   for( std::string const & reference : wanted ) {
      if( reference.empty() || reference[0] != '#' ) found.push_back( "refers to something outside: " + reference );
      if( !ids.contains( reference.substr( 1 ) ) ) found.push_back( "refers to nothing: " + reference );
   }
   return found;
}

// Calls `see` with `value` as it is when one member of one of its objects is missing, for each of them in turn; of a
// list the first element stands for all.
void withoutEach( Value const & value, std::string const & path,
                  std::function<void( Value const &, std::string const & )> const & see ) {
   if( auto const * object = value.as<Value::Object>() ) {
      for( std::size_t i = 0; i < object->size(); ++i ) {
         std::string const here = path + "." + ( *object )[i].first;
         auto less = *object;
         less.erase( less.begin() + static_cast<std::ptrdiff_t>( i ) );
         see( Kel::value( less ), here );
         withoutEach( ( *object )[i].second, here, [&]( Value const & member, std::string const & missing ) {
            auto other = *object;
            other[i].second = member;
            see( Kel::value( other ), missing );
         } );
      }
   }
   if( auto const * list = value.as<Value::List>(); list && !list->empty() ) {
      withoutEach( list->front(), path, [&]( Value const & element, std::string const & missing ) {
         auto other = *list;
         other.front() = element;
         see( Value( Value::Content( other ) ), missing );
      } );
   }
}

TEST( WindowPage, readsEveryMemberThatTheAnswerDeclaresAndNoOther ) {
   Value const whole = Kel::value( everyMember() );
   EXPECT_NO_THROW( std::ignore = Report::windowPage( whole ) );
   int members = 0;
   withoutEach( whole, "window", [&]( Value const & less, std::string const & missing ) {
      ++members;
      EXPECT_THROW( std::ignore = Report::windowPage( less ), Kel::AttributeError ) << missing << " is not read";
   } );
   EXPECT_GT( members, 40 );
}

TEST( WindowPage, isWellFormedInEveryStory ) {
   for( auto const & window :
        { completed(), smooth(), rolledBack(), continued(), entering(), leftOut(), many( 20 ), many( 60 ) } ) {
      EXPECT_THAT( faults( page( window ) ), IsEmpty() );
   }
}

TEST( WindowPage, namesAreTextWhateverTheyAre ) {
   WindowAnswer window = everyMember();
   std::string const hostile = "\"><script>alert('x')</script>&\x01\xff\xed\xa0\x80\xc2\x85\xef\xbf\xbe\xe2\x80\xae";
   window.unit = window.requestedBy.emplace() = *window.exitRequestedBy = hostile;
   auto & eth = window.interfaces.front();
   eth.interface = eth.profile->profile = hostile;
   eth.verdicts.back().verdict = hostile;
   eth.events.push_back( { begin + 20, hostile, hostile } );
   eth.events.push_back( { begin + 20, "spike", hostile } );
   window.stages.front().stage = window.stages.back().result = window.outcome = hostile;
   std::string const html = page( window );
   EXPECT_THAT( faults( html ), IsEmpty() );
   EXPECT_THAT( html, AllOf( HasSubstr( "&lt;script&gt;" ), Not( HasSubstr( "<script" ) ), Not( HasSubstr( "\xff" ) ),
                             Not( HasSubstr( "\x01" ) ), Not( HasSubstr( "\xed\xa0" ) ), Not( HasSubstr( "\xc2\x85" ) ),
                             Not( HasSubstr( "\xef\xbf\xbe" ) ), Not( HasSubstr( "\xe2\x80\xae" ) ) ) );
   // Characters beyond ASCII stay what they are.
   window.unit = "öst–北";
   EXPECT_THAT( firstLines( window ), HasSubstr( "öst–北" ) );
}

TEST( WindowPage, saysOfASimulationThatItIsOne ) {
   std::string const simulated = Report::windowPage( Kel::value( smooth() ), Report::Origin::simulation );
   EXPECT_THAT( faults( simulated ), IsEmpty() );
   EXPECT_THAT( simulated, AllOf( HasSubstr( "<title>Simulated maintenance window fabric" ),
                                  HasSubstr( "Computed by maintsim: it says what would have become of the unit" ) ) );
   EXPECT_THAT( page( smooth() ),
                AllOf( HasSubstr( "<title>Maintenance window fabric" ), Not( HasSubstr( "maintsim" ) ) ) );
}

TEST( WindowPage, saysWhoWhenAndSinceWhenItWasQuiet ) {
   EXPECT_THAT( firstLines( smooth() ),
                AllOf( HasSubstr( "Completed, proven quiet" ),
                       HasSubstr( "alice asked to take fabric out of service at 2026-11-21 21:04:10 UTC; it was in "
                                  "maintenance from 21:10:50. bob asked to bring it back at 22:10:50" ),
                       HasSubstr( "Proven quiet at 21:10:50, quiet since 21:09:50 at the latest: 2 quiet" ),
                       HasSubstr( "below 100 kbps in each direction, sampled every 10 s, for at least 60 s" ),
                       HasSubstr( "No traffic was seen to come back" ), Not( HasSubstr( "Still" ) ) ) );
   EXPECT_THAT( firstLines( completed() ), AllOf( HasSubstr( "Traffic came back 1 time in maintenance, on eth1" ),
                                                  Not( HasSubstr( "No traffic was seen" ) ) ) );
   EXPECT_THAT( firstLines( rolledBack() ),
                AllOf( HasSubstr( "Rolled back" ), HasSubstr( "it never came into maintenance" ),
                       HasSubstr( "never proven quiet. When ratemon ended: 1 loud, 1 quiet" ),
                       HasSubstr( "ran out of time at 21:34:10: the entry was broken off" ),
                       Not( HasSubstr( "Proven quiet" ) ), Not( HasSubstr( "No traffic" ) ) ) );
}

TEST( WindowPage, whatIsUnderwaySaysAsOfWhen ) {
   WindowAnswer window = continued();
   EXPECT_THAT( firstLines( window ), HasSubstr( "Still in maintenance as of 2026-11-21 21:29:10 UTC" ) );
   window.exitRequested = window.asOf - 10;
   EXPECT_THAT( firstLines( window ), HasSubstr( "Still leaving as of 2026-11-21 21:29:10 UTC" ) );
   EXPECT_THAT( firstLines( entering() ),
                AllOf( HasSubstr( "Still entering as of 1025 s" ), HasSubstr( "Not proven quiet yet." ),
                       HasSubstr( "it is not in maintenance yet" ), Not( HasSubstr( "UTC" ) ) ) );
   EXPECT_THAT( page( entering() ), HasSubstr( "25 s</span> so far" ) );
}

TEST( WindowPage, anEntryWithoutProofIsNeverCalledQuiet ) {
   EXPECT_THAT( firstLines( continued() ),
                AllOf( HasSubstr( "Entered without proof:" ), HasSubstr( "When verify ended: 1 quiet, 1 waiting" ),
                       HasSubstr( "the entry went on without it" ), Not( HasSubstr( "Proven quiet" ) ),
                       Not( HasSubstr( "No traffic" ) ) ) );
   // A deadline that another stage passed takes nothing from the proof.
   WindowAnswer late = smooth();
   late.outcome = "deadline";
   late.stages[1].result = "timed out";
   EXPECT_THAT( firstLines( late ), AllOf( HasSubstr( "after a deadline had passed" ), HasSubstr( "Proven quiet at" ),
                                           HasSubstr( "Stage ratemon of the entry ran out of time at 21:08:20" ),
                                           Not( HasSubstr( "without proof" ) ) ) );
   // The exit's stages prove nothing.
   late.stages[2].operation = "exit";
   EXPECT_THAT( firstLines( late ), AllOf( HasSubstr( "Entered without proof" ), Not( HasSubstr( "Proven quiet" ) ) ) );
}

TEST( WindowPage, whatIsOutsideOfTheProofIsSaidFirst ) {
   WindowAnswer window = leftOut();
   EXPECT_THAT(
      firstLines( window ),
      HasSubstr( "Left out of the proof on request: eth1 (1 of 3 interfaces). Whether it was quiet was not" ) );
   EXPECT_THAT( firstLines( window ), HasSubstr( "Completed, proven quiet, 1 left out" ) );
   for( auto & each : window.interfaces ) each.leftOut = true;
   EXPECT_THAT( firstLines( window ), AllOf( HasSubstr( "Nothing was proven:" ), Not( HasSubstr( "roven quiet" ) ) ) );
   window.interfaces.clear();
   EXPECT_THAT( firstLines( window ), AllOf( HasSubstr( "Nothing to prove:" ), Not( HasSubstr( "No traffic" ) ) ) );
}

// The row of an interface in the table of interfaces, a line for each cell.
std::string row( std::string const & html, std::string const & name ) {
   std::size_t const table = html.find( "id=\"interfaces\"" );
   std::size_t const from = html.find( "<bdi class=\"n\">" + name + "</bdi>", table );
   if( from == std::string::npos ) return "no row";
   std::string const cells = html.substr( from, html.find( "</tr>", from ) - from );
   std::string text;
   for( std::size_t at = 0; at < cells.size(); ) {
      std::size_t const tag = cells.find( '<', at );
      text.append( cells, at, tag - at );
      if( tag == std::string::npos ) break;
      std::size_t const end = cells.find( '>', tag );
      std::string const element = cells.substr( tag, end - tag );
      if( element == "</th" || element == "</td" ) text += '|';
      at = end + 1;
   }
   return text;
}

TEST( WindowPage, whatNobodyMeasuredIsNoZero ) {
   std::string const html = page( leftOut() );
   EXPECT_EQ( row( html, "eth2" ), "eth2|down|down|down|down|down|not measured|not measured|0|0|0|0|" );
   EXPECT_EQ( row( html, "eth1" ), "eth1 left out|left out|left out|left out|left out|left out|–|–|0|0|0|0|" );
   EXPECT_EQ( row( page( entering() ), "eth1" ), "eth1|–|unknown|–|–|0|0|0|0|" );
   EXPECT_THAT( firstLines( entering() ), HasSubstr( "somebody unknown" ) );
   EXPECT_THAT( page( entering() ), HasSubstr( "nothing was measured" ) );
}

TEST( WindowPage, aPeakIsAtMostWhereItsCellReachesBeyondTheProof ) {
   WindowAnswer window = smooth();
   auto & cells = intf( window, "eth0" ).rates;
   cells = { { begin, begin + 390, 0, 0, 9e6, 0, 0, 9e6 }, { begin + 400, begin + 500, 0, 0, 2000, 0, 0, 70 } };
   EXPECT_THAT( row( page( window ), "eth0" ), HasSubstr( "quiet|2 kbps|70 bps|" ) );
   cells[0].to = begin + 400;  // ends with the proof
   EXPECT_THAT( row( page( window ), "eth0" ), HasSubstr( "quiet|2 kbps|70 bps|" ) );
   cells[0].to = begin + 400.1;
   EXPECT_THAT( row( page( window ), "eth0" ), HasSubstr( "quiet|≤ 9 Mbps|≤ 9 Mbps|" ) );
   cells = { { begin + 3990, begin + 4000, 0, 0, 2000, 0, 0, 70 },
             { begin + 4000, begin + 4010, 0, 0, 9e6, 0, 0, 9e6 } };
   EXPECT_THAT( row( page( window ), "eth0" ), HasSubstr( "quiet|2 kbps|70 bps|" ) );
}

TEST( WindowPage, tablesAreCompleteAndTheWorstStandsFirst ) {
   WindowAnswer window = many( 200 );
   intf( window, "Ethernet50/4" ).verdicts.back().verdict = "loud";
   std::string const html = page( window );
   EXPECT_LT( html.size(), 2'000'000u );
   for( auto const & each : window.interfaces ) EXPECT_NE( row( html, each.interface.str() ), "no row" );
   std::vector<std::string> first;
   Report::WindowStory const told = story( window );  // the pointers are into it
   for( auto const * each : told.worstFirst() ) {
      if( first.size() < 6 ) first.push_back( each->name );
   }
   EXPECT_THAT( first, ElementsAre( "Ethernet50/4", "Ethernet11/2", "Ethernet28/1", "Ethernet44/4", "Ethernet20/2",
                                    "Ethernet1/4" ) );
   EXPECT_THAT( html, Not( HasSubstr( "Not complete" ) ) );
   WindowAnswer few = many( 8 );
   intf( few, "Ethernet1/4" ).totalEvents = 300;
   std::string const cut = page( few );
   EXPECT_THAT( cut, HasSubstr( "Ethernet1/4</bdi> 1 of 300" ) );
   EXPECT_THAT( row( cut, "Ethernet1/4" ), HasSubstr( "≥ 0" ) );
}

TEST( WindowPage, everyEventStandsInItsTableInTheOrderOfTime ) {
   std::string const html = page( completed() );
   std::size_t at = html.find( "id=\"events\"" );
   for( char const * text : { "21:08:00", "21:08:03", "21:09:10", "21:09:11", "21:41:10", "22:10:50" } ) {
      std::size_t const next = html.find( text, at );
      EXPECT_NE( next, std::string::npos ) << text;
      at = next;
   }
   EXPECT_THAT( html, AllOf( HasSubstr( "no longer shut down" ), HasSubstr( "4 changes of verdicts" ) ) );
}

TEST( WindowTime, aShortEntryKeepsItsShareOfALongStay ) {
   WindowStory const night = story( many( 1 ) );
   Report::WindowTime const time( night );
   EXPECT_TRUE( time.stretched() );
   EXPECT_NEAR( time.share( *night.entered ), 0.3, 1e-9 );
   EXPECT_NEAR( time.share( *night.exitRequested ), 0.88, 1e-9 );
   EXPECT_EQ( time.share( night.requested - 5 ), 0 );
   EXPECT_EQ( time.share( *night.ended + 5 ), 1 );
   double last = -1;
   for( double t = night.requested; t <= *night.ended; t += 7 ) {
      EXPECT_GT( time.share( t ), last );
      last = time.share( t );
   }
   EXPECT_FALSE( Report::WindowTime( story( rolledBack() ) ).boundaries().size() > 1 );
   EXPECT_FALSE( Report::WindowTime( story( continued() ) ).stretched() );
}

TEST( WindowTime, marksStandAtRoundMomentsAndDoNotTouch ) {
   WindowStory const hour = story( smooth() );
   Report::Moments const moments( hour.wallClockOffset, hour.requested );
   Report::WindowTime const time( hour );
   auto const ticks = time.ticks( moments, 540, 68 );
   ASSERT_GT( ticks.size(), 3u );
   EXPECT_EQ( ticks.front().text, "21:10" );
   EXPECT_NEAR( ticks.front().share, time.share( begin + 350 ), 1e-9 );  // the full minute
   for( std::size_t i = 1; i < ticks.size(); ++i ) {
      EXPECT_GE( ticks[i].share - ticks[i - 1].share, 68.0 / 540 - 1e-9 );
   }
}

TEST( Moments, tellDaysAsTheyAre ) {
   Report::Moments const leap( 1709164799.0 - 10, 10 );  // a second before the leap day of 2024
   EXPECT_EQ( leap.full( 10 ), "2024-02-28 23:59:59 UTC" );
   EXPECT_EQ( leap.brief( 10.9 ), "23:59:59" );
   EXPECT_EQ( leap.brief( 11 ), "2024-02-29 00:00:00" );
   EXPECT_EQ( leap.tick( 11, 86400 ), "02-29" );
   EXPECT_EQ( Report::Moments( {}, 10 ).full( 10.25 ), "10.25 s" );
}

// 0 to 100 s over a hundred columns, 200 half pixels high.
Report::StoryIntf measured( std::vector<Report::StoryCell> cells ) {
   Report::StoryIntf found{};
   found.cells = std::move( cells );
   return found;
}

TEST( RateCurves, breakWhereNothingWasMeasuredAndLoseNoMaximum ) {
   WindowAnswer window;
   window.asOf = 100;
   Report::WindowTime const time( story( window ) );
   Report::RateScale const rates( 1e6 );
   auto const curves = [&]( Report::StoryIntf const & intf ) {
      return Report::RateCurves( intf, time, rates, 100, 200 );
   };
   auto const gap = measured( { { 0, 10, 0, 0, 0, 0, 0, 0 }, { 20, 30, 0, 0, 0, 0, 0, 0 } } );
   EXPECT_EQ( curves( gap ).measured(), "M0,0h10v200h-10zM20,0h10v200h-10z" );
   EXPECT_EQ( curves( gap ).line( &Report::StoryCell::inMean, false ), "M0,98h10M20,98h10" );
   auto const joined = measured( { { 0, 10, 0, 0, 0, 0, 0, 0 }, { 10, 20, 0, 1e6, 0, 0, 1e6, 0 } } );
   EXPECT_EQ( curves( joined ).line( &Report::StoryCell::inMean, false ), "M0,98h10v-94h10" );
   EXPECT_EQ( curves( joined ).line( &Report::StoryCell::outMean, true ), "M0,102h10v94h10" );
   // A hundred cells in one column: the one high rate is in it.
   std::vector<Report::StoryCell> narrow;
   for( int i = 0; i < 100; ++i )
      narrow.push_back( { i / 100.0, ( i + 1 ) / 100.0, 0, 0, i == 70 ? 1e6 : 0, 0, 0, 0 } );
   EXPECT_EQ( curves( measured( narrow ) ).area( &Report::StoryCell::inHigh, false ), "M0,4h1v94h-1z" );
   EXPECT_TRUE( curves( measured( {} ) ).empty() );
}

}  // namespace
}  // namespace Test

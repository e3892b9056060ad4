#include "Stories.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "kel/Optional.h"
#include "report/WindowPage.h"

namespace Test {

using Evidence::ProfileInForce;
using Service::WindowAnswer;
using Service::WindowInterfaceAnswer;

namespace {

using Traffic = std::function<double( double )>;  // bit/s at a time

ProfileInForce const usual{ "default", 1e5, 10, 60, false };

Traffic until( double end, double before, double after ) {
   return [=]( double t ) { return t < end ? before : after; };
}

// Samples every `step` seconds with a bit of noise, each a cell of its own or a few of them in one.
void measure( WindowInterfaceAnswer & intf, double from, double to, double step, Traffic const & in,
              Traffic const & out, unsigned seed ) {
   std::mt19937 random( seed );
   std::uniform_real_distribution<double> noise( 0.6, 1.4 );
   for( double t = from; t + step <= to; t += step ) {
      double const i = in(t)*noise( random ), o = out( t ) * noise( random );
      intf.rates.push_back( { t, t + step, i * 0.8, i, i * noise( random ) + i * 0.4, o * 0.7, o, o * 1.3 } );
   }
}

WindowInterfaceAnswer link( std::string const & name ) {
   WindowInterfaceAnswer intf;
   intf.interface = name;
   intf.seen = true;
   intf.profile = usual;
   return intf;
}

void event( WindowInterfaceAnswer & intf, double time, char const * kind, char const * text ) {
   intf.events.push_back( { time, kind, text } );
   ++intf.totalEvents;
   if( kind == std::string( "break" ) ) ++intf.breaks;
   if( kind == std::string( "spike" ) ) ++intf.spikes;
}

void stage( WindowAnswer & window, char const * name, char const * operation, double began,
            Service::Maybe<double> ended, char const * result, Service::Maybe<double> deadline = {} ) {
   auto const number = static_cast<uint32_t>( window.stages.size() + 1 );
   window.stages.push_back( { number, name, operation, began, ended, deadline, result } );
}

void verdicts( WindowInterfaceAnswer & intf, std::vector<char const *> const & words ) {
   uint32_t number = 0;
   for( char const * word : words ) intf.verdicts.push_back( { ++number, word } );
}

WindowAnswer asked() {
   WindowAnswer window;
   window.unit = "fabric";
   window.generation = 7;
   window.requestedBy = "alice";
   window.wallClockOffset = offset;
   window.requested = begin;
   window.outcome = "underway";
   return window;
}

WindowAnswer hour() {
   WindowAnswer window = asked();
   window.outcome = "completed";
   window.exitGeneration = 8;
   window.exitRequestedBy = "bob";
   window.entered = begin + 400;
   window.exitRequested = begin + 4000;
   window.ended = begin + 4012;
   window.asOf = begin + 5000;
   stage( window, "bgp", "enter", begin, begin + 3.2, "done" );
   stage( window, "ratemon", "enter", begin + 3.2, begin + 250, "done" );
   stage( window, "verify", "enter", begin + 250, begin + 400, "done" );
   stage( window, "ratemon", "exit", begin + 4000, begin + 4000, "done" );
   stage( window, "bgp", "exit", begin + 4000, begin + 4012, "done" );
   return window;
}

}  // namespace

WindowInterfaceAnswer & intf( WindowAnswer & window, std::string const & name ) {
   return *std::find_if( window.interfaces.begin(), window.interfaces.end(),
                         [&]( auto const & each ) { return each.interface == Service::Text( name ); } );
}

std::string page( WindowAnswer const & window ) { return Report::windowPage( Kel::value( window ) ); }

WindowAnswer smooth() {
   WindowAnswer window = hour();
   unsigned seed = 1;
   for( char const * name : { "eth0", "eth1" } ) {
      auto eth = link( name );
      double const drained = begin + ( seed == 1 ? 60 : 180 );
      measure( eth, begin, begin + 400, 10, until( drained, 4e6, 1500 ), until( drained, 8e5, 300 ), seed );
      measure( eth, begin + 400, begin + 4010, 20, until( 1e9, 1200, 0 ), until( 1e9, 0, 0 ), seed + 10 );
      verdicts( eth, { "loud", "quiet", "quiet", "quiet", "quiet" } );
      event( eth, drained + 10, "verdict", "quiet" );
      window.interfaces.push_back( eth );
      ++seed;
   }
   return window;
}

WindowAnswer completed() {
   WindowAnswer window = smooth();
   window.requestedBy = "alice (uid 1004)";
   auto & eth1 = intf( window, "eth1" );
   for( auto & cell : eth1.rates ) {
      bool const second = cell.from >= begin + 2200 && cell.from < begin + 2290;
      if( !second ) continue;
      cell.inLow = 2.1e6;
      cell.inMean = 2.9e6;
      cell.inHigh = 3.4e6;
   }
   event( eth1, begin + 230, "link", "the link went down" );
   event( eth1, begin + 230, "break", "the link went down" );
   event( eth1, begin + 233, "link", "the link came up" );
   event( eth1, begin + 2220, "break", "in 2.9 Mbps, not below 100 kbps" );
   event( eth1, begin + 2220, "spike", "in 2.9 Mbps, not below 100 kbps" );
   auto eth2 = link( "eth2" );
   eth2.profile = ProfileInForce{ "uplink", 1e6, 5, 30, true };
   measure( eth2, begin, begin + 300, 5, until( begin + 220, 7e8, 4e4 ), until( begin + 235, 3e9, 9e4 ), 3 );
   verdicts( eth2, { "loud", "quiet", "held", "down", "waiting" } );
   event( eth2, begin + 240, "verdict", "quiet" );
   event( eth2, begin + 300, "shutdown", "shut down for maintenance" );
   event( eth2, begin + 301, "link", "the link went down" );
   event( eth2, begin + 301, "verdict", "held" );
   event( eth2, begin + 4000, "shutdown", "no longer shut down" );
   window.interfaces.push_back( eth2 );
   return window;
}

WindowAnswer rolledBack() {
   WindowAnswer window = asked();
   window.outcome = "rolled back";
   window.exitGeneration = 8;
   window.exitRequestedBy = "maintd";
   window.exitRequested = begin + 1800;
   window.ended = begin + 1803;
   window.asOf = begin + 1900;
   stage( window, "ratemon", "enter", begin, begin + 1800, "timed out", begin + 1800 );
   stage( window, "ratemon", "exit", begin + 1800, begin + 1803, "done" );
   auto eth0 = link( "eth0" );
   measure( eth0, begin, begin + 1800, 10, until( begin + 90, 4e6, 900 ), until( begin + 90, 1e5, 0 ), 1 );
   verdicts( eth0, { "quiet", "quiet" } );
   auto eth1 = link( "eth1" );
   measure( eth1, begin, begin + 1800, 10, until( 1e9, 2e6, 0 ), until( 1e9, 3e5, 0 ), 2 );
   verdicts( eth1, { "loud", "loud" } );
   window.interfaces = { eth0, eth1 };
   return window;
}

WindowAnswer continued() {
   WindowAnswer window = asked();
   window.entered = begin + 900;
   window.asOf = begin + 1500;
   stage( window, "ratemon", "enter", begin, begin + 300, "done" );
   stage( window, "verify", "enter", begin + 300, begin + 900, "timed out", begin + 900 );
   auto eth0 = link( "eth0" );
   measure( eth0, begin, begin + 1500, 10, until( begin + 90, 4e6, 900 ), until( begin + 90, 1e5, 0 ), 1 );
   verdicts( eth0, { "quiet", "quiet" } );
   auto eth1 = link( "eth1" );
   measure( eth1, begin, begin + 600, 10, until( begin + 240, 4e6, 2e5 ), until( 1e9, 3e4, 0 ), 2 );
   measure( eth1, begin + 800, begin + 1500, 10, until( 1e9, 2e5, 0 ), until( 1e9, 3e4, 0 ), 3 );
   event( eth1, begin + 610, "break", "its counters could not be read" );
   verdicts( eth1, { "quiet", "waiting" } );
   window.interfaces = { eth0, eth1 };
   return window;
}

WindowAnswer entering() {
   WindowAnswer window = asked();
   window.wallClockOffset.reset();
   window.requestedBy.reset();
   window.asOf = begin + 25;
   stage( window, "ratemon", "enter", begin, {}, "running" );
   auto eth0 = link( "eth0" );
   measure( eth0, begin, begin + 20, 10, until( 1e9, 4e6, 0 ), until( 1e9, 2e5, 0 ), 1 );
   auto eth1 = link( "eth1" );
   eth1.profile.reset();
   window.interfaces = { eth0, eth1 };
   return window;
}

WindowAnswer leftOut() {
   WindowAnswer window = smooth();
   auto & eth1 = intf( window, "eth1" );
   eth1.leftOut = true;
   for( auto & verdict : eth1.verdicts ) verdict.verdict = "left out";
   auto eth2 = link( "eth2" );
   verdicts( eth2, { "down", "down", "down", "down", "down" } );
   window.interfaces.push_back( eth2 );
   return window;
}

WindowAnswer many( int links ) {
   WindowAnswer window = hour();
   double const longer = 8 * 3600 - 4000;
   for( auto & stage : window.stages ) {
      if( stage.operation != Service::Text( "exit" ) ) continue;
      stage.began += longer;
      *stage.ended += longer;
   }
   *window.exitRequested += longer;
   *window.ended += longer;
   window.asOf += longer;
   for( int i = 0; i < links; ++i ) {
      auto eth = link( "Ethernet" + std::to_string( i / 4 + 1 ) + "/" + std::to_string( i % 4 + 1 ) );
      double const drained = begin + 30 + 190.0 * ( ( i * 37 ) % 100 ) / 100;
      double const before = std::pow( 10, 5.2 + ( i * 13 ) % 50 / 11.0 );
      bool const back = i % 67 == 41;
      auto const in = [=]( double t ) {
         bool const spike = back && std::fmod( t, 9000 ) > 8500;
         return t < drained ? before : spike ? before / 3 : 800.0 * ( i % 3 );
      };
      measure( eth, begin, *window.ended, ( *window.ended - begin ) / 600.5, in, until( drained, before / 9, 90 ),
               static_cast<unsigned>( i ) );
      verdicts( eth, { "loud", "quiet", i % 80 == 7 ? "down" : "quiet", "quiet", "quiet" } );
      if( back ) event( eth, begin + 7560, "spike", "in 3.4 Mbps, not below 100 kbps" );
      if( back ) event( eth, begin + 16560, "spike", "in 2.9 Mbps, not below 100 kbps" );
      if( i % 29 == 3 ) event( eth, begin + 180, "break", "in 210 kbps, not below 100 kbps" );
      if( i == 77 ) {
         eth.leftOut = true;
         for( auto & verdict : eth.verdicts ) verdict.verdict = "left out";
      }
      window.interfaces.push_back( eth );
   }
   return window;
}

WindowAnswer everyMember() {
   WindowAnswer window = completed();
   stage( window, "cleanup", "exit", begin + 4012, begin + 4020, "timed out", begin + 4018 );
   return window;
}

}  // namespace Test

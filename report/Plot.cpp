#include "report/Plot.h"

#include <algorithm>
#include <cmath>

#include "kel/QuantityText.h"
#include "report/Readable.h"
#include "report/Scales.h"
#include "report/Svg.h"

namespace Report {

namespace {

using Kel::durationText;
using Kel::numberText;
using Kel::rateText;
using Maintenance::MonIntfState;
using Anchor = Svg::Anchor;
using UnitState = Maintenance::Unit::State;

// The colours differ in lightness as well as in hue and can be told apart by people who do not see red or green.
constexpr char const * plotHead = R"(<style type="text/css">
text { font-family: "DejaVu Sans", Verdana, sans-serif; font-size: 12px; fill: #1a1a1a }
.title { font-size: 17px; font-weight: bold }
.small { font-size: 10px; fill: #555555 }
.paper { fill: #ffffff }
.idle, .active, .unknown { fill: #ededed }
.waiting, .entering { fill: #fbdf9d }
.watched, .inMaintenance { fill: #c5e3f6 }
.stopped, .leaving { fill: #d9d2ec }
.failed { fill: #f2b8a6 }
.grid { stroke: #000000; stroke-opacity: 0.13 }
.frame { fill: none; stroke: #8a8a8a }
.in { fill: none; stroke: #00558f; stroke-width: 2.4 }
.out { fill: none; stroke: #d2460a; stroke-width: 1.2 }
.threshold { fill: none; stroke: #1a1a1a; stroke-dasharray: 6 3 }
.shutdown { fill: url(#hatch) }
.shutdownEdge { stroke: #333333; stroke-width: 2.5 }
.spike { fill: #a8005c; stroke: #ffffff; stroke-width: 0.6 }
.complete { fill: #006b4c; stroke: #ffffff }
</style>
<defs><pattern id="hatch" width="7" height="7" patternUnits="userSpaceOnUse">
<path d="M-1,1 l2,-2 M0,7 l7,-7 M6,8 l2,-2" stroke="#333333" stroke-opacity="0.55" stroke-width="1.2"/>
</pattern></defs>
)";

constexpr double pictureWidth = 1280;
constexpr double margin = 14;
constexpr double digitWidth = 7.4;  // of the lanes' names, on average
constexpr double legendDigitWidth = 6.9;
constexpr double smallDigitWidth = 6.2;
constexpr std::size_t longestName = 26;
constexpr double unitLaneHeight = 22;
constexpr double roomyPlotLane = 58;  // from this height on a lane has its scale and more to say

char const * className( MonIntfState s ) {
   switch( s ) {
      case MonIntfState::notMonitoring: return "idle";
      case MonIntfState::thresholdMonitoring: return "waiting";
      case MonIntfState::passiveMonitoring: return "watched";
      case MonIntfState::monitoringStopped: return "stopped";
   }
   return "";
}

char const * stateText( MonIntfState s ) {
   switch( s ) {
      case MonIntfState::notMonitoring: return "not monitored";
      case MonIntfState::thresholdMonitoring: return "waiting for its traffic to go";
      case MonIntfState::passiveMonitoring: return "watched for traffic that comes back";
      case MonIntfState::monitoringStopped: return "monitoring stopped";
   }
   return "";
}

char const * stateText( UnitState s ) {
   switch( s ) {
      case UnitState::unknown: return "unknown";
      case UnitState::active: return "active";
      case UnitState::entering: return "entering";
      case UnitState::inMaintenance: return "in maintenance";
      case UnitState::failed: return "failed";
      case UnitState::leaving: return "leaving";
   }
   return "";
}

std::string spanText( double from, double to ) { return numberText( from, 3 ) + " to " + numberText( to, 3 ) + " s"; }

std::string point( double x, double y ) { return Svg::length( x ) + "," + Svg::length( y ); }

double nameColumnWidth( History const & history ) {
   std::size_t longest = 15;  // room for what stands below the names
   for( auto const & [name, unit] : history.units() ) longest = std::max( longest, columns( name.view() ) );
   for( auto const & [intf, happened] : history.intfs() ) longest = std::max( longest, columns( intf.name() ) );
   return 2 * margin + digitWidth * static_cast<double>( std::min( longest, longestName ) );
}

double highestRate( History const & history ) {
   double highest = 0;
   for( auto const & [name, intf] : history.intfs() ) {
      for( auto const & step : intf.threshold.all() ) highest = std::max( highest, step.value );
      for( auto const & bucket : intf.rates.buckets() ) {
         highest = std::max( { highest, bucket.inBits, bucket.outBits } );
      }
   }
   return highest;
}

// Where things stand, top down: title, units, interfaces, axis, legend.
struct Layout {
   static constexpr double top = 64;
   static constexpr double belowLanes = 104;

   explicit Layout( History const & history )
      : units( static_cast<double>( history.units().size() ) ),
        intfs( static_cast<double>( history.intfs().size() ) ) {}

   double units, intfs;
   // Together about a screen high. Below 24 pixels a name could not be read, so a picture of many lanes is longer.
   double intfLaneHeight = intfs == 0 ? 0 : std::clamp( std::floor( 860 / intfs ), 24.0, 130.0 );
   double gap = intfLaneHeight < roomyPlotLane ? 3 : 8;
   double intfsTop = top + units * ( unitLaneHeight + 4 ) + 8;
   double bottom = intfsTop + intfs * ( intfLaneHeight + gap );
   double height = bottom + belowLanes;

   [[nodiscard]] double unitTop( double lane ) const { return top + lane * ( unitLaneHeight + 4 ); }
   [[nodiscard]] double intfTop( double lane ) const { return intfsTop + lane * ( intfLaneHeight + gap ); }
};

class PlotPicture {
 public:
   explicit PlotPicture( History const & history )
      : history_( history ),
        layout_( history ),
        // The lanes end 66 pixels before the edge: there the scale of rates has its texts.
        time_( history.began(), history.now(), nameColumnWidth( history ), pictureWidth - 66 ),
        rates_( highestRate( history ) ),
        svg_( pictureWidth, layout_.height, plotHead ) {}

   std::string draw() {
      // A background of its own, as a viewer may have a dark one.
      svg_.rect( "paper", { 0, 0, pictureWidth, layout_.height } );
      drawTitle();
      double lane = 0;
      for( auto const & [name, unit] : history_.units() ) drawUnit( name.str(), unit, layout_.unitTop( lane++ ) );
      lane = 0;
      for( auto const & [intf, happened] : history_.intfs() ) {
         drawIntf( std::string( intf.name() ), happened, layout_.intfTop( lane++ ) );
      }
      drawTimeAxis();
      drawLegend();
      return svg_.document();
   }

 private:
   void drawTitle() {
      svg_.text( "title", margin, 26, "Maintenance timeline" );
      std::string const span = "virtual time " + spanText( history_.began(), history_.now() ) + " (" +
                               durationText( history_.now() - history_.began() ) + "), rates from 0 to " +
                               rateText( rates_.topBits() ) + ", logarithmic";
      bool const empty = history_.units().empty() && history_.intfs().empty();
      svg_.text( "plain", margin, 46, span + ( empty ? ": there was no unit, and no interface was monitored" : "" ) );
   }

   // Left of its lane. A name that is cut short stands whole in the tips of the bands.
   void drawName( std::string const & name, double y ) {
      svg_.text( "name", time_.left() - 8, y, clipped( name, longestName ), Anchor::end );
   }

   void band( char const * cls, double from, double to, double top, double height, std::string const & tip ) {
      double const left = time_.x( from ), width = time_.x( to ) - left;
      // Lengths are written in tenths of a pixel: it would come out as 0.
      if( width < 0.05 ) return;
      svg_.rect( std::string( "band " ) + cls, { left, top, width, height }, tip + ", " + spanText( from, to ) );
   }

   // At the beginning of a band, or behind a mark that stands there; not where there is no room.
   void words( double from, double to, double y, char const * text, std::vector<double> const & marks ) {
      // Estimated, since only the viewer knows the font.
      double const needed = smallDigitWidth * static_cast<double>( columns( text ) );
      double left = time_.x( from ) + 6;
      for( double const mark : marks ) {
         // A mark is 14 pixels wide and stands on its moment. Marks come in the order of time, so one pass is enough.
         if( time_.x( mark ) + 12 > left && time_.x( mark ) - 10 < left + needed ) left = time_.x( mark ) + 12;
      }
      if( left + needed < time_.x( to ) ) svg_.text( "small", left, y, text );
   }

   void drawUnit( std::string const & name, UnitHistory const & unit, double top ) {
      drawName( name, top + 15 );
      unit.states.eachUntil( history_.now(), [&]( double from, double to, UnitState state ) {
         band( enumName( state ), from, to, top, unitLaneHeight, name + ": " + stateText( state ) );
         words( from, to, top + 15, stateText( state ), unit.completed );
      } );
      // What is drawn later lies on top: the frame over the bands, the marks over the frame.
      svg_.rect( "frame", { time_.left(), top, time_.right() - time_.left(), unitLaneHeight } );
      for( double const at : unit.completed ) drawCompletion( name, at, top + unitLaneHeight / 2 );
   }

   void drawCompletion( std::string const & name, double at, double middle ) {
      std::string const diamond = "M" + point( time_.x( at ), middle - 8 ) + " l7,8 l-7,8 l-7,-8 z";
      svg_.path( "complete", diamond, name + ": complete at " + numberText( at, 3 ) + " s" );
   }

   // The place of a rate within the lane whose top is given. A few pixels stay free at both ends, so that a stroke at 0
   // or at the top does not lie on the frame.
   [[nodiscard]] double y( double bits, double top ) const {
      return top + layout_.intfLaneHeight - 3 - rates_.share( bits ) * ( layout_.intfLaneHeight - 7 );
   }
   [[nodiscard]] bool roomy() const { return layout_.intfLaneHeight >= roomyPlotLane; }

   void drawIntf( std::string const & name, IntfHistory const & intf, double top ) {
      double const height = layout_.intfLaneHeight, width = time_.right() - time_.left();
      // From the ground up: what is drawn later lies on top, so bands come before curves, and spikes over everything.
      svg_.rect( "idle", { time_.left(), top, width, height } );
      drawName( name, top + ( roomy() ? 17 : height / 2 + 4 ) );
      intf.states.eachUntil( history_.now(), [&]( double from, double to, MonIntfState state ) {
         band( className( state ), from, to, top, height, name + ": " + stateText( state ) );
      } );
      drawShutdown( name, intf, top );
      drawScale( top );
      drawThreshold( intf, top );
      drawCurve( "in", intf, &RateBucket::inBits, top );
      drawCurve( "out", intf, &RateBucket::outBits, top );
      svg_.rect( "frame", { time_.left(), top, width, height } );
      drawSpikes( name, intf, top );
      if( roomy() ) drawFacts( intf, top );
   }

   void drawFacts( IntfHistory const & intf, double top ) {
      auto fact = [&, line = top + 32]( std::string const & text ) mutable {
         svg_.text( "small", time_.left() - 8, line, text, Anchor::end );
         line += 13;
      };
      if( intf.drainedIn ) fact( "drained in " + durationText( *intf.drainedIn ) );
      if( intf.spikes > 0 ) fact( std::to_string( intf.spikes ) + ( intf.spikes == 1 ? " spike" : " spikes" ) );
   }

   void drawShutdown( std::string const & name, IntfHistory const & intf, double top ) {
      double const height = layout_.intfLaneHeight;
      intf.shutDown.eachUntil( history_.now(), [&]( double from, double to, bool down ) {
         if( !down ) return;
         band( "shutdown", from, to, top, height, name + ": shut down" );
         svg_.line( "shutdownEdge", time_.x( from ), top, time_.x( from ), top + height );
      } );
   }

   void drawScale( double top ) {
      for( double const at : time_.ticks( 90 ) ) {
         svg_.line( "grid", time_.x( at ), top, time_.x( at ), top + layout_.intfLaneHeight );
      }
      if( !roomy() ) return;
      for( double const bits : rates_.ticks( 15 / layout_.intfLaneHeight ) ) {
         svg_.line( "grid", time_.left(), y( bits, top ), time_.right(), y( bits, top ) );
         svg_.text( "small", time_.right() + 5, y( bits, top ) + 3.5, bits == 0 ? "0" : rateText( bits ) );
      }
   }

   // Only while it decides something, which is while the interface is monitored. Profiles may change within such a
   // time, so each stretch is cut to where both hold.
   void drawThreshold( IntfHistory const & intf, double top ) {
      intf.states.eachUntil( history_.now(), [&]( double from, double to, MonIntfState state ) {
         if( state == MonIntfState::notMonitoring ) return;
         intf.threshold.eachUntil( history_.now(), [&]( double since, double until, double bits ) {
            double const left = time_.x( std::max( from, since ) ), right = time_.x( std::min( to, until ) );
            if( right > left ) svg_.line( "threshold", left, y( bits, top ), right, y( bits, top ) );
         } );
      } );
   }

   // A rate holds for all the time of which its sample tells, so the curve has steps. It is broken where there are no
   // samples.
   void drawCurve( char const * cls, IntfHistory const & intf, double RateBucket::*bits, double top ) {
      if( intf.rates.empty() ) return;
      std::string commands, level;
      // No time is before 0, so the first bucket begins a curve.
      double end = -1;
      auto const drawToEnd = [&] { commands += " H" + Svg::length( time_.x( end ) ); };
      for( RateBucket const & bucket : intf.rates.buckets() ) {
         std::string const place = Svg::length( y( bucket.*bits, top ) );
         // Compared exactly: a sample tells of the time since the one before, and has its very number.
         bool const begins = bucket.from > end;
         // Levels are compared as they are written, so an even rate is one stroke and not thousands.
         if( !commands.empty() && ( begins || place != level ) ) drawToEnd();
         if( begins ) {
            commands += " M" + Svg::length( time_.x( bucket.from ) ) + "," + place;
         } else if( place != level ) {
            commands += " V" + place;
         }
         level = place;
         end = bucket.to;
      }
      drawToEnd();
      // Without the blank before the first command.
      svg_.path( cls, commands.substr( 1 ) );
   }

   void drawSpikes( std::string const & name, IntfHistory const & intf, double top ) {
      double free = 0;  // marks do not lie on each other
      for( RateBucket const & bucket : intf.rates.buckets() ) {
         double const x = time_.x( bucket.to );
         if( bucket.spikes == 0 || x < free ) continue;
         svg_.path( "spike", "M" + point( x - 6, top ) + " h12 l-6,11 z",
                    name + ": traffic came back, " + numberText( bucket.to, 3 ) + " s" );
         free = x + 6;
      }
   }

   void drawTimeAxis() {
      double const at = layout_.bottom;
      svg_.text( "small", time_.left() - 34, at + 15, "virtual s", Anchor::end );
      svg_.text( "small", time_.left() - 34, at + 27, "elapsed", Anchor::end );
      for( double const tick : time_.ticks( 90 ) ) {
         svg_.line( "frame", time_.x( tick ), at - 2, time_.x( tick ), at + 3 );
         svg_.text( "plain", time_.x( tick ), at + 15, numberText( tick, 3 ), Anchor::middle );
         std::string const elapsed = durationText( tick - history_.began() );
         svg_.text( "small", time_.x( tick ), at + 27, "+" + elapsed, Anchor::middle );
      }
   }

   // One entry of the legend: what `swatch( x, y )` draws and what it means. Gives the place of the next.
   template<class Swatch>
   double legend( double x, double y, char const * meaning, Swatch const & swatch ) {
      swatch( x, y );
      svg_.text( "plain", x + 32, y + 4, meaning );
      return x + 56 + legendDigitWidth * static_cast<double>( columns( meaning ) );
   }

   void drawLegend() {
      double y = layout_.bottom + 54;
      auto const area = [&]( char const * cls ) {
         return [this, cls]( double x, double middle ) {
            svg_.rect( cls, { x, middle - 7, 26, 14 } );
            svg_.rect( "frame", { x, middle - 7, 26, 14 } );
         };
      };
      auto const stroke = [&]( char const * cls ) {
         return [this, cls]( double x, double middle ) { svg_.line( cls, x, middle, x + 26, middle ); };
      };
      double x = margin;
      for( auto const state :
           { MonIntfState::thresholdMonitoring, MonIntfState::passiveMonitoring, MonIntfState::notMonitoring } ) {
         x = legend( x, y, stateText( state ), area( className( state ) ) );
      }
      x = legend( x, y, "shut down", area( "shutdown" ) );
      x = margin;
      y += 26;
      x = legend( x, y, "rate in", stroke( "in" ) );
      x = legend( x, y, "rate out", stroke( "out" ) );
      x = legend( x, y, "threshold", stroke( "threshold" ) );
      x = legend( x, y, "traffic came back", [this]( double left, double middle ) {
         svg_.path( "spike", "M" + point( left + 7, middle - 5 ) + " h12 l-6,11 z" );
      } );
      legend( x, y, "unit reported complete", [this]( double left, double middle ) {
         svg_.path( "complete", "M" + point( left + 13, middle - 8 ) + " l7,8 l-7,8 l-7,-8 z" );
      } );
   }

   History const & history_;
   Layout const layout_;
   TimeScale const time_;
   RateScale const rates_;
   Svg svg_;
};

}  // namespace

std::string plot( History const & history ) { return PlotPicture( history ).draw(); }

}  // namespace Report

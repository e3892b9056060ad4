#include "report/WindowPicture.h"

#include <algorithm>
#include <array>

#include "kel/QuantityText.h"
#include "report/Html.h"
#include "report/RateCurves.h"
#include "report/Svg.h"

namespace Report {

namespace {

using Kel::durationText;
using Kel::rateText;

constexpr int roomyLane = 56;        // pixels; from this height on a lane has the scale of rates
constexpr int bandedLane = 36;       // ... and the lowest and highest rates beside the mean
constexpr double markApart = 0.009;  // of the width: marks of one kind that are closer are one

std::string number( double pixels ) { return Svg::length( pixels ); }
std::string count( uint64_t n, std::string const & one ) {
   return std::to_string( n ) + " " + one + ( n == 1 ? "" : "s" );
}

std::string title( std::string_view text ) { return element( "title", "", escapedHtml( text ) ); }

std::string path( std::string_view cls, std::string const & commands, std::string_view tip ) {
   if( commands.empty() ) return "";
   return "<path class=\"" + std::string( cls ) + "\" d=\"" + commands + "\">" + title( tip ) + "</path>";
}

struct MarkKind {
   std::string_view kind, shape, meaning;
   double place;  // in a lane, from top (0) to bottom (1)
};
constexpr std::array<MarkKind, 4> markKinds{ {
   { "spike", "spike", "traffic came back", 0.1 },
   { "break", "break", "quiet time began anew", 0.5 },
   { "link", "link", "link change", 0.9 },
   { "shutdown", "shutdown", "shutdown", 0.9 },
} };

int laneHeight( std::size_t lanes ) {
   if( lanes <= 6 ) return 84;
   if( lanes <= 16 ) return roomyLane;
   return lanes <= 48 ? bandedLane : 20;
}

double highestRate( WindowStory const & story ) {
   double highest = 0;
   for( StoryIntf const & intf : story.interfaces ) {
      if( intf.profile ) highest = std::max( highest, intf.profile->thresholdBitsRate );
      for( StoryCell const & cell : intf.cells ) highest = std::max( { highest, cell.inHigh, cell.outHigh } );
   }
   return highest;
}

class Picture {
 public:
   Picture( WindowStory const & story, Moments const & moments )
      : story_( story ),
        moments_( moments ),
        time_( story ),
        rates_( highestRate( story ) ),
        height_( laneHeight( story.interfaces.size() ) ) {}

   [[nodiscard]] std::string draw() const {
      bool const many = !lanesAreRoomy( story_ );
      std::string rows;
      if( many ) {
         for( StoryIntf const * intf : story_.worstFirst() ) rows += lane( *intf );
      } else {
         for( StoryIntf const & intf : story_.interfaces ) rows += lane( intf );
      }
      std::string const head =
         element( "tr", "",
                  element( "th", "scope=\"col\"", many ? "Interface, worst first" : "Interface" ) +
                     element( "th", "scope=\"col\"", stages() + axis() ) );
      std::string const table = element( "table", height_ < bandedLane ? "class=\"lanes low\"" : "class=\"lanes\"",
                                         "<colgroup><col class=\"names\"><col></colgroup>\n" +
                                            element( "thead", "", head ) + "\n" + element( "tbody", "", rows ) );
      return element( "figure", "", table + "\n" + element( "figcaption", "", legend() + caption() ) ) + "\n";
   }

 private:
   [[nodiscard]] std::string spanText( double from, double to ) const {
      return moments_.brief( from ) + " to " + moments_.brief( to ) + ", " + durationText( to - from );
   }

   // No picture but boxes of text, which are cut where they are too narrow for it.
   [[nodiscard]] std::string stages() const {
      std::string bands;
      for( StoryStage const & stage : story_.stages ) {
         double const to = stage.ended.value_or( story_.end() );
         bands +=
            band( stage.late() ? "late" : "plain", stage.began, to, stage.name,
                  stage.name + " (" + stage.operation + "), " + stage.result + ": " + spanText( stage.began, to ) );
      }
      if( story_.entered ) {
         double const to = std::max( *story_.entered, story_.exitRequested.value_or( story_.end() ) );
         bands +=
            band( "stay", *story_.entered, to, "in maintenance", "in maintenance: " + spanText( *story_.entered, to ) );
      }
      for( StoryStage const & stage : story_.stages ) {
         if( !stage.deadlinePassed ) continue;
         std::string const tip =
            "the deadline of " + stage.name + " passed: " + moments_.brief( *stage.deadlinePassed );
         bands += element( "span",
                           "class=\"deadline\" title=\"" + escapedHtml( tip ) +
                              "\" style=\"left:" + time_.percent( *stage.deadlinePassed ) + "\"",
                           markOf( "deadline" ) );
      }
      return element( "div", "class=\"stages\"", bands );
   }
   [[nodiscard]] std::string band( std::string const & cls, double from, double to, std::string const & words,
                                   std::string const & tip ) const {
      double const width = time_.share( to ) - time_.share( from );
      return element( "span",
                      "class=\"stage " + cls + "\" title=\"" + escapedHtml( tip ) + "\" style=\"left:" +
                         time_.percent( from ) + ";width:" + Kel::numberText( 100 * width, 2 ) + "%\"",
                      width < 0.02 ? "" : escapedHtml( words ) );
   }

   [[nodiscard]] std::string axis() const {
      return "<svg width=\"100%\" height=\"20\" aria-hidden=\"true\">" + ticks( "wide", 540, 68 ) +
             ticks( "narrow", 350, 68 ) + "</svg>";
   }
   [[nodiscard]] std::string ticks( char const * cls, double width, double textWidth ) const {
      std::string marks;
      for( auto const & [share, text] : time_.ticks( moments_, width, textWidth ) ) {
         std::string const x = Kel::numberText( 100 * share, 2 ) + "%";
         marks += "<line class=\"middle\" x1=\"" + x + "\" x2=\"" + x + "\" y1=\"0\" y2=\"4\"/><text x=\"" + x +
                  "\" y=\"16\" text-anchor=\"middle\">" + text + "</text>";
      }
      return element( "g", "class=\"" + std::string( cls ) + "\"", marks );
   }

   [[nodiscard]] std::string lane( StoryIntf const & intf ) const {
      RateCurves const curves( intf, time_, rates_, height_ < bandedLane ? 1000 : 2000, 2 * height_ );
      std::string const height = std::to_string( height_ );
      std::string svg = "<svg width=\"100%\" height=\"" + height + "\" role=\"img\" aria-label=\"" +
                        escapedHtml( intf.name + ": " + words( intf ) ) + "\">";
      svg += "<rect class=\"unmeasured\" width=\"100%\" height=\"100%\">" + title( intf.name + ": not measured" ) +
             "</rect>" + drawing( intf, curves );
      svg += "<rect class=\"frame\" x=\"0.5\" y=\"0.5\" width=\"100%\" height=\"" + number( height_ - 1 ) +
             "\" pointer-events=\"none\"/>";
      svg += scale( intf, curves ) + notes( intf, curves ) + marks( intf ) + "</svg>";
      std::string const said = words( intf );
      std::string const name =
         nameHtml( intf.name ) + ( said.empty() ? "" : element( "small", "", escapedHtml( said ) ) );
      return element( "tr", "",
                      element( "th", "scope=\"row\" title=\"" + escapedHtml( intf.name ) + "\"", name ) +
                         element( "td", "", svg ) ) +
             "\n";
   }

   // What a reader looks for comes first: a low lane has little room.
   [[nodiscard]] static std::string words( StoryIntf const & intf ) {
      std::string text = intf.leftOut ? "left out" : "";
      auto const add = [&]( std::string const & more ) { text += ( text.empty() ? "" : ", " ) + more; };
      if( intf.spikes > 0 ) add( count( intf.spikes, "spike" ) );
      if( intf.breaks > 0 ) add( count( intf.breaks, "break" ) );
      if( auto const last = intf.lastVerdict(); last && !intf.leftOut ) add( *last );
      return text;
   }

   // What stretches with the width.
   [[nodiscard]] std::string drawing( StoryIntf const & intf, RateCurves const & curves ) const {
      int const columns = height_ < bandedLane ? 1000 : 2000;
      std::string const right = std::to_string( columns );
      std::string drawn = path( "measured", curves.measured(), intf.name + ": measured" );
      auto const across = [&]( char const * cls, int y ) {
         return "<path class=\"" + std::string( cls ) + "\" d=\"M0," + std::to_string( y ) + "H" + right + "\"/>";
      };
      if( height_ >= roomyLane ) {
         for( double const bits : gridRates( intf ) ) {
            if( bits == 0 ) continue;
            drawn += across( "grid", curves.y( bits, false ) ) + across( "grid", curves.y( bits, true ) );
         }
      }
      if( height_ >= bandedLane ) drawn += across( "middle", height_ );
      drawn += direction( intf, curves, false ) + direction( intf, curves, true );
      for( double const share : time_.boundaries() ) {
         std::string const x = number( share * columns );
         drawn += "<path class=\"edge\" d=\"M" + x + ",0V" + std::to_string( 2 * height_ ) + "\"/>";
      }
      if( intf.profile ) {
         double const bits = intf.profile->thresholdBitsRate;
         drawn += path( "threshold",
                        "M0," + std::to_string( curves.y( bits, false ) ) + "H" + right + "M0," +
                           std::to_string( curves.y( bits, true ) ) + "H" + right,
                        intf.name + ": threshold " + rateText( bits ) );
      }
      return "<svg width=\"100%\" height=\"100%\" preserveAspectRatio=\"none\" viewBox=\"0 0 " + right + " " +
             std::to_string( 2 * height_ ) + "\">" + drawn + "</svg>";
   }

   [[nodiscard]] std::string direction( StoryIntf const & intf, RateCurves const & curves, bool out ) const {
      auto const low = out ? &StoryCell::outLow : &StoryCell::inLow;
      auto const mean = out ? &StoryCell::outMean : &StoryCell::inMean;
      auto const high = out ? &StoryCell::outHigh : &StoryCell::inHigh;
      double highest = 0;
      for( StoryCell const & cell : intf.cells ) highest = std::max( highest, cell.*high );
      std::string const tip = intf.name + ( out ? " out: up to " : " in: up to " ) + rateText( highest );
      std::string const group = out ? "class=\"out\"" : "class=\"in\"";
      if( height_ < bandedLane ) return element( "g", group, path( "full", curves.area( high, out ), tip ) );
      return element( "g", group,
                      path( "area", curves.area( mean, out ), tip ) +
                         path( "band", curves.band( low, high, out ), tip + ", lowest to highest" ) +
                         path( "mean", curves.line( mean, out ), tip + ", mean" ) );
   }

   // Those of the scale that have room beside the threshold.
   [[nodiscard]] std::vector<double> gridRates( StoryIntf const & intf ) const {
      double const half = height_ / 2.0 - 3;
      std::vector<double> rates = rates_.ticks( 13 / half );
      double const own = intf.profile ? rates_.share( intf.profile->thresholdBitsRate ) : -1;
      std::erase_if(
         rates, [&]( double bits ) { return intf.profile && std::abs( rates_.share( bits ) - own ) * half < 11; } );
      return rates;
   }

   [[nodiscard]] std::string scale( StoryIntf const & intf, RateCurves const & curves ) const {
      if( height_ < roomyLane ) return "";
      std::string texts;
      auto const text = [&]( char const * cls, double bits, bool out ) {
         double const y = curves.y( bits, out ) / 2.0;
         // Neither cut at the edge nor on the line itself.
         double const base = std::clamp( y + 4, 11.0, height_ - 3.0 );
         texts += "<text class=\"" + std::string( cls ) + "\" x=\"100%\" dx=\"-5\" y=\"" + number( base ) +
                  "\" text-anchor=\"end\">" + rateText( bits ) + "</text>";
      };
      for( bool const out : { false, true } ) {
         for( double const bits : gridRates( intf ) ) {
            if( bits > 0 ) text( "halo", bits, out );
         }
         if( intf.profile ) text( "halo strong", intf.profile->thresholdBitsRate, out );
      }
      texts += "<text class=\"halo\" x=\"5\" y=\"12\">in ↑</text><text class=\"halo\" x=\"5\" y=\"" +
               number( height_ - 4 ) + "\">out ↓</text>";
      return texts;
   }

   [[nodiscard]] std::string notes( StoryIntf const & intf, RateCurves const & curves ) const {
      std::string text = intf.leftOut ? "left out of the proof" : "";
      if( curves.empty() ) text += text.empty() ? "nothing was measured" : ", nothing was measured";
      if( !intf.seen ) text += text.empty() ? "no link of that name was seen" : ", no link of that name was seen";
      if( text.empty() ) return "";
      return "<text class=\"halo strong\" x=\"50%\" y=\"" + number( height_ / 2.0 + 4 ) + "\" text-anchor=\"middle\">" +
             text + "</text>";
   }

   [[nodiscard]] std::string marks( StoryIntf const & intf ) const {
      std::string drawn;
      for( MarkKind const & kind : markKinds ) {
         std::optional<double> first;  // of the marks that are drawn as one
         std::string tip;
         std::size_t together = 0;
         auto const flush = [&] {
            if( !first ) return;
            double const y =
               height_ < bandedLane ? height_ / 2.0 : std::clamp( kind.place * height_, 8.0, height_ - 8.0 );
            std::string const more = together > 1 ? " (and " + std::to_string( together - 1 ) + " more close by)" : "";
            drawn += use( kind.shape, *first, y, tip + more );
         };
         for( StoryEvent const & event : intf.events ) {
            if( event.kind != kind.kind ) continue;
            if( first && time_.share( event.time ) - time_.share( *first ) < markApart ) {
               ++together;
               continue;
            }
            flush();
            first = event.time;
            tip = intf.name + ", " + moments_.brief( event.time ) + ", " + event.kind + ": " + event.text;
            together = 1;
         }
         flush();
      }
      return drawn;
   }

   [[nodiscard]] std::string use( std::string_view shape, double time, double y, std::string_view tip ) const {
      return "<use href=\"#m-" + std::string( shape ) + "\" x=\"" + time_.percent( time ) + "\" y=\"" + number( y ) +
             "\">" + title( tip ) + "</use>";
   }

   [[nodiscard]] std::string legend() const {
      std::string items;
      auto const item = [&]( std::string const & swatch, std::string_view meaning ) {
         items += element( "li", "", swatch + element( "span", "", meaning ) );
      };
      auto const box = []( std::string const & content ) {
         return "<svg width=\"26\" height=\"16\" aria-hidden=\"true\">" + content + "</svg>";
      };
      bool const low = height_ < bandedLane;
      auto const curve = [&]( std::string const & cls, std::string const & shape ) {
         return box( low ? "<g class=\"" + cls + "\"><path class=\"full\" d=\"" + shape + "\"/></g>"
                         : "<g class=\"" + cls + "\"><path class=\"band\" d=\"" + shape +
                              "\"/><path class=\"mean\" d=\"M0,8H26\"/></g>" );
      };
      std::string const what = low ? ", highest" : ", mean (line), lowest to highest (band)";
      item( curve( "in", "M0,12V6H9V3H17V6H26V12z" ), "rate in, upwards" + what );
      item( curve( "out", "M0,4V10H9V13H17V10H26V4z" ), "rate out, downwards" + what );
      item( box( "<path class=\"threshold\" d=\"M0,8H26\"/>" ), "threshold" );
      for( MarkKind const & kind : markKinds ) item( markOf( kind.kind ), kind.meaning );
      item( markOf( "deadline" ), "deadline passed" );
      item( box( "<rect class=\"unmeasured\" width=\"26\" height=\"16\"/>"
                 "<rect class=\"frame\" x=\".5\" y=\".5\" width=\"25\" height=\"15\"/>" ),
            "not measured" );
      return element( "ul", "class=\"legend\"", items );
   }

   [[nodiscard]] std::string caption() const {
      std::string text =
         "Rates from 0 in the middle to " + rateText( rates_.topBits() ) + " at the edges, logarithmic. ";
      text += moments_.invented() ? "Times are seconds of a virtual clock." : "Times are UTC.";
      if( time_.stretched() ) {
         text += " Entering, maintenance and leaving each have a scale of time of their own; dotted lines part them.";
      }
      return element( "p", "class=\"note\"", text );
   }

   WindowStory const & story_;
   Moments const & moments_;
   WindowTime const time_;
   RateScale const rates_;
   int const height_;
};

}  // namespace

std::string_view pictureShapes() {
   // Marks have their middle at 0,0. What a verdict's shape looks like is a 12 pixel square.
   return R"shapes(<svg width="0" height="0" style="position:absolute" aria-hidden="true"><defs>
<pattern id="hatch" width="8" height="8" patternUnits="userSpaceOnUse">
 <rect width="8" height="8" fill="var(--card)"/>
 <path d="M-2,2l4,-4M0,8l8,-8M6,10l4,-4" stroke="var(--soft)" stroke-opacity=".4"/></pattern>
<g id="m-spike"><path d="M-6.5,-6H6.5L0,7z" fill="var(--bad)" stroke="var(--paper)" stroke-width="1.5"/></g>
<g id="m-break"><path d="M0,-6.5L6.5,0L0,6.5L-6.5,0z" fill="var(--paper)" stroke="var(--ink)" stroke-width="1.8"/></g>
<g id="m-link">
 <circle r="5" fill="var(--paper)" stroke="var(--ink)" stroke-width="1.8"/>
 <path d="M-5,0H5" stroke="var(--ink)" stroke-width="1.8"/></g>
<g id="m-shutdown">
 <rect x="-5.5" y="-5.5" width="11" height="11" fill="var(--ink)" stroke="var(--paper)" stroke-width="1.5"/></g>
<g id="m-deadline">
 <path d="M-5,-7H5L-5,7H5z" fill="var(--paper)" stroke="var(--warn)" stroke-width="2" stroke-linejoin="round"/></g>
<g id="m-verdict"><path d="M-5,0H5M1,-4L5,0L1,4" fill="none" stroke="var(--soft)" stroke-width="1.8"/></g>
<symbol id="v-good" viewBox="0 0 12 12">
 <circle cx="6" cy="6" r="6" fill="currentColor"/>
 <path d="M3,6.3L5.2,8.5L9.2,3.8" fill="none" stroke="var(--paper)" stroke-width="1.7"/></symbol>
<symbol id="v-down" viewBox="0 0 12 12">
 <rect x=".5" y=".5" width="11" height="11" rx="2" fill="currentColor"/>
 <path d="M3,6.3L5.2,8.5L9.2,3.8" fill="none" stroke="var(--paper)" stroke-width="1.7"/></symbol>
<symbol id="v-warn" viewBox="0 0 12 12">
 <path d="M6,.3L12,11.5H0z" fill="currentColor"/>
 <path d="M6,4.2V7.6M6,8.7V10.3" stroke="var(--paper)" stroke-width="1.5"/></symbol>
<symbol id="v-bad" viewBox="0 0 12 12">
 <path d="M3.5,0H8.5L12,3.5V8.5L8.5,12H3.5L0,8.5V3.5z" fill="currentColor"/>
 <path d="M3.5,3.5L8.5,8.5M8.5,3.5L3.5,8.5" stroke="var(--paper)" stroke-width="1.7"/></symbol>
<symbol id="v-plain" viewBox="0 0 12 12">
 <circle cx="6" cy="6" r="5.2" fill="none" stroke="currentColor" stroke-width="1.5"/>
 <path d="M6,5.3V9.2M6,2.7V4.2" stroke="currentColor" stroke-width="1.5"/></symbol>
<symbol id="v-none" viewBox="0 0 12 12"><path d="M1,6H11" stroke="currentColor" stroke-width="2"/></symbol>
<symbol id="v-under" viewBox="0 0 12 12">
 <circle cx="6" cy="6" r="5.2" fill="none" stroke="currentColor" stroke-width="1.5"/>
 <path d="M6,2.8V6L8.4,7.6" fill="none" stroke="currentColor" stroke-width="1.5"/></symbol>
</defs></svg>
)shapes";
}

bool lanesAreRoomy( WindowStory const & story ) { return laneHeight( story.interfaces.size() ) >= roomyLane; }

std::string windowPicture( WindowStory const & story, Moments const & moments ) {
   return Picture( story, moments ).draw();
}

std::string markOf( std::string_view kind ) {
   static constexpr std::array<std::string_view, 6> known{ "spike",    "break",    "link",
                                                           "shutdown", "deadline", "verdict" };
   if( std::find( known.begin(), known.end(), kind ) == known.end() ) return "";
   return "<svg class=\"mark\" viewBox=\"-8 -8 16 16\" width=\"16\" height=\"16\" aria-hidden=\"true\"><use "
          "href=\"#m-" +
          std::string( kind ) + "\"/></svg>";
}

}  // namespace Report

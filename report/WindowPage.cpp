#include "report/WindowPage.h"

#include "kel/QuantityText.h"
#include "report/Html.h"
#include "report/Moments.h"
#include "report/WindowPicture.h"
#include "report/WindowStory.h"
#include "report/WindowStyle.h"
#include "report/WindowTables.h"
#include "report/WindowWords.h"

namespace Report {

namespace {

using Kel::durationText;

std::string shape( Tone tone ) {
   char const * const name = tone == Tone::good   ? "v-good"
                             : tone == Tone::warn ? "v-warn"
                             : tone == Tone::bad  ? "v-bad"
                                                  : "v-plain";
   return std::string( "<svg class=\"" ) + toneName( tone ) +
          "\" viewBox=\"0 0 12 12\" aria-hidden=\"true\"><use href=\"#" + name + "\"/></svg>";
}

std::string kindOf( Origin origin ) {
   return origin == Origin::simulation ? "Simulated maintenance window " : "Maintenance window ";
}

std::string header( WindowStory const & story, Moments const & moments, Origin origin ) {
   Sentence const head = headline( story );
   std::string lines;
   if( origin == Origin::simulation ) {
      lines += element( "li", "",
                        shape( Tone::warn ) +
                           "Computed by maintsim: it says what would have become of the unit, and "
                           "is no record of what did." ) +
               "\n";
   }
   for( Sentence const & line : firstLines( story, moments ) ) {
      lines += element( "li", "", shape( line.tone ) + line.html ) + "\n";
   }
   return element( "header", std::string( "class=\"" ) + toneName( head.tone ) + "\"",
                   element( "p", "class=\"over\"",
                            kindOf( origin ) + nameHtml( story.unit ) + " #" + std::to_string( story.generation ) ) +
                      element( "h1", "", shape( head.tone ) + element( "span", "", head.html ) ) + "\n" +
                      element( "ul", "class=\"first\"", lines ) ) +
          "\n";
}

std::string tile( char const * what, std::string const & value, std::string const & more ) {
   return element( "li", "",
                   element( "span", "", what ) + element( "strong", "", value ) + element( "span", "", more ) );
}

std::string tiles( WindowStory const & story ) {
   std::string const soFar = story.underway() ? "so far" : "";
   auto const proven = story.proven();
   std::string text = tile( "Whole window", durationText( story.end() - story.requested ),
                            story.underway() ? "so far" : "from the request to the end" );
   text += tile( "Until proven quiet", proven ? durationText( *proven - story.requested ) : "not proven",
                 proven ? "from the request" : soFar );
   double const left = story.exitRequested.value_or( story.end() );
   text += tile( "In maintenance", story.entered ? durationText( left - *story.entered ) : "never",
                 story.entered && story.exitRequested ? "until the request to leave" : soFar );
   text += tile( "Leaving", story.exitRequested ? durationText( story.end() - *story.exitRequested ) : "not begun",
                 story.exitRequested ? soFar : "" );
   return element( "ul", "class=\"tiles\"", text ) + "\n";
}

std::string section( std::string const & id, char const * heading, std::string const & content ) {
   return element( "section", "id=\"" + id + "\"", element( "h2", "", heading ) + "\n" + content ) + "\n";
}

// What decided and by which values comes before the picture, which may be long.
std::string sections( WindowStory const & story, Moments const & moments ) {
   std::string const stages = section( "stages", "Stages", stageTable( story, moments ) );
   if( story.interfaces.empty() ) return stages;
   std::string const values = section( "values", "Values in force", profileTable( story ) );
   return element( "div", "class=\"pair\"", stages + values ) + "\n" +
          element( "div", lanesAreRoomy( story ) ? "class=\"roomy\"" : "",
                   section( "timeline", "Timeline", windowPicture( story, moments ) ) ) +
          section( "interfaces", "Interfaces", interfaceTable( story ) ) +
          section( "events", "What happened", eventTables( story, moments ) );
}

constexpr char const * places = R"(<nav class="screen"><a href="#timeline">Timeline</a> <a href="#stages">Stages</a>
<a href="#values">Values</a> <a href="#interfaces">Interfaces</a> <a href="#events">What happened</a></nav>
)";

constexpr char const * glossary = R"(<details class="screen"><summary>What the words mean</summary>
<dl>
<dt>quiet</dt><dd>every reading since some moment was below the threshold in both directions</dd>
<dt>loud</dt><dd>the last reading was not</dd>
<dt>waiting</dt><dd>no reading yet, or none that still counts</dd>
<dt>down, gone</dt><dd>the link was there, and is down or has vanished</dd>
<dt>held</dt><dd>the link was shut down for the maintenance, and seen to be down</dd>
<dt>missing, unwatched</dt><dd>there is no such link; it is up, and nobody measures it</dd>
<dt>left out</dt><dd>whoever asked for the maintenance took it out of the proof</dd>
<dt>break</dt><dd>quiet time ended and had to begin anew, for whatever reason</dd>
<dt>spike</dt><dd>traffic came back in maintenance</dd>
</dl></details>
)";

}  // namespace

std::string windowPage( Kel::Value const & window, Origin origin ) {
   WindowStory const story( window );
   Moments const moments( story.wallClockOffset, story.requested );
   std::string const name = story.unit + " #" + std::to_string( story.generation );
   std::string body( pictureShapes() );
   body += header( story, moments, origin ) + tiles( story );
   if( !lanesAreRoomy( story ) ) body += places;
   body += element( "main", "", sections( story, moments ) );
   body += element( "footer", "",
                    std::string( glossary ) + element( "p", "class=\"note\"",
                                                       "Rates are averages over a sample interval; shorter "
                                                       "bursts are averaged with it. Written as of " +
                                                          moments.full( story.asOf ) + "." ) );
   return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
          "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
          "<meta name=\"color-scheme\" content=\"light dark\">\n<title>" +
          kindOf( origin ) + escapedHtml( name ) + "</title>\n<style>" + std::string( windowStyle() ) +
          "</style></head>\n<body>\n" + body + "\n</body></html>\n";
}

}  // namespace Report

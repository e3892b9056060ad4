#include "report/WindowWords.h"

#include <algorithm>
#include <map>
#include <numeric>

#include "kel/QuantityText.h"
#include "report/Html.h"

namespace Report {

namespace {

using Kel::durationText;
using Kel::rateText;

std::string strong( std::string_view html ) { return element( "strong", "", html ); }
// A moment, which no line break parts.
std::string at( std::string const & time ) { return element( "strong", "class=\"t\"", time ); }
std::string who( std::optional<std::string> const & name ) {
   return name ? strong( nameHtml( *name ) ) : strong( "somebody unknown" );
}

uint64_t spikesOf( WindowStory const & story ) {
   return std::accumulate( story.interfaces.begin(), story.interfaces.end(), uint64_t{ 0 },
                           []( uint64_t sum, StoryIntf const & intf ) { return sum + intf.spikes; } );
}

std::vector<std::string> namesWith( WindowStory const & story, uint32_t StoryIntf::*counter ) {
   std::vector<std::string> names;
   for( StoryIntf const & intf : story.interfaces ) {
      if( intf.*counter > 0 ) names.push_back( intf.name );
   }
   return names;
}

bool allLeftOut( WindowStory const & story ) {
   return !story.interfaces.empty() &&
          std::all_of( story.interfaces.begin(), story.interfaces.end(), []( auto const & i ) { return i.leftOut; } );
}

// The day stands once, and again only where it is another.
Sentence requestLine( WindowStory const & story, Moments const & moments ) {
   std::string text = who( story.requestedBy ) + " asked to take " + strong( nameHtml( story.unit ) ) +
                      " out of service at " + at( moments.full( story.requested ) );
   if( story.entered ) {
      text += "; it was in maintenance from " + at( moments.brief( *story.entered ) );
   } else {
      text += story.underway() && !story.exitRequested ? "; it is not in maintenance yet"
                                                       : "; it never came into maintenance";
   }
   if( story.exitRequested ) {
      text += ". " + who( story.exitRequestedBy ) + " asked to bring it back at " +
              at( moments.brief( *story.exitRequested ) );
   }
   if( story.ended ) text += "; the window ended at " + at( moments.brief( *story.ended ) );
   return { Tone::plain, text + "." };
}

Sentence underwayLine( WindowStory const & story, Moments const & moments ) {
   std::string const what = story.exitRequested ? "Still leaving"
                            : story.entered     ? "Still in maintenance"
                                                : "Still entering";
   return { Tone::warn, strong( what + " as of " + moments.full( story.asOf ) ) +
                           ". Nothing later is known here; make the page again when it has ended." };
}

// Those profiles by which something was found quiet, each as a person would say it.
std::string valuesText( WindowStory const & story, uint32_t stageNumber ) {
   std::vector<StoryProfile> profiles;
   for( StoryIntf const & intf : story.interfaces ) {
      if( intf.leftOut || !intf.profile || intf.verdictAt( stageNumber ) != "quiet" ) continue;
      if( std::find( profiles.begin(), profiles.end(), *intf.profile ) == profiles.end() ) {
         profiles.push_back( *intf.profile );
      }
   }
   if( profiles.empty() ) return "";
   if( profiles.size() > 1 ) return " Quiet by " + counted( profiles.size(), "profile" ) + ", listed below.";
   StoryProfile const & p = profiles.front();
   return " Quiet means below " + strong( rateText( p.thresholdBitsRate ) ) + " in each direction, sampled every " +
          durationText( p.sampleIntervalSeconds ) + ", for at least " +
          strong( durationText( p.loadIntervalSeconds ) ) + " on end (profile " + nameHtml( p.name ) + ").";
}

// A quiet account is settled by a reading that is the load interval after the beginning of its run, so at the proof
// each run is at least that old.
std::string sinceText( WindowStory const & story, StoryStage const & proof, Moments const & moments ) {
   std::optional<double> shortest;
   for( StoryIntf const & intf : story.interfaces ) {
      if( !intf.profile || intf.verdictAt( proof.number ) != "quiet" ) continue;
      double const needed = intf.profile->loadIntervalSeconds;
      shortest = shortest ? std::min( *shortest, needed ) : needed;
   }
   if( !shortest ) return "";
   return ", quiet since " + at( moments.brief( *proof.ended - *shortest ) ) + " at the latest";
}

Sentence proofLine( WindowStory const & story, Moments const & moments ) {
   if( story.interfaces.empty() )
      return { Tone::plain, strong( "Nothing to prove:" ) + " the unit has no interfaces." };
   StoryStage const * const proof = story.proof();
   if( proof ) {
      std::string const found = tally( story, proof->number );
      std::string text = allLeftOut( story )
                            ? strong( "Nothing was proven:" ) + " every interface was left out of the proof"
                            : strong( "Proven quiet" ) + " at " + at( moments.brief( *proof->ended ) ) +
                                 sinceText( story, *proof, moments );
      if( !found.empty() ) text += ": " + found + ", all at that moment";
      return { allLeftOut( story ) ? Tone::warn : Tone::good, text + "." + valuesText( story, proof->number ) };
   }
   StoryStage const * const last = story.lastOfEntry();
   std::string known = last ? tally( story, last->number ) : "";
   if( !known.empty() ) known = " When " + nameHtml( last->name ) + " ended: " + known + ".";
   if( story.entered ) {
      return { Tone::bad, strong( "Entered without proof:" ) +
                             " nothing here says that the interfaces were quiet when maintenance began." + known };
   }
   bool const open = story.underway() && !story.exitRequested;
   return { open ? Tone::warn : Tone::plain,
            strong( open ? "Not proven quiet yet." : "It was never proven quiet." ) + known };
}

// What a stage that ran out of time led to.
std::string consequence( WindowStory const & story, StoryStage const & stage ) {
   if( stage.result == "running" ) return "it is still being waited for";
   if( stage.result == "done" ) return "it was waited for and ended all the same";
   if( stage.result != "timed out" ) return "it was " + escapedHtml( stage.result );
   if( stage.operation == "exit" ) return "it was given up";
   bool const wentOn = std::any_of( story.stages.begin(), story.stages.end(), [&]( StoryStage const & other ) {
      return other.operation == "enter" && other.number > stage.number;
   } );
   return story.entered || wentOn ? "the entry went on without it" : "the entry was broken off";
}

void addDeadlines( std::vector<Sentence> & lines, WindowStory const & story, Moments const & moments ) {
   for( StoryStage const & stage : story.stages ) {
      if( !stage.late() && stage.result != "failed" ) continue;
      std::string text =
         "Stage " + strong( nameHtml( stage.name ) ) + " of the " + ( stage.operation == "exit" ? "exit " : "entry " );
      if( stage.late() ) {
         auto const when = stage.deadlinePassed ? stage.deadlinePassed : stage.ended;
         text +=
            "ran out of time" + ( when ? " at " + moments.brief( *when ) : "" ) + ": " + consequence( story, stage );
      } else {
         text += "failed" + ( stage.ended ? " at " + moments.brief( *stage.ended ) : "" ) +
                 ( stage.why ? ": " + escapedHtml( *stage.why ) : "" );
      }
      lines.push_back( { Tone::warn, text + "." } );
   }
}

void addTraffic( std::vector<Sentence> & lines, WindowStory const & story ) {
   if( uint64_t const spikes = spikesOf( story ); spikes > 0 ) {
      lines.push_back( { Tone::bad, strong( "Traffic came back " + counted( spikes, "time" ) ) +
                                       " in maintenance, on " + namesHtml( namesWith( story, &StoryIntf::spikes ), 5 ) +
                                       "." } );
   } else if( story.entered && story.proof() && !story.interfaces.empty() ) {
      lines.push_back( { Tone::good, "No traffic was seen to come back in maintenance." } );
   }
   auto const broken = namesWith( story, &StoryIntf::breaks );
   if( broken.empty() ) return;
   uint64_t breaks = 0;
   for( StoryIntf const & intf : story.interfaces ) breaks += intf.breaks;
   lines.push_back( { Tone::plain, "Quiet time was broken " + counted( breaks, "time" ) + ", on " +
                                      namesHtml( broken, 5 ) + ", and began anew each time." } );
}

}  // namespace

char const * toneName( Tone tone ) {
   switch( tone ) {
      case Tone::good: return "good";
      case Tone::plain: return "plain";
      case Tone::warn: return "warn";
      case Tone::bad: return "bad";
   }
   return "";
}

Tone toneOfVerdict( std::string_view verdict ) {
   if( verdict == "quiet" || verdict == "held" || verdict == "down" || verdict == "gone" ) return Tone::good;
   if( verdict == "loud" || verdict == "missing" ) return Tone::bad;
   return Tone::warn;
}

std::string counted( std::size_t n, std::string const & one ) {
   return std::to_string( n ) + " " + one + ( n == 1 ? "" : "s" );
}

std::string namesHtml( std::vector<std::string> const & names, std::size_t most ) {
   std::string text;
   std::size_t const shown = names.size() <= most ? names.size() : most;
   for( std::size_t i = 0; i < shown; ++i ) {
      bool const last = i + 1 == names.size();
      text += ( i == 0 ? "" : last ? " and " : ", " ) + nameHtml( names[i] );
   }
   if( shown < names.size() ) text += " and " + std::to_string( names.size() - shown ) + " more";
   return text;
}

std::string tally( WindowStory const & story, uint32_t stageNumber ) {
   std::map<std::string, std::size_t> counts;
   for( StoryIntf const & intf : story.interfaces ) {
      if( auto const verdict = intf.verdictAt( stageNumber ) ) ++counts[*verdict];
   }
   std::vector<std::pair<std::string, std::size_t>> ordered( counts.begin(), counts.end() );
   std::stable_sort( ordered.begin(), ordered.end(),
                     []( auto const & a, auto const & b ) { return a.second > b.second; } );
   std::string text;
   for( auto const & [verdict, n] : ordered ) {
      text += ( text.empty() ? "" : ", " ) + std::to_string( n ) + " " + escapedHtml( verdict );
   }
   return text;
}

Sentence headline( WindowStory const & story ) {
   bool const proven = story.proof() && !allLeftOut( story );
   bool const unproven = story.entered && !story.proof() && !story.interfaces.empty();
   bool const back = spikesOf( story ) > 0;
   std::size_t const out = story.leftOut().size();
   std::string const doubts = std::string( unproven ? ", entered without proof"
                                           : back   ? ", traffic came back"
                                                    : "" ) +
                              ( out > 0 ? ", " + std::to_string( out ) + " left out" : "" );
   Tone const tone = unproven || back ? Tone::bad : out == 0 ? Tone::good : Tone::warn;
   if( story.underway() ) {
      if( story.exitRequested ) return { doubts.empty() ? Tone::plain : tone, "Leaving maintenance" + doubts };
      if( !story.entered ) return { Tone::plain, "Entering maintenance" };
      return { tone, ( proven ? "In maintenance, proven quiet at its beginning" : "In maintenance" ) + doubts };
   }
   if( story.outcome == "completed" || story.outcome == "deadline" ) {
      std::string const late = story.outcome == "deadline" ? ", after a deadline had passed" : "";
      bool const warned = story.outcome == "deadline" && tone == Tone::good;
      return { warned ? Tone::warn : tone, ( proven ? "Completed, proven quiet" : "Completed" ) + late + doubts };
   }
   if( story.outcome == "rolled back" ) return { Tone::warn, "Rolled back" + doubts };
   if( story.outcome == "failed" ) return { Tone::bad, "Failed on the way back" + doubts };
   if( story.outcome == "abandoned" ) return { Tone::warn, "Abandoned" + doubts };
   return { Tone::warn, escapedHtml( story.outcome ) + doubts };
}

std::vector<Sentence> firstLines( WindowStory const & story, Moments const & moments ) {
   std::vector<Sentence> lines;
   if( story.underway() ) lines.push_back( underwayLine( story, moments ) );
   lines.push_back( requestLine( story, moments ) );
   lines.push_back( proofLine( story, moments ) );
   if( auto const names = story.leftOut(); !names.empty() ) {
      lines.push_back( { Tone::warn, strong( "Left out of the proof on request: " ) + namesHtml( names, 8 ) + " (" +
                                        std::to_string( names.size() ) + " of " +
                                        counted( story.interfaces.size(), "interface" ) + "). Whether " +
                                        ( names.size() == 1 ? "it was" : "they were" ) + " quiet was not asked." } );
   }
   addDeadlines( lines, story, moments );
   addTraffic( lines, story );
   return lines;
}

}  // namespace Report

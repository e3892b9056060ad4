#include "report/WindowTables.h"

#include <algorithm>
#include <vector>

#include "kel/QuantityText.h"
#include "report/Html.h"
#include "report/WindowPicture.h"
#include "report/WindowWords.h"

namespace Report {

namespace {

using Kel::durationText;
using Kel::rateText;

constexpr char const * unknown = "<span class=\"soft\">unknown</span>";
constexpr char const * none = "<span class=\"soft\">–</span>";

// Of one piece on a line.
std::string whole( std::string const & html ) { return element( "span", "class=\"t\"", html ); }

struct Column {
   std::string name;  // escaped
   bool isNumber = false;
};

// Rows whose first cell names them. A cell knows the name of its column, which narrow screens show beside it.
class PageTable {
 public:
   explicit PageTable( std::vector<Column> columns ) : columns_( std::move( columns ) ) {}

   void row( std::vector<std::string> const & cells, bool alert = false ) {
      std::string text;
      for( std::size_t i = 0; i < cells.size(); ++i ) {
         std::string const cls = columns_[i].isNumber ? " class=\"num\"" : "";
         text += i == 0 ? element( "th", "scope=\"row\"" + cls, cells[i] )
                        : element( "td", "data-label=\"" + columns_[i].name + "\"" + cls, cells[i] );
      }
      rows_ += element( "tr", alert ? "class=\"alert\"" : "", text ) + "\n";
   }

   [[nodiscard]] std::string html() const {
      std::string head;
      for( Column const & column : columns_ ) {
         head += element( "th", column.isNumber ? "scope=\"col\" class=\"num\"" : "scope=\"col\"", column.name );
      }
      return element( "table", "class=\"list\"",
                      element( "thead", "", element( "tr", "", head ) ) + "\n" + element( "tbody", "", rows_ ) ) +
             "\n";
   }

 private:
   std::vector<Column> const columns_;
   std::string rows_;
};

char const * shapeOf( std::string_view verdict ) {
   if( verdict == "quiet" ) return "v-good";
   if( verdict == "held" || verdict == "down" || verdict == "gone" ) return "v-down";
   if( verdict == "left out" ) return "v-none";
   return toneOfVerdict( verdict ) == Tone::bad ? "v-bad" : "v-warn";
}

std::string verdictHtml( std::optional<std::string> const & verdict ) {
   if( !verdict ) return none;
   return element( "span", std::string( "class=\"word " ) + toneName( toneOfVerdict( *verdict ) ) + "\"",
                   "<svg aria-hidden=\"true\"><use href=\"#" + std::string( shapeOf( *verdict ) ) + "\"/></svg>" +
                      escapedHtml( *verdict ) );
}

std::string resultHtml( StoryStage const & stage ) {
   bool const bad = stage.result == "failed" || stage.result == "timed out";
   char const * const tone = bad ? "bad" : stage.result == "done" ? "good" : "warn";
   char const * const shape = bad ? "v-bad" : stage.result == "done" ? "v-good" : "v-under";
   return element( "span", std::string( "class=\"word " ) + tone + "\"",
                   "<svg aria-hidden=\"true\"><use href=\"#" + std::string( shape ) + "\"/></svg>" +
                      escapedHtml( stage.result ) ) +
          ( stage.why ? element( "div", "class=\"soft\"", escapedHtml( *stage.why ) ) : "" );
}

std::string peakHtml( std::optional<StoryIntf::Peak> const & peak, double StoryIntf::Peak::*bits, bool proven ) {
   if( !proven ) return none;
   if( !peak ) return "<span class=\"soft\">not measured</span>";
   return ( peak->atMost ? "≤ " : "" ) + rateText( ( *peak ).*bits );
}

std::string stageName( StoryStage const & stage ) {
   return escapedHtml( stage.name + ( stage.operation == "exit" ? " (exit)" : "" ) );
}

std::string numberHtml( uint32_t n ) { return n == 0 ? "0" : element( "strong", "", std::to_string( n ) ); }

// What was shut down or changed its link, as far as it was kept.
std::string countOf( StoryIntf const & intf, std::string_view kind ) {
   auto const n =
      std::count_if( intf.events.begin(), intf.events.end(), [&]( auto const & e ) { return e.kind == kind; } );
   bool const all = intf.totalEvents <= intf.events.size();
   return ( all ? "" : "≥ " ) + std::to_string( n );
}

// Which interface has which profile stands in the table of interfaces, where it matters.
std::string namesOrNumber( std::vector<std::string> const & names ) {
   return names.size() <= 4 ? namesHtml( names, 4 ) : std::to_string( names.size() );
}

bool severalProfiles( WindowStory const & story ) {
   return std::any_of( story.interfaces.begin(), story.interfaces.end(),
                       [&]( auto const & intf ) { return intf.profile != story.interfaces.front().profile; } );
}

struct Happened {
   StoryIntf const * intf;
   StoryEvent const * event;
};

// Of all interfaces, in the order of time.
std::vector<Happened> happened( WindowStory const & story, bool verdicts ) {
   std::vector<Happened> all;
   for( StoryIntf const & intf : story.interfaces ) {
      for( StoryEvent const & event : intf.events ) {
         if( ( event.kind == "verdict" ) == verdicts ) all.push_back( { &intf, &event } );
      }
   }
   std::stable_sort( all.begin(), all.end(),
                     []( Happened const & a, Happened const & b ) { return a.event->time < b.event->time; } );
   return all;
}

std::string eventTable( std::vector<Happened> const & all, Moments const & moments ) {
   PageTable table(
      { { moments.invented() ? "Virtual time" : "Time, UTC" }, { "Interface" }, { "What" }, { "In words" } } );
   for( auto const & [intf, event] : all ) {
      table.row( { whole( moments.brief( event->time ) ), nameHtml( intf->name ),
                   element( "span", "class=\"word\"", markOf( event->kind ) + escapedHtml( event->kind ) ),
                   escapedHtml( event->text ) },
                 event->kind == "spike" );
   }
   return table.html();
}

// Interfaces of which more happened than was kept, and how much that is.
std::string incomplete( WindowStory const & story ) {
   std::string text;
   for( StoryIntf const & intf : story.interfaces ) {
      if( intf.totalEvents <= intf.events.size() ) continue;
      text += ( text.empty() ? "" : ", " ) + nameHtml( intf.name ) + " " + std::to_string( intf.events.size() ) +
              " of " + std::to_string( intf.totalEvents );
   }
   if( text.empty() ) return "";
   return element(
      "p", "class=\"note\"",
      "<strong>Not complete:</strong> of many events the first and the last are kept, verdicts included: " + text +
         "." );
}

}  // namespace

std::string stageTable( WindowStory const & story, Moments const & moments ) {
   if( story.stages.empty() ) return element( "p", "class=\"soft\"", "No stage has begun." ) + "\n";
   PageTable table(
      { { "Stage" }, { "Began" }, { "Took" }, { "Deadline passed" }, { "Result" }, { "Interfaces at its end" } } );
   for( StoryStage const & stage : story.stages ) {
      std::string const took =
         whole( durationText( stage.ended.value_or( story.end() ) - stage.began ) ) + ( stage.ended ? "" : " so far" );
      // A stage whose deadline was its end has no time of its own for it.
      auto const passed = stage.deadlinePassed ? stage.deadlinePassed : stage.late() ? stage.ended : std::nullopt;
      std::string const deadline = passed ? markOf( "deadline" ) + whole( moments.brief( *passed ) ) : none;
      std::string const found = tally( story, stage.number );
      table.row(
         { nameHtml( stage.name ) + ( stage.operation == "exit" ? " <span class=\"soft\">exit</span>" : "" ),
           whole( moments.brief( stage.began ) ), took, deadline, resultHtml( stage ), found.empty() ? none : found },
         stage.late() || stage.result == "failed" );
   }
   return table.html();
}

std::string profileTable( WindowStory const & story ) {
   struct Use {
      StoryProfile profile;
      std::vector<std::string> names;
   };
   std::vector<Use> uses;
   std::vector<std::string> without;
   for( StoryIntf const & intf : story.interfaces ) {
      if( !intf.profile ) {
         without.push_back( intf.name );
         continue;
      }
      auto const same =
         std::find_if( uses.begin(), uses.end(), [&]( Use const & u ) { return u.profile == *intf.profile; } );
      Use & use = same == uses.end() ? uses.emplace_back( Use{ *intf.profile, {} } ) : *same;
      use.names.push_back( intf.name );
   }
   PageTable table(
      { { "Profile" }, { "Threshold", true }, { "Sampled every", true }, { "Quiet for", true }, { "Interfaces" } } );
   for( auto const & [profile, names] : uses ) {
      std::string const shuts = profile.shutdown ? " <span class=\"soft\">with shutdown</span>" : "";
      table.row( { nameHtml( profile.name ) + shuts, rateText( profile.thresholdBitsRate ),
                   durationText( profile.sampleIntervalSeconds ), durationText( profile.loadIntervalSeconds ),
                   namesOrNumber( names ) } );
   }
   if( !without.empty() ) table.row( { unknown, unknown, unknown, unknown, namesOrNumber( without ) } );
   return table.html() +
          element( "p", "class=\"note\"",
                   "As last in force. A change of a threshold breaks quiet time and stands among the "
                   "events." ) +
          "\n";
}

std::string interfaceTable( WindowStory const & story ) {
   if( story.interfaces.empty() ) return element( "p", "class=\"soft\"", "The unit has no interfaces." ) + "\n";
   // A column for each stage, as long as they fit.
   bool const apart = story.stages.size() <= 6;
   std::vector<Column> columns{ { "Interface" } };
   for( StoryStage const & stage : story.stages ) {
      if( apart ) columns.push_back( { stageName( stage ) } );
   }
   if( !apart ) columns.push_back( { "Verdict when each stage ended" } );
   bool const profiles = severalProfiles( story );
   if( profiles ) columns.push_back( { "Profile" } );
   columns.push_back( { "Peak in after proof", true } );
   columns.push_back( { "Peak out after proof", true } );
   for( char const * name : { "Breaks", "Spikes", "Link changes", "Shutdowns" } ) columns.push_back( { name, true } );
   PageTable table( std::move( columns ) );
   for( StoryIntf const * const intf : story.worstFirst() ) {
      std::vector<std::string> cells{ nameHtml( intf->name ) +
                                      ( intf->leftOut ? " <span class=\"word warn\">left out</span>" : "" ) +
                                      ( intf->seen ? "" : " <span class=\"word bad\">never seen</span>" ) };
      std::string all;
      for( StoryStage const & stage : story.stages ) {
         std::string const verdict = verdictHtml( intf->verdictAt( stage.number ) );
         if( apart ) cells.push_back( verdict );
         all += ( all.empty() ? "" : ", " ) + stageName( stage ) + " " + verdict;
      }
      if( !apart ) cells.push_back( all );
      if( profiles ) cells.push_back( intf->profile ? nameHtml( intf->profile->name ) : unknown );
      auto const peak = story.peakAfterProof( *intf );
      bool const proven = story.proven().has_value() && !intf->leftOut;
      cells.push_back( peakHtml( peak, &StoryIntf::Peak::inBits, proven ) );
      cells.push_back( peakHtml( peak, &StoryIntf::Peak::outBits, proven ) );
      cells.push_back( numberHtml( intf->breaks ) );
      cells.push_back( numberHtml( intf->spikes ) );
      cells.push_back( countOf( *intf, "link" ) );
      cells.push_back( countOf( *intf, "shutdown" ) );
      auto const last = intf->lastVerdict();
      table.row( cells, intf->spikes > 0 || ( last && toneOfVerdict( *last ) == Tone::bad ) );
   }
   return table.html() +
          element(
             "p", "class=\"note\"",
             "Worst first. Below a stage stands what was known of the interface when it ended. A peak after the proof "
             "is "
             "the highest rate of a sample from the proof to the request to leave; “≤” where the time that was kept "
             "as one reaches beyond that." ) +
          "\n";
}

std::string eventTables( WindowStory const & story, Moments const & moments ) {
   auto const events = happened( story, false ), verdicts = happened( story, true );
   std::string text = incomplete( story );
   text += events.empty() ? element( "p", "", "No break, spike, link change or shutdown is on record." ) + "\n"
                          : eventTable( events, moments );
   if( verdicts.empty() ) return text;
   return text + element( "details", "",
                          element( "summary", "", counted( verdicts.size(), "change" ) + " of verdicts" ) +
                             eventTable( verdicts, moments ) );
}

}  // namespace Report

#include "tables/Report.h"

#include <set>

#include "kel/QuantityText.h"
#include "tables/Words.h"

namespace Cli {

namespace {

Clocks clocksOf( Object const & window ) {
   return { number( window, "asOf" ).value_or( 0 ), number( window, "wallClockOffset" ) };
}

std::string tookCell( Object const & stage, char const * member, Clocks const & clocks ) {
   auto const began = number( stage, "began" );
   if( !began ) return "-";
   auto const ended = number( stage, member );
   return ended ? spanText( *ended - *began ) : spanText( clocks.now - *began ) + " so far";
}

std::string profileCell( Object const & intf, char const * member, Clocks const & clocks ) {
   auto const * const profile = inner( intf, member );
   return profile ? plainCell( *profile, "profile", clocks ) : "-";
}

std::string thresholdCell( Object const & intf, char const * member, Clocks const & clocks ) {
   auto const * const profile = inner( intf, member );
   return profile ? rateCell( *profile, "thresholdBitsRate", clocks ) + " for " +
                       spanCell( *profile, "loadIntervalSeconds", clocks )
                  : "-";
}

// Lists are in the order of time.
std::string lastVerdictCell( Object const & intf, char const * member, Clocks const & clocks ) {
   auto const & verdicts = list( intf, member );
   return verdicts.empty() ? "-" : plainCell( object( verdicts.back() ), "verdict", clocks );
}

std::string lastRatesCell( Object const & intf, char const * member, Clocks const & clocks ) {
   auto const & rates = list( intf, member );
   if( rates.empty() ) return "-";
   auto const & last = object( rates.back() );
   return "in " + rateCell( last, "inMean", clocks ) + ", out " + rateCell( last, "outMean", clocks );
}

constexpr Column stageTable[] = {
   { "STAGE", "stage", plainCell },   { "OF", "operation", plainCell },
   { "BEGAN", "began", clockCell },   { "TOOK", "ended", tookCell },
   { "RESULT", "result", plainCell }, { "DEADLINE PASSED", "deadlinePassed", clockCell },
   { "WHY", "why", plainCell },
};

constexpr Column windowInterfaceTable[] = {
   { "INTERFACE", "interface", plainCell },
   { "LEFT OUT", "leftOut", yesCell },
   { "PROFILE", "profile", profileCell },
   { "THRESHOLD", "profile", thresholdCell },
   { "AFTER THE ENTRY", "verdicts", lastVerdictCell },
   { "LAST RATES", "rates", lastRatesCell },
   { "BREAKS", "breaks", plainCell },
   { "SPIKES", "spikes", plainCell },
};

constexpr Column windowEventTable[] = {
   { "TIME", "time", clockCell },
   { "WHAT", "kind", plainCell },
   { "DETAILS", "text", plainCell },
};

void printMoment( std::ostream & out, char const * what, Object const & window, char const * when,
                  char const * who = nullptr ) {
   auto const time = number( window, when );
   if( !time ) return;
   out << "  " << what << clockText( *time, clocksOf( window ) );
   std::string const user = who ? text( window, who ) : "";
   out << ( user.empty() ? "" : " by " + user ) << "\n";
}

// The interfaces with the verdicts that they had when a stage of the entry ended. Those of the exit, when nobody
// samples any more, say nothing about the stay.
boost::json::array interfacesAsEntered( Object const & window ) {
   std::set<std::string> entry;
   for( auto const & stage : list( window, "stages" ) ) {
      if( text( object( stage ), "operation" ) == "enter" ) entry.insert( text( object( stage ), "number" ) );
   }
   boost::json::array interfaces;
   for( auto const & value : list( window, "interfaces" ) ) {
      Object intf = object( value );
      boost::json::array verdicts;
      for( auto const & verdict : list( intf, "verdicts" ) ) {
         if( entry.contains( text( object( verdict ), "stageNumber" ) ) ) verdicts.push_back( verdict );
      }
      intf["verdicts"] = verdicts;
      interfaces.push_back( intf );
   }
   return interfaces;
}

// What happened to one interface, but for its changes of verdict, which the others explain.
void printEvents( std::ostream & out, Object const & intf, Clocks const & clocks ) {
   boost::json::array events;
   for( auto const & event : list( intf, "events" ) ) {
      if( text( object( event ), "kind" ) != "verdict" ) events.push_back( event );
   }
   if( events.empty() ) return;
   out << "\n" << text( intf, "interface" ) << "\n";
   printTable( out, windowEventColumns, events, clocks, "  " );
   auto const kept = list( intf, "events" ).size();
   auto const all = number( intf, "totalEvents" ).value_or( 0 );
   if( all > static_cast<double>( kept ) ) {
      out << "  " << kept << " of " << Kel::numberText( all, 0 ) << " events are kept: the first and the last\n";
   }
}

// "stage verify: timed out", "stage bgp: failed: exit status 1"; empty for one that ended well, was left, or goes on.
std::string troubleText( Object const & stage ) {
   std::string const result = text( stage, "result" );
   bool const trouble = result == "timed out" || result == "failed";
   std::string const why = text( stage, "why" );
   return trouble ? "stage " + text( stage, "stage" ) + ": " + result + ( why.empty() ? "" : ": " + why ) : "";
}

}  // namespace

Columns const stageColumns = stageTable;
Columns const windowInterfaceColumns = windowInterfaceTable;
Columns const windowEventColumns = windowEventTable;

void printReport( std::ostream & out, Object const & window ) {
   Clocks const clocks = clocksOf( window );
   out << "unit " << text( window, "unit" ) << ", generation " << text( window, "generation" ) << ": "
       << word( text( window, "outcome" ) ) << "\n";
   printMoment( out, "asked to enter  ", window, "requested", "requestedBy" );
   printMoment( out, "in maintenance  ", window, "entered" );
   printMoment( out, "asked to leave  ", window, "exitRequested", "exitRequestedBy" );
   printMoment( out, "ended           ", window, "ended" );
   if( std::string const unproven = unprovenText( window ); !unproven.empty() )
      out << "  UNPROVEN: " << unproven << "\n";
   out << "\n";
   printTable( out, stageColumns, list( window, "stages" ), clocks );
   out << "\n";
   printTable( out, windowInterfaceColumns, interfacesAsEntered( window ), clocks );
   for( auto const & intf : list( window, "interfaces" ) ) printEvents( out, object( intf ), clocks );
}

std::string unprovenText( Object const & window ) {
   std::string stages;
   for( auto const & value : list( window, "stages" ) ) {
      Object const & stage = object( value );
      if( text( stage, "operation" ) != "enter" ) continue;
      // The proof is this stage's business: where it is done, it does not matter what others have missed.
      if( text( stage, "stage" ) == "verify" && text( stage, "result" ) == "done" ) return "";
      std::string const trouble = troubleText( stage );
      if( !trouble.empty() ) stages += ( stages.empty() ? "" : "; " ) + trouble;
   }
   return stages;
}

std::string turnedBackText( Object const & window, char const * operation ) {
   // The last stage decides: one before it may have run out of time and been gone past.
   Object const * last = nullptr;
   for( auto const & value : list( window, "stages" ) ) {
      if( text( object( value ), "operation" ) == operation ) last = &object( value );
   }
   if( std::string const trouble = last ? troubleText( *last ) : ""; !trouble.empty() ) return trouble;
   if( std::string( operation ) != "enter" || !number( window, "exitRequested" ) ) return "";
   std::string const user = text( window, "exitRequestedBy" );
   return "it was asked to leave" + ( user.empty() ? "" : " by " + user );
}

}  // namespace Cli

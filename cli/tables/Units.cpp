#include "tables/Units.h"

#include <algorithm>

#include "kel/QuantityText.h"
#include "tables/Words.h"
#include "tables/Worst.h"

namespace Cli {

namespace json = boost::json;

namespace {

// A unit, or the answer about its readiness.
Clocks clocksOfAnswer( Object const & answer ) { return { number( answer, "now" ).value_or( 0 ), std::nullopt }; }

bool underProof( Object const & unit ) {
   std::string const state = text( unit, "state" );
   return state == "entering" || state == "inMaintenance";
}

std::size_t settledCount( Object const & unit ) {
   std::size_t count = 0;
   for( auto const & intf : list( unit, "interfaces" ) ) count += yes( object( intf ), "settled" ) ? 1 : 0;
   return count;
}

// More names than these make no line that anybody reads to its end.
constexpr std::size_t mostNames = 10;
// As many interfaces are shown where not all are asked for.
constexpr std::size_t mostRows = 10;

// Interfaces of which `holds`, "a, b".
template<class Holds>
std::string interfacesOf( Object const & unit, Holds const & holds, std::size_t most = mostNames ) {
   std::vector<std::string> names;
   for( auto const & value : list( unit, "interfaces" ) ) {
      Object const & intf = object( value );
      if( holds( intf ) ) names.push_back( text( intf, "interface" ) );
   }
   return listed( names, most );
}

// What made a unit disturbed may be loud still, or not have been heard of since.
std::string disturbance( Object const & unit ) {
   std::string const loud = interfacesOf( unit, []( auto const & intf ) { return text( intf, "verdict" ) == "loud"; } );
   if( !loud.empty() ) return "DISTURBED: traffic is back on " + loud;
   std::string const waiting = interfacesOf(
      unit, []( auto const & intf ) { return text( intf, "verdict" ) == "waiting" && inner( intf, "lastLoud" ); } );
   return "DISTURBED: traffic was back" +
          ( waiting.empty() ? "" : " on " + waiting + ", and it is not known whether it has gone" );
}

std::string provenText( Object const & answer ) {
   auto const provenUntil = number( answer, "provenUntil" );
   if( !provenUntil ) return "ready";
   return "ready, proven quiet up to " + spanText( clocksOfAnswer( answer ).now - *provenUntil ) + " ago";
}

std::string readinessCell( Object const & unit, char const *, Clocks const & ) {
   std::string readiness = readinessText( unit );
   std::string const note = text( unit, "note" );
   if( !readiness.empty() && !note.empty() ) readiness += "; ";
   readiness += note;
   return readiness.empty() ? "-" : readiness;
}

std::string loudCell( Object const & intf, char const * member, Clocks const & clocks ) {
   auto const * const loud = inner( intf, member );
   if( !loud ) return "-";
   return plainCell( *loud, "direction", clocks ) + " " + rateCell( *loud, "bitsRate", clocks ) + ", " +
          agoCell( *loud, "time", clocks );
}

std::string forCell( Object const & intf, char const * member, Clocks const & clocks ) {
   auto const since = number( intf, member );
   return since ? spanText( clocks.now - *since ) : "-";
}

// What came back and has gone again is worth knowing before a cable is pulled.
std::string accountCell( Object const & intf, char const * member, Clocks const & clocks ) {
   std::string why = text( intf, member );
   auto const spikes = number( intf, "spikes" );
   if( spikes.value_or( 0 ) > 0 && text( intf, "verdict" ) != "loud" && inner( intf, "lastLoud" ) ) {
      why += ( why.empty() ? "" : "; " ) + std::string( "traffic was back " ) +
             counted( static_cast<std::size_t>( *spikes ), "time" ) + ", last " + loudCell( intf, "lastLoud", clocks );
   }
   return why.empty() ? "-" : why;
}

std::string linkCell( Object const & intf, char const * member, Clocks const & clocks ) {
   std::string const link = plainCell( intf, member, clocks );
   return yes( intf, "shutDown" ) ? link + ", held" : link;
}

std::string soonCell( Object const & intf, char const * member, Clocks const & ) {
   std::string const pace = text( intf, member );
   if( pace.empty() ) return "-";
   if( pace != "slow" ) return pace;
   // By when, the reason says, as roughly as it is known.
   return number( intf, "quietInSeconds" ) ? "falling" : "falling slowly";
}

std::string neededCell( Object const & intf, char const * member, Clocks const & ) {
   auto const seconds = number( intf, member );
   if( !seconds ) return "-";
   return *seconds > 0 ? neededText( *seconds ) : "nothing";
}

constexpr Column unitTable[] = {
   { "UNIT", "unit", plainCell },      { "STATE", "state", wordCell },  { "FOR", "since", forCell },
   { "BY", "requestedBy", plainCell }, { "STAGE", "stage", plainCell }, { "READINESS", "ready", readinessCell },
};

constexpr Column accountTable[] = {
   { "INTERFACE", "interface", plainCell },
   { "VERDICT", "verdict", plainCell },
   { "FOR", "since", forCell },
   { "WHY", "why", accountCell },
};

constexpr Column explainedTable[] = {
   { "verdict", "verdict", plainCell },
   { "since", "since", agoCell },
   { "why", "why", plainCell },
   { "settled", "settled", yesNoCell },
   { "still needed", "stillNeededSeconds", neededCell },
   { "traffic is", "pace", soonCell },
   { "quiet since", "quietSince", agoCell },
   { "last reading in", "inBitsRate", rateCell },
   { "last reading out", "outBitsRate", rateCell },
   { "threshold", "thresholdBitsRate", rateCell },
   { "load interval", "loadIntervalSeconds", spanCell },
   { "last loud", "lastLoud", loudCell },
   { "runs broken", "breaks", plainCell },
   { "spikes", "spikes", plainCell },
};

constexpr Column interfaceTable[] = {
   { "INTERFACE", "interface", plainCell },
   { "LINK", "operStatus", linkCell },
   { "MONITORING", "monitoring", wordCell },
   { "PROFILE", "profile", plainCell },
   { "IN", "inBitsRate", rateCell },
   { "OUT", "outBitsRate", rateCell },
   { "LAST SAMPLE", "lastSampleSecondsAgo", spanCell },
   { "UNITS", "units", namesCell },
};

// "unit fabric: entering, generation 3, for 12 s, asked for by alice"
void printHeadline( std::ostream & out, Object const & unit ) {
   out << "unit " << text( unit, "unit" ) << ": " << word( text( unit, "state" ) ) << ", generation "
       << text( unit, "generation" );
   if( auto const since = number( unit, "since" ) ) out << ", for " << spanText( clocksOfAnswer( unit ).now - *since );
   if( std::string const user = text( unit, "requestedBy" ); !user.empty() ) out << ", asked for by " << user;
   out << "\n";
}

void printAccount( std::ostream & out, Object const & intf, Clocks const & clocks ) {
   bool const judged = !text( intf, "verdict" ).empty();
   out << "  interface " << text( intf, "interface" ) << ( judged ? "" : ": nothing is to be proven of it now" )
       << "\n";
   if( judged ) printRow( out, explainedColumns, intf, clocks, "    " );
}

void printRemarks( std::ostream & out, Object const & unit ) {
   auto const line = [&]( std::string const & what, std::string const & text ) {
      if( !text.empty() ) out << "  " << what << text << "\n";
   };
   line( "", readinessText( unit ) );
   line( "stage under way: ", text( unit, "stage" ) );
   line( "left out of the proof: ", listed( texts( unit, "without" ), mostNames ) );
   line( "", text( unit, "note" ) );
}

}  // namespace

Columns const unitColumns = unitTable;
Columns const accountColumns = accountTable;
Columns const explainedColumns = explainedTable;
Columns const interfaceColumns = interfaceTable;

std::string readinessText( Object const & unit ) {
   if( !underProof( unit ) ) return "";
   if( yes( unit, "disturbed" ) ) return disturbance( unit );
   if( yes( unit, "ready" ) ) return provenText( unit );
   std::size_t const all = list( unit, "interfaces" ).size();
   return "not ready: " + std::to_string( all - settledCount( unit ) ) + " of " + std::to_string( all ) +
          ( all == 1 ? " interface" : " interfaces" ) + " not settled";
}

void printUnits( std::ostream & out, Object const & answer ) {
   // The units of one answer are of one moment.
   auto const & units = list( answer, "units" );
   printTable( out, unitColumns, units, units.empty() ? Clocks() : clocksOfAnswer( object( units.front() ) ) );
}

void printInterfaces( std::ostream & out, Object const & answer ) {
   printTable( out, interfaceColumns, list( answer, "interfaces" ), {} );
}

void printStatus( std::ostream & out, Object const & unit, bool all ) {
   printHeadline( out, unit );
   printRemarks( out, unit );
   auto judged = worstFirst( unit );
   // Outside maintenance nothing is known of them, and a table of dashes says no more than their names.
   if( judged.empty() ) {
      std::size_t const most = all ? list( unit, "interfaces" ).size() : mostNames;
      std::string const names = interfacesOf(
         unit, []( auto const & ) { return true; }, most );
      out << "  interfaces: " << ( names.empty() ? "none" : names ) << "\n";
      return;
   }
   // One that is left out would not take more room than the words for it.
   std::size_t const shown = all || judged.size() <= mostRows + 1 ? judged.size() : mostRows;
   std::vector<Object const *> const rest( judged.begin() + static_cast<std::ptrdiff_t>( shown ), judged.end() );
   judged.resize( shown );
   printTable( out, accountColumns, judged, clocksOfAnswer( unit ), "  " );
   if( rest.empty() ) return;
   out << "  ... and " << rest.size() << " more: " << standings( rest ) << "; all with --all\n";
}

void printExplained( std::ostream & out, Object const & answer ) {
   for( auto const & each : list( answer, "units" ) ) {
      Object const & unit = object( each );
      printHeadline( out, unit );
      for( auto const & value : list( unit, "interfaces" ) )
         printAccount( out, object( value ), clocksOfAnswer( unit ) );
   }
}

void printReady( std::ostream & out, Object const & answer ) {
   std::string const unready = yes( answer, "disturbed" ) ? "not ready: DISTURBED, traffic is back" : "not ready";
   out << "unit " << text( answer, "unit" ) << " is " << ( yes( answer, "ready" ) ? provenText( answer ) : unready )
       << "\n";
   auto const reasons = texts( answer, "why" );
   std::size_t const shown = reasons.size() <= mostRows + 1 ? reasons.size() : mostRows;
   for( std::size_t i = 0; i < shown; ++i ) out << "  " << reasons[i] << "\n";
   if( shown == reasons.size() ) return;
   out << "  ... and " << reasons.size() - shown << " more; the worst with maintctl status " << text( answer, "unit" )
       << ", all with --all\n";
}

}  // namespace Cli

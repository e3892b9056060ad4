#include "tables/Units.h"

#include "kel/QuantityText.h"

namespace Cli {

namespace json = boost::json;

namespace {

// A unit, or the answer about its readiness.
Clocks clocksOf( Object const & answer ) { return { number( answer, "now" ).value_or( 0 ), std::nullopt }; }

bool underProof( Object const & unit ) {
   std::string const state = text( unit, "state" );
   return state == "entering" || state == "inMaintenance";
}

std::size_t settledCount( Object const & unit ) {
   std::size_t count = 0;
   for( auto const & intf : list( unit, "interfaces" ) ) count += yes( object( intf ), "settled" ) ? 1 : 0;
   return count;
}

// Interfaces of which `holds`, "a, b".
template<class Holds>
std::string interfacesOf( Object const & unit, Holds const & holds ) {
   std::string names;
   for( auto const & value : list( unit, "interfaces" ) ) {
      Object const & intf = object( value );
      if( holds( intf ) ) names += ( names.empty() ? "" : ", " ) + text( intf, "interface" );
   }
   return names;
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
   return "ready, proven quiet up to " + spanText( clocksOf( answer ).now - *provenUntil ) + " ago";
}

std::string readinessCell( Object const & unit, char const *, Clocks const & ) {
   std::string const readiness = readinessText( unit );
   return readiness.empty() ? "-" : readiness;
}

std::string neededCell( Object const & intf, char const * member, Clocks const & ) {
   auto const seconds = number( intf, member );
   if( !seconds ) return "-";
   return *seconds > 0 ? neededText( *seconds ) : "nothing";
}

std::string loudCell( Object const & intf, char const * member, Clocks const & clocks ) {
   auto const * const loud = inner( intf, member );
   if( !loud ) return "-";
   return plainCell( *loud, "direction", clocks ) + " " + rateCell( *loud, "bitsRate", clocks ) + ", " +
          agoCell( *loud, "time", clocks );
}

constexpr Column unitTable[] = {
   { "UNIT", "unit", plainCell },           { "STATE", "state", plainCell },
   { "SINCE", "since", agoCell },           { "GENERATION", "generation", plainCell },
   { "BY", "requestedBy", plainCell },      { "STAGE", "stage", plainCell },
   { "READINESS", "ready", readinessCell }, { "NOTE", "note", plainCell },
};

constexpr Column accountTable[] = {
   { "INTERFACE", "interface", plainCell },
   { "VERDICT", "verdict", plainCell },
   { "SINCE", "since", agoCell },
   { "IN", "inBitsRate", rateCell },
   { "OUT", "outBitsRate", rateCell },
   { "THRESHOLD", "thresholdBitsRate", rateCell },
   { "STILL NEEDED", "stillNeededSeconds", neededCell },
   { "LAST LOUD", "lastLoud", loudCell },
   { "WHY", "why", plainCell },
};

constexpr Column explainedTable[] = {
   { "verdict", "verdict", plainCell },
   { "since", "since", agoCell },
   { "why", "why", plainCell },
   { "settled", "settled", plainCell },
   { "still needed", "stillNeededSeconds", neededCell },
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
   { "INTERFACE", "interface", plainCell },   { "LINK", "operStatus", plainCell },
   { "MONITORING", "monitoring", plainCell }, { "SHUT DOWN", "shutDown", yesCell },
   { "PROFILE", "profile", plainCell },       { "IN", "inBitsRate", rateCell },
   { "OUT", "outBitsRate", rateCell },        { "THRESHOLD", "thresholdBitsRate", rateCell },
   { "SAMPLES", "totalSamples", plainCell },  { "LAST SAMPLE", "lastSampleSecondsAgo", spanCell },
   { "UNITS", "units", namesCell },
};

// "unit fabric: entering, generation 3, for 12 s, asked for by alice"
void printHeadline( std::ostream & out, Object const & unit ) {
   out << "unit " << text( unit, "unit" ) << ": " << text( unit, "state" ) << ", generation "
       << text( unit, "generation" );
   if( auto const since = number( unit, "since" ) ) out << ", for " << spanText( clocksOf( unit ).now - *since );
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
   line( "left out of the proof: ", namesText( unit, "without" ) );
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
   printTable( out, unitColumns, units, units.empty() ? Clocks() : clocksOf( object( units.front() ) ) );
}

void printInterfaces( std::ostream & out, Object const & answer ) {
   printTable( out, interfaceColumns, list( answer, "interfaces" ), {} );
}

void printStatus( std::ostream & out, Object const & unit ) {
   printHeadline( out, unit );
   printRemarks( out, unit );
   auto const & interfaces = list( unit, "interfaces" );
   // Outside maintenance nothing is known of them, and a table of dashes says no more than their names.
   std::string const judged =
      interfacesOf( unit, []( auto const & intf ) { return !text( intf, "verdict" ).empty(); } );
   if( !judged.empty() ) return printTable( out, accountColumns, interfaces, clocksOf( unit ), "  " );
   std::string const names = interfacesOf( unit, []( auto const & ) { return true; } );
   out << "  interfaces: " << ( names.empty() ? "none" : names ) << "\n";
}

void printExplained( std::ostream & out, Object const & answer ) {
   for( auto const & each : list( answer, "units" ) ) {
      Object const & unit = object( each );
      printHeadline( out, unit );
      for( auto const & value : list( unit, "interfaces" ) ) printAccount( out, object( value ), clocksOf( unit ) );
   }
}

void printReady( std::ostream & out, Object const & answer ) {
   std::string const unready = yes( answer, "disturbed" ) ? "not ready: DISTURBED, traffic is back" : "not ready";
   out << "unit " << text( answer, "unit" ) << " is " << ( yes( answer, "ready" ) ? provenText( answer ) : unready )
       << "\n";
   for( std::string const & reason : texts( answer, "why" ) ) out << "  " << reason << "\n";
}

Progress progress( Object const & unit ) {
   std::string const state = text( unit, "state" );
   std::string const stage = text( unit, "stage" );
   Progress now;
   now.stands = state + "/" + stage;
   now.told = state + ( stage.empty() ? "" : ", stage " + stage );
   // On its way out it waits for none of them.
   if( !underProof( unit ) ) return now;
   auto const & interfaces = list( unit, "interfaces" );
   now.told +=
      ", " + std::to_string( settledCount( unit ) ) + " of " + std::to_string( interfaces.size() ) + " settled";
   for( auto const & value : interfaces ) {
      Object const & intf = object( value );
      bool const settled = yes( intf, "settled" );
      std::string const verdict = text( intf, "verdict" );
      now.stands += "/" + verdict + ( settled ? " settled" : "" );
      // Those that wait for nothing are counted above.
      if( settled ) continue;
      std::string const why = text( intf, "why" );
      now.told += "; " + text( intf, "interface" ) + ": " + verdict + ( why.empty() ? "" : ", " + why );
   }
   return now;
}

}  // namespace Cli

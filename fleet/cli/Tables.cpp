#include "cli/Tables.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "tables/Printable.h"
#include "tables/Table.h"
#include "tables/Words.h"

namespace Fleet {

using Cli::Clocks;
using Cli::Kind;
using Cli::list;
using Cli::Needed;
using Cli::number;
using Cli::object;
using Cli::Object;
using Cli::text;

namespace {

// As many names, and as many units, as somebody reads.
constexpr std::size_t mostTold = 10;
constexpr std::size_t mostUnitsTold = 40;

std::string of( double some, double all ) {
   return std::to_string( static_cast<long>( some ) ) + " of " + std::to_string( static_cast<long>( all ) );
}

std::string waveCell( Object const & row, char const *, Clocks const & ) {
   return of( number( row, "wave" ).value_or( 0 ), number( row, "waves" ).value_or( 0 ) );
}

std::string doneCell( Object const & row, char const *, Clocks const & ) {
   return of( number( row, "done" ).value_or( 0 ), number( row, "units" ).value_or( 0 ) );
}

double outCount( Object const & group ) { return static_cast<double>( list( group, "out" ).size() ); }

std::string outCell( Object const & row, char const *, Clocks const & ) {
   return of( outCount( row ), number( row, "units" ).value_or( 0 ) );
}

// "s1a/fabric (draining by plan-3)", each.
std::string whoCell( Object const & row, char const * member, Clocks const & ) {
   std::vector<std::string> who;
   for( auto const & unit : list( row, member ) )
      who.push_back( text( object( unit ), "unit" ) + " (" + text( object( unit ), "why" ) + ")" );
   return who.empty() ? "-" : Cli::listed( who, mostTold );
}

std::string wouldCell( Object const & row, char const *, Clocks const & ) {
   return of( number( row, "wouldBeOut" ).value_or( 0 ), number( row, "units" ).value_or( 0 ) );
}

std::string heardCell( Object const & row, char const * member, Clocks const & clocks ) {
   return number( row, member ) ? Cli::agoCell( row, member, clocks ) : "never";
}

// None of none would read as if nothing were in the way.
std::string settledCell( Object const & row, char const *, Clocks const & ) {
   double const all = number( row, "interfaces" ).value_or( 0 );
   return all > 0 ? of( number( row, "settled" ).value_or( 0 ), all ) : "-";
}

constexpr Cli::Column planColumns[] = { { "PLAN", "plan", Cli::plainCell }, { "STATE", "state", Cli::plainCell },
                                        { "WAVE", "wave", waveCell },       { "DONE", "done", doneCell },
                                        { "BY", "by", Cli::plainCell },     { "MADE", "made", Cli::clockCell },
                                        { "WHY", "why", Cli::plainCell } };
constexpr Cli::Column fullColumns[] = { { "GROUP", "group", Cli::plainCell },
                                        { "BUDGET", "budget", Cli::plainCell },
                                        { "OUT", "out", outCell },
                                        { "WHO", "out", whoCell } };
constexpr Cli::Column silentColumns[] = { { "BOX", "box", Cli::plainCell }, { "HEARD", "heard", heardCell } };
constexpr Cli::Column brakeColumns[] = {
   { "SITE", "site", Cli::plainCell }, { "BY", "by", Cli::plainCell }, { "SINCE", "since", Cli::clockCell } };
constexpr Cli::Column memberColumns[] = {
   { "WAVE", "wave", Cli::plainCell }, { "UNIT", "unit", Cli::plainCell },      { "STEP", "step", Cli::plainCell },
   { "SINCE", "since", Cli::agoCell }, { "LEFT OUT", "leftOut", Cli::yesCell }, { "FAULT", "fault", Cli::plainCell } };
constexpr Cli::Column unitColumns[] = { { "UNIT", "unit", Cli::plainCell }, { "STATE", "state", Cli::wordCell },
                                        { "OUT", "out", Cli::yesCell },     { "QUIET", "settled", settledCell },
                                        { "READY", "ready", Cli::yesCell }, { "WHY", "why", Cli::plainCell } };
constexpr Cli::Column outColumns[] = {
   { "UNIT", "unit", Cli::plainCell }, { "STATE", "state", Cli::wordCell }, { "WHY", "why", Cli::plainCell } };
constexpr Cli::Column unsettledColumns[] = { { "INTERFACE", "interface", Cli::plainCell },
                                             { "VERDICT", "verdict", Cli::wordCell },
                                             { "RATE", "bitsRate", Cli::rateCell },
                                             { "WHY", "why", Cli::plainCell } };
constexpr Cli::Column roomColumns[] = { { "GROUP", "group", Cli::plainCell },
                                        { "BUDGET", "budget", Cli::plainCell },
                                        { "WOULD BE OUT", "wouldBeOut", wouldCell },
                                        { "ENOUGH", "enough", Cli::yesNoCell },
                                        { "OUT NOW", "who", whoCell } };

// "pair: s1 1 of 1", each: how many were out of those that may be.
std::string budgetsCell( Object const & row, char const * member, Clocks const & ) {
   if( !row.contains( member ) ) return "-";
   std::vector<std::string> groups;
   for( auto const & group : list( row, member ) )
      groups.push_back(
         text( object( group ), "group" ) + " " +
         of( number( object( group ), "out" ).value_or( 0 ), number( object( group ), "mayBeOut" ).value_or( 0 ) ) );
   return Cli::listed( groups, mostTold );
}

constexpr Cli::Column historyColumns[] = { { "TIME", "time", Cli::clockCell },
                                           { "WHAT", "what", Cli::plainCell },
                                           { "BY", "by", Cli::plainCell },
                                           { "OUT OF MAY BE", "budgets", budgetsCell },
                                           { "SAID", "text", Cli::plainCell } };

// Of the fleet's own times, which are Unix time.
Clocks clocksAt( double now ) { return { now, 0.0 }; }

// With a heading, and nothing at all where there are no rows.
void printSection( std::ostream & out, char const * heading, Cli::Columns columns,
                   std::vector<Object const *> const & rows, double now ) {
   if( rows.empty() ) return;
   out << "\n" << heading << "\n";
   Cli::printTable( out, columns, rows, clocksAt( now ), "  " );
}

template<class Wanted>
std::vector<Object const *> rowsOf( Object const & answer, char const * member, Wanted const & wanted ) {
   std::vector<Object const *> rows;
   for( auto const & row : list( answer, member ) ) {
      if( wanted( object( row ) ) ) rows.push_back( &object( row ) );
   }
   return rows;
}

// What it says of its units is so now.
bool isBelieved( Object const & box ) { return !Cli::yes( box, "silent" ) && text( box, "trouble" ).empty(); }

// The units of a box, each with its box's name before its own where it is one of a fleet's. Of one that is silent, or
// not to be believed, it is not known how they are: somebody might pull a cable for what it said last.
std::vector<Object> unitsOf( Object const & box, std::string const & before ) {
   std::vector<Object> units;
   for( auto const & unit : list( box, "units" ) ) {
      Object & row = units.emplace_back( object( unit ) );
      row["unit"] = before + text( row, "unit" );
      if( isBelieved( box ) ) continue;
      std::string const last = text( row, "state" );
      row["why"] = text( row, "why" ) + ( last == "unknown" ? "" : "; it was " + Cli::word( last ) );
      row["state"] = "unknown";
      row["ready"] = false;
      row["interfaces"] = 0;
   }
   return units;
}

std::vector<Object const *> shownOf( std::vector<Object> const & rows ) {
   std::vector<Object const *> shown;
   std::ranges::transform( rows, std::back_inserter( shown ), []( Object const & row ) { return &row; } );
   return shown;
}

// Those of boxes that are heard, what has gone wrong first: silent boxes have a list of their own.
void printUnitsOut( std::ostream & out, Object const & boxes, double now ) {
   std::vector<Object> units;
   for( Object const * box :
        rowsOf( boxes, "boxes", []( Object const & each ) { return !Cli::yes( each, "silent" ); } ) )
      std::ranges::copy_if( unitsOf( *box, text( *box, "box" ) + "/" ), std::back_inserter( units ),
                            []( Object const & unit ) { return Cli::yes( unit, "out" ); } );
   auto const wrong = []( Object const & unit ) {
      return text( unit, "state" ) == "failed" || Cli::yes( unit, "disturbed" );
   };
   std::stable_partition( units.begin(), units.end(), wrong );
   std::size_t const all = units.size();
   units.resize( std::min( all, mostUnitsTold ) );
   printSection( out, "units that are out", outColumns, shownOf( units ), now );
   if( all > units.size() ) out << "  and " << all - units.size() << " more\n";
}

bool isUnderWay( Object const & plan ) {
   std::string const state = text( plan, "state" );
   return state == "running" || state == "paused";
}

std::vector<std::string> waitedFor( Object const & fleet ) {
   std::vector<std::string> lines;
   for( char const * trouble : { "doubt", "broker" } ) {
      if( std::string const why = text( fleet, trouble ); !why.empty() )
         lines.push_back(
            ( trouble == std::string( "doubt" ) || why.starts_with( "the broker" ) ? "" : "the broker: " ) + why );
   }
   for( Object const * plan : rowsOf( fleet, "plans", isUnderWay ) ) {
      bool const paused = text( *plan, "state" ) == "paused";
      for( std::string const & why : Cli::texts( *plan, "waitsFor" ) )
         lines.push_back( text( *plan, "plan" ) + ( paused ? " for a person to go on: " : ": " ) + why );
   }
   return lines;
}

void printCounts( std::ostream & out, Object const & fleet ) {
   Object const & counts = object( fleet.at( "counts" ) );
   auto const count = [&]( char const * name ) {
      return static_cast<std::size_t>( number( counts, name ).value_or( 0 ) );
   };
   out << Cli::counted( count( "units" ), "unit" ) << " of " << count( "boxes" )
       << ( count( "boxes" ) == 1 ? " box" : " boxes" ) << ": " << count( "inService" ) << " in service, "
       << count( "out" ) << " out; " << count( "silent" ) << " silent\n";
}

}  // namespace

void printFleet( std::ostream & out, Object const & fleet, Object const * boxes ) {
   double const now = number( fleet, "now" ).value_or( 0 );
   auto const waits = waitedFor( fleet );
   if( waits.empty() ) {
      out << "waits for nothing\n";
   } else {
      out << "waits for\n";
      for( std::string const & line : waits ) out << "  " << line << "\n";
   }
   out << "\n";
   printCounts( out, fleet );
   auto const any = []( Object const & ) { return true; };
   printSection( out, "brakes that are on", brakeColumns, rowsOf( fleet, "brakes", any ), now );
   printSection( out, "plans", planColumns, rowsOf( fleet, "plans", any ), now );
   if( boxes ) printUnitsOut( out, *boxes, now );
   printSection(
      out, "groups that are full", fullColumns,
      rowsOf( fleet, "groups",
              []( Object const & group ) { return outCount( group ) >= number( group, "mayBeOut" ).value_or( 0 ); } ),
      now );
   if( !boxes ) return;
   printSection( out, "boxes that are silent", silentColumns,
                 rowsOf( *boxes, "boxes", []( Object const & box ) { return Cli::yes( box, "silent" ); } ), now );
}

void printPlan( std::ostream & out, Object const & plan, double now ) {
   for( std::string const & why : Cli::texts( plan, "waitsFor" ) ) out << "waits for: " << why << "\n";
   Cli::printTable( out, planColumns, std::vector<Object const *>{ &plan }, clocksAt( now ) );
   Object const & asked = object( plan.at( "request" ) );
   auto const span = [&]( char const * member ) {
      auto const seconds = number( asked, member );
      return seconds ? Cli::spanText( *seconds ) : std::string( "until ordered back" );
   };
   out << "waves " << text( asked, "waves" ) << "; soak " << span( "soakSeconds" ) << "; deadline "
       << span( "deadlineSeconds" ) << ", then " << text( asked, "atDeadline" ) << "; stay " << span( "staySeconds" )
       << "\n\n";
   std::vector<Object> rows;
   std::size_t wave = 0;
   for( auto const & members : list( plan, "members" ) ) {
      ++wave;
      if( !members.is_array() ) throw Cli::WrongAnswer( "members has a wave that is no list" );
      for( auto const & member : members.get_array() ) rows.emplace_back( object( member ) )["wave"] = wave;
   }
   Cli::printTable( out, memberColumns, shownOf( rows ), clocksAt( now ) );
}

void printBox( std::ostream & out, Object const & box, double now ) {
   out << text( box, "box" ) << ", heard " << heardCell( box, "heard", clocksAt( now ) );
   for( auto const & label : object( box.at( "labels" ) ) )
      out << "; " << std::string( label.key() ) << ": " << text( object( box.at( "labels" ) ), label.key_c_str() );
   out << "\n";
   if( std::string const trouble = text( box, "trouble" ); !trouble.empty() ) out << trouble << "\n";
   auto const units = unitsOf( box, "" );
   Cli::printTable( out, unitColumns, shownOf( units ), clocksAt( now ) );
   if( !isBelieved( box ) ) return;
   for( auto const & unit : list( box, "units" ) ) {
      auto const loud = rowsOf( object( unit ), "unsettled", []( Object const & ) { return true; } );
      printSection( out, ( text( object( unit ), "unit" ) + " waits for" ).c_str(), unsettledColumns, loud, now );
   }
}

void printHistory( std::ostream & out, Object const & answer ) {
   auto const & rows = list( answer, "history" );
   if( rows.empty() ) {
      out << "nothing of that is on record\n";
      return;
   }
   Cli::printTable( out, historyColumns, rows, clocksAt( number( answer, "now" ).value_or( 0 ) ) );
   if( auto const before = number( answer, "before" ) )
      out << "there is more before that: --since, --plan, --box or --unit, or the API from before="
          << static_cast<unsigned long long>( *before ) << "\n";
}

void printNames( std::ostream & out, std::string const & what, Object const & answer ) {
   std::set<std::string> names;
   if( what == "plans" ) {
      for( auto const & plan : list( answer, "plans" ) ) names.insert( text( object( plan ), "plan" ) );
   } else {
      for( auto const & each : list( answer, "boxes" ) ) {
         Object const & box = object( each );
         if( what == "boxes" ) names.insert( text( box, "box" ) );
         if( what == "units" ) {
            for( auto const & unit : list( box, "units" ) )
               names.insert( text( box, "box" ) + "/" + text( object( unit ), "unit" ) );
         }
         Object const & labels = object( box.at( "labels" ) );
         for( auto const & label : labels ) {
            std::string const value = text( labels, label.key_c_str() );
            if( what == "labels" ) names.insert( std::string( label.key() ) + ":" + value );
            if( what == "sites" && label.key() == "site" ) names.insert( value );
         }
      }
   }
   for( std::string const & name : names ) out << Cli::printable( name ) << "\n";
}

void printCanStop( std::ostream & out, Object const & answer ) {
   out << ( Cli::yes( answer, "canStop" ) ? "yes" : "no" ) << "\n";
   for( std::string const & why : Cli::texts( answer, "why" ) ) out << "  " << why << "\n";
   auto const rows = rowsOf( answer, "groups", []( Object const & ) { return true; } );
   if( rows.empty() ) out << "  no budget holds for it\n";
   printSection( out, "groups", roomColumns, rows, 0 );
}

void printLayout( std::ostream & out, Object const & answer ) {
   std::string const id = text( answer, "plan" );
   out << ( id.empty() ? "nothing was changed; the waves would be" : id + " has these waves" ) << "\n";
   std::size_t number = 0;
   for( auto const & wave : list( answer, "waves" ) ) {
      std::vector<std::string> units;
      if( !wave.is_array() ) throw Cli::WrongAnswer( "waves has one that is no list" );
      for( auto const & unit : wave.get_array() ) units.emplace_back( unit.is_string() ? unit.get_string() : "?" );
      out << "  " << ++number << ": " << Cli::listed( units, units.size() ) << "\n";
   }
   for( std::string const & reason : Cli::texts( answer, "reasons" ) ) out << reason << "\n";
}

namespace {

constexpr Needed planMembers[] = { { "plan", Kind::text },     { "state", Kind::text },   { "wave", Kind::number },
                                   { "waves", Kind::number },  { "units", Kind::number }, { "done", Kind::number },
                                   { "waitsFor", Kind::texts } };
constexpr Cli::Shape planRowShape{ planMembers };
constexpr Needed wholePlanMembers[] = { { "plan", Kind::text },
                                        { "state", Kind::text },
                                        { "waitsFor", Kind::texts },
                                        { "request", Kind::object },
                                        { "members", Kind::list } };
constexpr Needed groupMembers[] = { { "group", Kind::text },
                                    { "budget", Kind::text },
                                    { "units", Kind::number },
                                    { "mayBeOut", Kind::number },
                                    { "out", Kind::list } };
constexpr Cli::Shape groupShape{ groupMembers };
constexpr Needed fleetMembers[] = { { "now", Kind::number },
                                    { "heartbeatSeconds", Kind::number },
                                    { "counts", Kind::object },
                                    { "groups", Kind::list, &groupShape },
                                    { "plans", Kind::list, &planRowShape } };
constexpr Needed boxMembers[] = {
   { "box", Kind::text }, { "silent", Kind::flag }, { "labels", Kind::object }, { "units", Kind::list } };
constexpr Cli::Shape boxRowShape{ boxMembers };
constexpr Needed boxesMembers[] = { { "now", Kind::number }, { "boxes", Kind::list, &boxRowShape } };
constexpr Needed plansMembers[] = { { "now", Kind::number }, { "plans", Kind::list, &planRowShape } };
constexpr Needed recordMembers[] = { { "time", Kind::number }, { "what", Kind::text }, { "text", Kind::text } };
constexpr Cli::Shape recordShape{ recordMembers };
constexpr Needed historyMembers[] = { { "now", Kind::number }, { "history", Kind::list, &recordShape } };
constexpr Needed canStopMembers[] = { { "canStop", Kind::flag }, { "groups", Kind::list }, { "why", Kind::texts } };
constexpr Needed layoutMembers[] = { { "waves", Kind::list }, { "reasons", Kind::texts } };

}  // namespace

constinit Cli::Shape const fleetShape{ fleetMembers };
constinit Cli::Shape const boxesShape{ boxesMembers };
constinit Cli::Shape const boxShape{ boxMembers };
constinit Cli::Shape const planShape{ wholePlanMembers };
constinit Cli::Shape const plansShape{ plansMembers };
constinit Cli::Shape const historyShape{ historyMembers };
constinit Cli::Shape const canStopShape{ canStopMembers };
constinit Cli::Shape const layoutShape{ layoutMembers };
constinit Cli::Shape const anyShape{};

}  // namespace Fleet

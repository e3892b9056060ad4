#include "watch/Heads.h"

#include <algorithm>

#include "kel/QuantityText.h"
#include "tables/Table.h"
#include "watch/Columns.h"
#include "watch/Order.h"

namespace Cli::Watch {

namespace {

bool underProof( Unit const & unit ) { return unit.state == "entering" || unit.state == "inMaintenance"; }

std::string counted( std::size_t n, char const * what ) { return std::to_string( n ) + " " + what; }

void addBadge( Line & line, Unit const & unit ) {
   if( !underProof( unit ) ) return;
   line.add( "  " );
   if( unit.disturbed ) {
      line.add( " DISTURBED ", Style::alarm );
   } else if( unit.ready ) {
      line.add( "READY", Style::settled );
   } else {
      line.add( "NOT READY", Style::strong );
   }
}

Line stateOf( Unit const & unit, int columns, bool stage, Look look ) {
   Line line;
   line.add( cutMiddle( unit.name, std::max( columns / 3, 12 ), look ), Style::strong );
   line.add( "  " + stateText( unit.state ), unit.state == "failed" ? Style::loud : Style::plain );
   if( stage && !unit.stage.empty() ) line.add( ", stage " + unit.stage );
   addBadge( line, unit );
   return line;
}

Line firstLine( Unit const & unit, int columns, Look look ) {
   Line left = stateOf( unit, columns, true, look );
   // Whether it is ready is what is asked for; which stage it waits in tells less.
   if( left.columns() > columns ) left = stateOf( unit, columns, false, look );
   // What there is no room for is left away from the end.
   std::vector<std::string> facts;
   if( unit.since ) facts.push_back( "for " + spanText( unit.now - *unit.since ) );
   if( !unit.requestedBy.empty() ) facts.push_back( "asked for by " + unit.requestedBy );
   if( unit.generation != "0" ) facts.push_back( "generation " + unit.generation );
   for( ; !facts.empty(); facts.pop_back() ) {
      Line right;
      for( std::string const & fact : facts ) right.add( ( right.spans.empty() ? "" : "  " ) + fact, Style::faint );
      if( left.columns() + right.columns() + 2 <= columns ) return between( left, right, columns, look );
   }
   left.fitTo( columns, look );
   return left;
}

Line tally( Unit const & unit, int columns, Look look ) {
   std::size_t const settled = unit.count( Standing::settled );
   bool const all = settled == unit.intfs.size();
   Line line;
   double const share =
      static_cast<double>( settled ) / static_cast<double>( std::max<std::size_t>( unit.intfs.size(), 1 ) );
   addBar( line, all ? 1 : std::min( share, 0.99 ), columns < 100 ? 10 : 20, Style::settled, look );
   line.add( "  " + std::to_string( settled ) + " of " + counted( unit.intfs.size(), "settled" ),
             all ? Style::settled : Style::plain );
   struct Part {
      Standing standing;
      char const * what;
   };
   for( auto const & [standing, what] : { Part{ Standing::loud, "loud" }, Part{ Standing::unknown, "not known" },
                                          Part{ Standing::proving, "being proven" } } ) {
      std::size_t const n = unit.count( standing );
      if( n == 0 ) continue;
      line.add( ", " );
      line.add( counted( n, what ), styleOf( standing ) );
   }
   std::string const next = outlook( unit );
   line.add( next.empty() ? "" : "  " + next, Style::faint );
   line.fitTo( columns, look );
   return line;
}

Line remark( std::string const & text, int columns, Look look ) {
   Line line;
   line.add( text, Style::unknown );
   line.fitTo( columns, look );
   return line;
}

std::string namesOf( Unit const & unit ) {
   std::string names;
   for( Intf const & intf : unit.intfs ) names += ( names.empty() ? "" : ", " ) + intf.name;
   return counted( unit.intfs.size(), unit.intfs.size() == 1 ? "interface: " : "interfaces: " ) + names;
}

}  // namespace

std::string stateText( std::string const & state ) {
   if( state == "inMaintenance" ) return "in maintenance";
   if( state == "active" ) return "in service";
   if( state == "failed" ) return "FAILED";
   return state;
}

std::string outlook( Unit const & unit ) {
   if( !underProof( unit ) || unit.intfs.empty() ) return "";
   if( unit.ready ) {
      return unit.provenUntil ? "proven quiet up to " + spanText( unit.now - *unit.provenUntil ) + " ago" : "";
   }
   Intf const & worst = *selected( unit, {} ).front();
   switch( worst.standing ) {
      case Standing::loud: return "held up by " + worst.name + ", " + distanceText( worst );
      case Standing::unknown: return "held up by " + worst.name + ": " + worst.verdict;
      case Standing::proving:
         return worst.neededSeconds ? "settled in " + neededText( *worst.neededSeconds ) + " if it stays so" : "";
      case Standing::settled:
      case Standing::none: break;
   }
   return "";
}

std::vector<Line> headOf( Unit const & unit, int columns, bool oneLine, Look look ) {
   std::vector<Line> lines{ firstLine( unit, columns, look ) };
   if( oneLine ) return lines;
   if( unit.judged() ) lines.push_back( tally( unit, columns, look ) );
   if( !unit.without.empty() ) lines.push_back( remark( "left out of the proof: " + unit.without, columns, look ) );
   if( !unit.note.empty() ) lines.push_back( remark( unit.note, columns, look ) );
   if( !unit.judged() && !unit.intfs.empty() ) {
      Line names;
      names.add( namesOf( unit ), Style::faint );
      names.fitTo( columns, look );
      lines.push_back( names );
   }
   return lines;
}

}  // namespace Cli::Watch

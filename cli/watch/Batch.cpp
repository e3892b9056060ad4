#include "watch/Batch.h"

#include <algorithm>

#include "kel/QuantityText.h"
#include "watch/Columns.h"
#include "watch/Order.h"

namespace Cli::Watch {

namespace {

constexpr int timeColumns = 19;
constexpr int stateColumns = 13;

std::string orDash( std::optional<double> rate ) { return rate ? Kel::rateText( *rate ) : "-"; }
std::string orDash( std::string const & text ) { return text.empty() ? "-" : text; }

// Names are as wide as the longest of them, so that columns stay where they are from one interval to the next.
struct Widths {
   int unit = 4;
   int intf = 9;
};
Widths widthsOf( Scene const & scene ) {
   Widths widths;
   for( Unit const & unit : scene.units() ) {
      widths.unit = std::max( widths.unit, columnsOf( unit.name ) );
      for( Intf const & intf : unit.intfs ) widths.intf = std::max( widths.intf, columnsOf( intf.name ) );
   }
   return widths;
}

std::string lineOf( Widths const & widths, std::string const ( &cells )[9] ) {
   std::string line = padded( cells[0], timeColumns ) + "  " + padded( cells[1], widths.unit ) + "  " +
                      padded( cells[2], stateColumns ) + "  " + padded( cells[3], widths.intf ) + "  " +
                      padded( cells[4], 9 ) + "  " + paddedLeft( cells[5], 9 ) + "  " + paddedLeft( cells[6], 9 ) +
                      "  " + paddedLeft( cells[7], 9 ) + "  " + cells[8];
   return line + "\n";
}

// Without blanks, for whoever takes the line apart.
std::string readiness( Unit const & unit ) {
   if( unit.disturbed ) return "DISTURBED";
   return unit.ready ? "ready" : unit.state;
}

}  // namespace

std::string batchHeading( Scene const & scene ) {
   return lineOf( widthsOf( scene ),
                  { "TIME", "UNIT", "UNIT IS", "INTERFACE", "VERDICT", "IN", "OUT", "THRESHOLD", "WHY" } );
}

std::string batchLines( Scene const & scene, std::string const & time ) {
   Widths const widths = widthsOf( scene );
   std::string lines;
   for( Unit const & unit : scene.units() ) {
      auto const intfs = selected( unit, {} );
      if( intfs.empty() )
         lines +=
            lineOf( widths, { time, unit.name, readiness( unit ), "-", "-", "-", "-", "-", orDash( unit.note ) } );
      for( Intf const * const intf : intfs ) {
         lines += lineOf( widths, { time, unit.name, readiness( unit ), intf->name, intf->verdict, orDash( intf->in ),
                                    orDash( intf->out ), distanceText( *intf ), orDash( intf->why ) } );
      }
   }
   return lines;
}

}  // namespace Cli::Watch

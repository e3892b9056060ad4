#include "report/Summary.h"

#include "kel/QuantityText.h"
#include "report/TextTable.h"

namespace Report {

namespace {

using Kel::durationText;
using Kel::numberText;
using Kel::rateText;
using Maintenance::MonIntfState;

std::string const nothing = "-";

std::string timeText( std::optional<double> const & seconds ) { return seconds ? numberText( *seconds, 3 ) : nothing; }

std::string tookText( UnitHistory::Pass const & pass ) {
   return pass.completed ? durationText( *pass.completed - pass.began ) : nothing;
}

char const * stateText( IntfHistory const & intf ) {
   switch( intf.states.empty() ? MonIntfState::notMonitoring : intf.states.latest() ) {
      case MonIntfState::notMonitoring: return "not monitored";
      case MonIntfState::thresholdMonitoring: return "waiting";
      case MonIntfState::passiveMonitoring: return "watched";
      case MonIntfState::monitoringStopped: return "stopped";
   }
   return "";
}

std::string shutDownText( Steps<bool> const & shutDown ) {
   // Steps alternate, so the one before an end is a beginning. An end that stands alone belongs to an entry of which
   // nobody heard when it came: with its whole record, for one.
   auto const & steps = shutDown.all();
   if( steps.empty() ) return "no";
   std::string const latest = numberText( steps.back().since, 3 );
   if( steps.back().value ) return "since " + latest;
   return steps.size() == 1 ? "no" : numberText( steps[steps.size() - 2].since, 3 ) + " to " + latest;
}

std::string unitTable( History const & history ) {
   using enum Table::Align;
   Table table(
      { { "UNIT", left }, { "ENTERED", right }, { "COMPLETE", right }, { "TOOK", right }, { "LEFT", right } } );
   for( auto const & [name, unit] : history.units() ) {
      auto const passes = unit.passes();
      // A unit that never entered has its line all the same: that it did not is an answer.
      if( passes.empty() ) table.add( { name.str(), nothing, nothing, nothing, nothing } );
      for( auto const & pass : passes ) {
         table.add( { name.str(), timeText( pass.began ), timeText( pass.completed ), tookText( pass ),
                      timeText( pass.left ) } );
      }
   }
   return table.text();
}

std::string intfTable( History const & history ) {
   using enum Table::Align;
   Table table( { { "INTERFACE", left },
                  { "STATE", left },
                  { "SAMPLES", right },
                  { "TO DRAIN", right },
                  { "SPIKES", right },
                  { "RATE IN", right },
                  { "RATE OUT", right },
                  { "THRESHOLD", right },
                  { "SHUT DOWN", left } } );
   for( auto const & [id, intf] : history.intfs() ) {
      // Unknown is not zero: without a sample there is no rate to show.
      bool const sampled = !intf.rates.empty();
      table.add( { std::string( id.name() ), stateText( intf ), std::to_string( intf.samples ),
                   intf.drainedIn ? durationText( *intf.drainedIn ) : nothing, std::to_string( intf.spikes ),
                   sampled ? rateText( intf.lastRates.inBitsRate ) : nothing,
                   sampled ? rateText( intf.lastRates.outBitsRate ) : nothing,
                   intf.threshold.empty() ? nothing : rateText( intf.threshold.latest() ),
                   shutDownText( intf.shutDown ) } );
   }
   return table.text();
}

}  // namespace

std::string summary( History const & history ) {
   std::string text = "\nFrom " + numberText( history.began(), 3 ) + " to " + numberText( history.now(), 3 ) + " s (" +
                      durationText( history.now() - history.began() ) + "), rates as sampled last\n";
   text += history.units().empty() ? "\nThere was no unit.\n" : "\n" + unitTable( history );
   text += history.intfs().empty() ? "\nNo interface was monitored.\n" : "\n" + intfTable( history );
   return text;
}

}  // namespace Report

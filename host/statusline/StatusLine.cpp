#include "statusline/StatusLine.h"

namespace Host {

namespace {

using Evidence::UnitAccounts;
using Evidence::Verdict;
using Maintenance::Unit::State;

// More do not fit on a line that people read.
constexpr std::size_t mostUnits = 4;

std::string quietOf( UnitAccounts const & book ) {
   std::size_t settled = 0;
   std::size_t all = 0;
   for( auto [intf, account] : book.accountIteratorConst() ) {
      if( account->verdict() == Verdict::leftOut ) continue;
      ++all;
      settled += account->settled() ? 1 : 0;
   }
   return std::to_string( settled ) + "/" + std::to_string( all ) + " quiet";
}

// Empty for one that carries its traffic as always.
std::string standing( State state, Kel::Ptr<UnitAccounts const> const & book ) {
   switch( state ) {
      case State::active:
      case State::unknown: return "";
      case State::failed: return "FAILED";
      case State::leaving: return "leaving";
      case State::entering:
      case State::inMaintenance: break;
   }
   // Between the restart of an agent and its first turn.
   if( !book ) return "in maintenance";
   if( book->disturbed() ) return "DISTURBED, " + quietOf( *book );
   bool const ready = state == State::inMaintenance && book->ready();
   return ready ? "ready" : quietOf( *book );
}

std::string counted( std::size_t units ) { return std::to_string( units ) + ( units == 1 ? " unit" : " units" ); }

}  // namespace

std::string statusLine( Service::MaintenanceService & service, Maintenance::MaintenanceState const & state ) {
   auto const & units = service.config().units;
   std::string line;
   std::size_t found = 0;
   for( auto const & unit : units ) {
      auto const record = state.unitStatus->status( Kel::String8( unit.name ) );
      std::string const text =
         record ? standing( record->state(), service.ledger().accounts()->unit( Kel::Name( unit.name ) ) ) : "";
      if( text.empty() || ++found > mostUnits ) continue;
      // A configuration lets no name break the line.
      line += ( line.empty() ? "" : "; " ) + unit.name + " " + text;
   }
   if( units.empty() ) return "no unit is configured";
   if( found == 0 ) return counted( units.size() ) + ", none in maintenance";
   return found > mostUnits ? line + "; and " + std::to_string( found - mostUnits ) + " more" : line;
}

}  // namespace Host

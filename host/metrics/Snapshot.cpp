#include "metrics/Snapshot.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "kel/ActivityLoop.h"

namespace Host {

namespace {

std::vector<Snapshot::Account> accountsOf( Evidence::UnitAccounts const & book, Evidence::Ledger const & ledger,
                                           Kel::Name const & unit ) {
   std::vector<Snapshot::Account> accounts;
   accounts.reserve( book.accounts() );
   for( auto [intf, account] : book.accountIteratorConst() ) {
      accounts.push_back( { std::string( intf.name() ), account->verdict(), account->settled(),
                            account->settled() ? 0 : ledger.stillNeeded( unit, intf ), account->breaks(),
                            account->spikes() } );
   }
   return accounts;
}

// The longest of all; none where that of one cannot be said.
std::optional<double> longest( std::vector<Snapshot::Account> const & accounts ) {
   double needed = 0;
   for( auto const & account : accounts ) {
      if( !account.stillNeeded ) return std::nullopt;
      needed = std::max( needed, *account.stillNeeded );
   }
   return needed;
}

Snapshot::Unit unitOf( Service::MaintenanceService & service, Maintenance::Unit::Status const & record ) {
   auto & ledger = service.ledger();
   Kel::Name const & name = record.unitName();
   Snapshot::Unit unit;
   unit.name = name.str();
   unit.state = record.state();
   if( auto const since = service.views().since( record ) ) unit.stateAge = std::max( 0.0, Kel::now() - *since );
   unit.generation = record.genId();
   unit.violations = record.totalIntfTrafficViolations();
   // Judged once more, so that what is said is not older than the question.
   unit.ready = ledger.ready( name );
   auto const book = ledger.accounts()->unit( name );
   if( !book ) return unit;
   unit.underWay = true;
   unit.disturbed = book->disturbed();
   unit.accounts = accountsOf( *book, ledger, name );
   unit.stillNeeded = longest( unit.accounts );
   if( auto const until = ledger.provenUntil( name ) ) unit.proofAge = std::max( 0.0, Kel::now() - *until );
   return unit;
}

}  // namespace

Snapshot Snapshot::of( Service::MaintenanceService & service, Maintenance::MaintenanceState const & state,
                       Service::HeldLinkDir const & held, bool storeTrouble ) {
   Snapshot taken;
   for( auto const & configured : service.config().units ) {
      auto const record = state.unitStatus->status( Kel::String8( configured.name ) );
      if( record ) taken.units.push_back( unitOf( service, *record ) );
   }
   taken.interfaces = service.views().interfaces().interfaces;
   std::map<std::string_view, std::size_t> sizes;
   for( auto const & intf : taken.interfaces ) {
      for( auto const & unit : intf.units ) ++sizes[unit.view()];
   }
   for( auto & unit : taken.units ) unit.interfaces = sizes[unit.name];
   for( auto [intf, link] : held.heldIteratorConst() ) {
      ++taken.held[static_cast<std::size_t>( link->state() )];
      if( !link->trouble().empty() ) ++taken.heldInTrouble;
   }
   taken.storeTrouble = storeTrouble;
   return taken;
}

}  // namespace Host

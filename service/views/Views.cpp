#include "views/Views.h"

#include <algorithm>
#include <cmath>

#include "kel/ActivityLoop.h"
#include "links/LinkControl.h"
#include "records/Errdisable.h"
#include "records/Names.h"

namespace Service {

using Evidence::Account;
using Evidence::Verdict;
using Maintenance::Unit::State;

namespace {

Maybe<Text> unlessEmpty( std::string const & text ) { return text.empty() ? std::nullopt : Maybe<Text>( text ); }

Maybe<LoudAnswer> lastLoud( Account const & account ) {
   auto const & loud = account.lastLoud();
   if( loud.time == 0 ) return std::nullopt;
   return LoudAnswer{ loud.time, enumName( loud.direction ), loud.bitsRate };
}

// What the state of a unit means for its window.
struct Came {
   double since;
   std::string by;
};
Came came( State state, Evidence::Window const & window ) {
   switch( state ) {
      case State::entering: return { window.requested(), window.requestedBy().str() };
      case State::inMaintenance: return { window.entered(), window.requestedBy().str() };
      case State::leaving: return { window.exitRequested(), window.exitRequestedBy().str() };
      case State::active:
      case State::failed:
      case State::unknown: break;
   }
   return { window.ended(), "" };
}

bool provable( State state ) { return state == State::entering || state == State::inMaintenance; }

char const * result( UnitService::Outcome outcome ) {
   switch( outcome ) {
      case UnitService::Outcome::started: return "started";
      case UnitService::Outcome::already: return "already";
      case UnitService::Outcome::unknownUnit:
      case UnitService::Outcome::refused: break;
   }
   return "refused";
}

}  // namespace

Kel::Ptr<Evidence::UnitAccounts> Views::accounts( Kel::Name const & unit ) const {
   // Once more, so that the answer is not older than the question.
   ledger_.ready( unit );
   return ledger_.accounts()->unit( unit );
}

AccountAnswer Views::account( Kel::Name const & unit, Lumo::IntfId intf ) const {
   AccountAnswer answer;
   answer.interface = Text( intf.name() );
   auto const book = ledger_.accounts()->unit( unit );
   auto const account = book ? book->account( intf ) : nullptr;
   if( !account ) return answer;
   answer.verdict = enumName( account->verdict() );
   answer.since = account->since();
   answer.settled = account->settled();
   if( account->verdict() == Verdict::quiet ) answer.quietSince = account->quietSince();
   answer.stillNeededSeconds = account->settled() ? 0 : ledger_.stillNeeded( unit, intf );
   bool const known = account->verdict() == Verdict::loud || account->verdict() == Verdict::quiet ||
                      account->verdict() == Verdict::leftOut;
   auto const rates = known ? ledger_.rates( intf ) : std::nullopt;
   if( rates ) {
      answer.inBitsRate = rates->inBitsRate;
      answer.outBitsRate = rates->outBitsRate;
   }
   if( auto const profile = ledger_.profile( intf ) ) {
      answer.thresholdBitsRate = profile->thresholdBitsRate();
      answer.loadIntervalSeconds = profile->rateMonLoadInterval();
   }
   auto const pace = ledger_.pace( unit, intf );
   if( pace.kind != Evidence::Pace::Kind::unknown ) answer.pace = Text( enumName( pace.kind ) );
   // In whole seconds: more would say more than an estimate knows.
   if( pace.quietIn ) answer.quietInSeconds = std::ceil( *pace.quietIn );
   answer.lastLoud = lastLoud( *account );
   answer.breaks = account->breaks();
   answer.spikes = account->spikes();
   std::string why = ledger_.why( unit, intf );
   std::string const remark = LinkControl::remark( *held_, intf );
   if( !why.empty() && !remark.empty() ) why += "; ";
   answer.why = unlessEmpty( why + remark );
   return answer;
}

// That there is nothing to prove, and why.
Maybe<Text> Views::note( Evidence::UnitAccounts const & book ) const {
   if( book.accounts() == 0 ) return Text( "nothing to prove: the unit has no interfaces" );
   for( auto [intf, account] : book.accountIteratorConst() ) {
      if( account->verdict() != Verdict::leftOut ) return std::nullopt;
   }
   return Text( "nothing to prove: every interface is left out" );
}

Maybe<double> Views::since( Maintenance::Unit::Status const & unit ) const {
   auto const window = units_.window( unit.unitName() );
   return window ? Maybe<double>( came( unit.state(), *window ).since ) : std::nullopt;
}

UnitAnswer Views::unit( Maintenance::Unit::Status const & unit ) const {
   Kel::Name const & name = unit.unitName();
   UnitAnswer answer;
   answer.unit = name;
   answer.now = Kel::now();
   answer.state = enumName( unit.state() );
   answer.generation = unit.genId();
   answer.stage = unlessEmpty( units_.stage( name ) );
   if( auto const window = units_.window( name ) ) {
      auto const [since, by] = came( unit.state(), *window );
      answer.since = since;
      answer.requestedBy = unlessEmpty( by );
   }
   auto const book = accounts( name );
   if( book ) {
      answer.ready = book->ready();
      answer.provenUntil = ledger_.provenUntil( name );
      answer.disturbed = book->disturbed();
      answer.note = note( *book );
   }
   for( Lumo::IntfId const intf : config_.interfacesOf( name.str() ) ) {
      answer.interfaces.push_back( account( name, intf ) );
      auto const held = book ? book->account( intf ) : nullptr;
      if( held && held->verdict() == Verdict::leftOut ) answer.without.emplace_back( intf.name() );
   }
   return answer;
}

std::optional<UnitAnswer> Views::unit( std::string const & name ) const {
   auto const found = state_.unitStatus->status( Kel::String8( name ) );
   if( !found ) return std::nullopt;
   return unit( *found );
}

UnitsAnswer Views::units() const {
   UnitsAnswer answer;
   for( Config::Unit const & configured : config_.config().units ) {
      if( auto const found = unit( configured.name ) ) answer.units.push_back( *found );
   }
   return answer;
}

std::optional<ReadyAnswer> Views::ready( std::string const & name ) const {
   auto const record = state_.unitStatus->status( Kel::String8( name ) );
   if( !record ) return std::nullopt;
   UnitAnswer const found = unit( *record );
   ReadyAnswer answer{ found.unit, found.ready, found.provenUntil, found.disturbed, found.now, {} };
   if( !provable( record->state() ) ) {
      answer.why.emplace_back( "unit " + name + " is " + enumName( record->state() ) );
      return answer;
   }
   if( found.note ) answer.why.push_back( *found.note );
   for( AccountAnswer const & a : found.interfaces ) {
      // Of a unit that is ready, what is quiet by itself needs no word.
      bool const plain = a.settled == true && a.verdict == Text( enumName( Verdict::quiet ) );
      if( !a.verdict || plain || ( a.settled == true && !found.ready ) ) continue;
      answer.why.emplace_back( a.interface.str() + ": " + a.verdict->str() +
                               ( a.why ? ": " + a.why->str() : std::string() ) );
   }
   return answer;
}

Text Views::operStatus( Lumo::IntfId intf ) const {
   auto const link = state_.intfStatus->intfStatus( intf );
   return link ? enumName( link->operStatus() ) : "missing";
}

bool Views::shutDown( Lumo::IntfId intf ) const {
   // Without a plug-in there is no cause, and nothing that is shut down.
   auto const cause =
      Kel::dynamicPtrCast<Errdisable::CauseStatus>( state_.errdisableCauses->entityRef( Maintenance::shutdownCause ) );
   return cause && cause->intfStatus( intf );
}

InterfaceAnswer Views::interface( Lumo::IntfId intf ) const {
   InterfaceAnswer answer;
   answer.interface = Text( intf.name() );
   answer.operStatus = operStatus( intf );
   answer.shutDown = shutDown( intf );
   if( auto const profile = ledger_.profile( intf ) ) {
      // The default's name is the operator's own, not the one under which it is selected.
      bool const byDefault = profile->profileName() == Maintenance::Profile::defaultProfileName();
      answer.profile = byDefault ? state_.defaultProfile->profileName() : profile->profileName();
      answer.thresholdBitsRate = profile->thresholdBitsRate();
      answer.sampleIntervalSeconds = profile->sampleInterval();
      answer.loadIntervalSeconds = profile->rateMonLoadInterval();
   }
   if( auto const rates = ledger_.rates( intf ) ) {
      answer.inBitsRate = rates->inBitsRate;
      answer.outBitsRate = rates->outBitsRate;
   }
   if( auto const status = state_.monIntfStatus->monIntfStatus( intf ) ) {
      answer.monitoring = Text( enumName( status->state() ) );
      answer.totalSamples = status->totalSamples();
      if( status->totalSamples() > 0 ) answer.lastSampleSecondsAgo = Kel::now() - status->lastSampleTime();
   }
   for( std::string const & unitName : config_.unitsOf( intf ) ) answer.units.emplace_back( unitName );
   return answer;
}

InterfacesAnswer Views::interfaces() const {
   InterfacesAnswer answer;
   for( Lumo::IntfId const intf : config_.interfaces() ) answer.interfaces.push_back( interface( intf ) );
   return answer;
}

List<UnitAnswer> Views::explain( std::string const & intf ) const {
   List<UnitAnswer> answer;
   // What nobody has named yet is no interface of any unit.
   auto const id = Lumo::IntfId::known( intf );
   if( !id ) return answer;
   for( std::string const & name : config_.unitsOf( *id ) ) {
      auto found = unit( name );
      if( !found ) continue;
      std::erase_if( found->interfaces, [&]( AccountAnswer const & a ) { return a.interface.view() != intf; } );
      answer.push_back( *found );
   }
   return answer;
}

RequestAnswer Views::request( char const * verb, std::string const & unit, UnitService::Answer const & answer ) {
   RequestAnswer said{ verb, unit, result( answer.outcome ), {}, {} };
   bool const refused = said.result == Text( "refused" );
   if( !refused ) said.generation = answer.generation;
   for( std::string const & why : answer.why ) said.why.emplace_back( why );
   if( answer.outcome == UnitService::Outcome::unknownUnit ) said.why.emplace_back( "there is no unit " + unit );
   return said;
}

std::string Views::unitNames() const {
   std::string names;
   for( Config::Unit const & unit : config_.config().units ) names += ( names.empty() ? "" : ", " ) + unit.name;
   return names;
}

}  // namespace Service

#include "views/UnitView.h"

#include <algorithm>

#include "kel/ActivityLoop.h"
#include "kel/QuantityText.h"
#include "records/Errdisable.h"
#include "records/Names.h"

namespace Service {

using Kel::durationText;
using Kel::rateText;
using Kel::value;
using Maintenance::MonIntfState;
using Maintenance::Unit::State;

namespace {

Kel::Value list( std::vector<Kel::Value> elements ) {
   return Kel::Value( Kel::Value::Content( std::move( elements ) ) );
}

std::string directionsAbove( Interface::IntfRates const & rates, double threshold ) {
   std::string text;
   // A rate equal to the threshold is not below it.
   if( rates.inBitsRate >= threshold ) text += "in " + rateText( rates.inBitsRate );
   if( rates.outBitsRate >= threshold ) text += ( text.empty() ? "out " : ", out " ) + rateText( rates.outBitsRate );
   return text;
}

}  // namespace

Kel::Ptr<IntfMaintenanceProfile::Config const> UnitView::profile( Kel::String8 const & name ) const {
   return state_.profiles->config( name );
}

bool UnitView::served( std::string const & unitName ) const {
   auto const unit = state_.unitStatus->status( Kel::String8( unitName ) );
   return unit && ( unit->state() == State::entering || unit->state() == State::inMaintenance );
}

bool UnitView::linkUp( Lumo::IntfId intf ) const {
   auto const status = state_.intfStatus->intfStatus( intf );
   return status && status->operStatus() == Interface::IntfOperStatus::up;
}

bool UnitView::shutDown( Lumo::IntfId intf ) const {
   // Without a plug-in there is no cause, and nothing that is shut down.
   auto const cause =
      Kel::dynamicPtrCast<Errdisable::CauseStatus>( state_.errdisableCauses->entityRef( Maintenance::shutdownCause ) );
   return cause && cause->intfStatus( intf );
}

std::string UnitView::linkTrouble( Lumo::IntfId intf ) const {
   if( !state_.intfStatus->intfStatus( intf ) ) return "there is no such interface";
   return linkUp( intf ) ? "" : "the link is down";
}

std::string UnitView::waitingFor( Lumo::IntfId intf, Maintenance::MonIntfStatus const & status,
                                  IntfMaintenanceProfile::Config const & prof ) const {
   double const threshold = prof.thresholdBitsRate();
   std::string const above = directionsAbove( status.curRates(), threshold );
   if( status.state() == MonIntfState::passiveMonitoring ) {
      // Rates from before it became passive are no traffic that is back, nor are those of an interface that was shut
      // down since: nobody samples it.
      bool const sampled = status.numSamplesAboveThresholdPostMaint() + status.numSamplesBelowThresholdPostMaint() > 0;
      return sampled && !above.empty() && !shutDown( intf ) ? "nothing, but traffic is back: " + above : "";
   }
   if( status.state() != MonIntfState::thresholdMonitoring ) return "";
   // Rates that nobody has measured yet are 0 and would pass for quiet.
   if( status.totalSamples() == 0 ) return "its first sample";
   if( !above.empty() ) return above + " to fall below " + rateText( threshold );
   double const below = status.quietSeconds( prof );
   return "below " + rateText( threshold ) + " for " + durationText( below ) + ", " +
          durationText( std::max( 0.0, prof.rateMonLoadInterval() - below ) ) + " still needed";
}

Kel::Value UnitView::interfaceView( Lumo::IntfId intf, std::string const & unitName ) const {
   auto const link = state_.intfStatus->intfStatus( intf );
   auto const status = state_.monIntfStatus->monIntfStatus( intf );
   // A shared interface may be monitored for another unit only. Where no unit is named, any will do.
   bool const monitored = status && ( unitName.empty() || served( unitName ) );
   Kel::Value::Object view{
      { "interface", value( std::string( intf.name() ) ) },
      { "operStatus", link ? value( enumName( link->operStatus() ) ) : value( "missing" ) },
      { "monitored", value( monitored ) },
      { "shutDown", value( shutDown( intf ) ) },
   };
   if( !monitored ) {
      std::string const trouble = linkTrouble( intf );
      bool const expected = unitName.empty() ? false : served( unitName );
      view.emplace_back( "monitoring", Kel::Value() );
      // The plug-in takes up a link that comes up later in its next slice of work.
      std::string const waiting = trouble.empty() ? "its monitoring to begin" : "not monitored: " + trouble;
      view.emplace_back( "waitingFor", expected ? value( waiting ) : Kel::Value() );
      return value( std::move( view ) );
   }
   auto const prof = profile( status->profileName() );
   auto const & rates = status->curRates();
   view.emplace_back( "monitoring", value( enumName( status->state() ) ) );
   view.emplace_back( "drained", value( status->state() == MonIntfState::passiveMonitoring ) );
   view.emplace_back( "profile", value( status->profileName() ) );
   view.emplace_back( "inBitsRate", value( rates.inBitsRate ) );
   view.emplace_back( "outBitsRate", value( rates.outBitsRate ) );
   view.emplace_back( "totalSamples", value( status->totalSamples() ) );
   view.emplace_back( "lastSampleSecondsAgo", value( Kel::now() - status->lastSampleTime() ) );
   view.emplace_back( "monitoredSeconds", value( Kel::now() - status->startTime() ) );
   view.emplace_back( "spikeUnderMaint", value( status->spikeUnderMaint() ) );
   // What depends on a profile that has gone is left out rather than guessed.
   if( !prof ) return value( std::move( view ) );
   view.emplace_back( "thresholdBitsRate", value( prof->thresholdBitsRate() ) );
   view.emplace_back( "sampleIntervalSeconds", value( prof->sampleInterval() ) );
   view.emplace_back( "loadIntervalSeconds", value( prof->rateMonLoadInterval() ) );
   view.emplace_back( "belowSeconds", value( status->quietSeconds( *prof ) ) );
   view.emplace_back( "neededSeconds",
                      value( std::max( 0.0, prof->rateMonLoadInterval() - status->quietSeconds( *prof ) ) ) );
   std::string const waiting = waitingFor( intf, *status, *prof );
   view.emplace_back( "waitingFor", waiting.empty() ? Kel::Value() : value( waiting ) );
   return value( std::move( view ) );
}

Kel::Value UnitView::unitNote( Maintenance::Unit::Status const & unit ) const {
   std::string const name = unit.unitName().str();
   std::string reasons;
   for( Lumo::IntfId const intf : config_.interfacesOf( name ) ) {
      // One is enough, and the unit needs no note.
      if( state_.monIntfStatus->monIntfStatus( intf ) ) return Kel::Value();
      std::string const trouble = linkTrouble( intf );
      reasons += ( reasons.empty() ? "" : "; " ) + std::string( intf.name() ) + ": " +
                 ( trouble.empty() ? "its monitoring is about to begin" : trouble );
   }
   if( !served( name ) ) return Kel::Value();
   return value( "nothing is monitored: " + ( reasons.empty() ? "the unit has no interfaces" : reasons ) );
}

Kel::Value UnitView::unit( std::string const & name ) const {
   auto const unit = state_.unitStatus->status( Kel::String8( name ) );
   if( !unit ) return Kel::Value();
   std::vector<Kel::Value> interfaces;
   uint64_t monitored = 0;
   uint64_t drained = 0;
   for( Lumo::IntfId const intf : config_.interfacesOf( name ) ) {
      interfaces.push_back( interfaceView( intf, name ) );
      auto const status = served( name ) ? state_.monIntfStatus->monIntfStatus( intf ) : nullptr;
      if( !status ) continue;
      ++monitored;
      if( status->state() == MonIntfState::passiveMonitoring ) ++drained;
   }
   return value( Kel::Value::Object{
      { "unit", value( name ) },
      { "state", value( enumName( unit->state() ) ) },
      { "generation", value( unit->genId() ) },
      { "monitored", value( monitored ) },
      { "drained", value( drained ) },
      { "totalViolations", value( unit->totalIntfTrafficViolations() ) },
      { "note", unitNote( *unit ) },
      { "interfaces", list( std::move( interfaces ) ) },
   } );
}

Kel::Value UnitView::units() const {
   std::vector<Kel::Value> all;
   for( auto [name, unitStatus] : state_.unitStatus->statusIterator() ) all.push_back( unit( name.str() ) );
   return value( Kel::Value::Object{ { "units", list( std::move( all ) ) } } );
}

Kel::Value UnitView::interfaces() const {
   std::vector<Kel::Value> all;
   for( Lumo::IntfId const intf : config_.interfaces() ) {
      auto view = interfaceView( intf, "" );
      std::vector<Kel::Value> units;
      for( std::string const & unitName : config_.unitsOf( intf ) ) units.push_back( value( unitName ) );
      auto object = *view.as<Kel::Value::Object>();
      object.emplace_back( "units", list( std::move( units ) ) );
      all.push_back( value( std::move( object ) ) );
   }
   return value( Kel::Value::Object{ { "interfaces", list( std::move( all ) ) } } );
}

std::string UnitView::unitNames() const {
   std::string names;
   for( auto [name, unitStatus] : state_.unitStatus->statusIterator() ) {
      names += ( names.empty() ? "" : ", " ) + name.str();
   }
   return names;
}

}  // namespace Service

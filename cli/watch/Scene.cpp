#include "watch/Scene.h"

#include <algorithm>

namespace Cli::Watch {

namespace {

// As maintd has it, which is what it is asked for with. Whoever prints it takes text().
std::string rawText( Object const & object, char const * member ) {
   auto const * const value = object.if_contains( member );
   return value && value->is_string() ? std::string( value->get_string() ) : "";
}

Standing standingOf( std::string const & verdict, bool settled ) {
   if( verdict.empty() ) return Standing::none;
   if( settled ) return Standing::settled;
   if( verdict == "loud" ) return Standing::loud;
   bool const counts = verdict == "quiet" || verdict == "down" || verdict == "gone";
   return counts ? Standing::proving : Standing::unknown;
}

}  // namespace

std::optional<double> Intf::distance() const {
   if( !threshold || !( *threshold > 0 ) || ( !in && !out ) ) return std::nullopt;
   return std::max( in.value_or( 0 ), out.value_or( 0 ) ) / *threshold;
}

bool Unit::judged() const {
   return std::any_of( intfs.begin(), intfs.end(),
                       []( Intf const & intf ) { return intf.standing != Standing::none; } );
}

std::size_t Unit::count( Standing standing ) const {
   return static_cast<std::size_t>(
      std::count_if( intfs.begin(), intfs.end(), [&]( Intf const & intf ) { return intf.standing == standing; } ) );
}

Intf const * Scene::intf( std::string const & unit, std::string const & intf ) const {
   for( Unit const & each : units_ ) {
      if( each.key != unit ) continue;
      auto const found = std::find_if( each.intfs.begin(), each.intfs.end(),
                                       [&]( Intf const & candidate ) { return candidate.key == intf; } );
      if( found != each.intfs.end() ) return &*found;
   }
   return nullptr;
}

void Scene::answerIs( Object const & answer, double interval ) {
   std::vector<Unit> units;
   if( answer.contains( "units" ) ) {
      for( auto const & each : list( answer, "units" ) ) units.push_back( unitOf( object( each ), interval ) );
   } else {
      units.push_back( unitOf( answer, interval ) );
   }
   // All or nothing: an answer that is wrong leaves what was there.
   units_ = std::move( units );
}

Unit Scene::unitOf( Object const & answer, double interval ) {
   Unit unit;
   unit.key = rawText( answer, "unit" );
   auto const shown = [&]( char const * member ) { return fit( text( answer, member ), look_ ); };
   unit.name = shown( "unit" );
   unit.state = shown( "state" );
   unit.stage = shown( "stage" );
   unit.requestedBy = shown( "requestedBy" );
   unit.generation = shown( "generation" );
   unit.note = shown( "note" );
   unit.without = fit( namesText( answer, "without" ), look_ );
   unit.ready = yes( answer, "ready" );
   unit.disturbed = yes( answer, "disturbed" );
   unit.since = number( answer, "since" );
   unit.provenUntil = number( answer, "provenUntil" );
   unit.now = number( answer, "now" ).value_or( 0 );
   auto const last = answered_.find( unit.key );
   // After a time without answers nobody knows what was in it.
   double const before = std::max( last == answered_.end() ? 0 : last->second, unit.now - 2 * interval );
   for( auto const & each : list( answer, "interfaces" ) ) {
      Intf intf = intfOf( object( each ) );
      Series & series = series_[{ unit.key, intf.key }];
      sampleIs( series, intf, before, unit.now );
      intf.series = &series;
      unit.intfs.push_back( std::move( intf ) );
   }
   answered_[unit.key] = unit.now;
   return unit;
}

Intf Scene::intfOf( Object const & answer ) const {
   Intf intf;
   intf.key = rawText( answer, "interface" );
   intf.name = fit( text( answer, "interface" ), look_ );
   intf.verdict = fit( text( answer, "verdict" ), look_ );
   intf.standing = standingOf( intf.verdict, yes( answer, "settled" ) );
   intf.since = number( answer, "since" );
   intf.neededSeconds = number( answer, "stillNeededSeconds" );
   intf.in = number( answer, "inBitsRate" );
   intf.out = number( answer, "outBitsRate" );
   intf.threshold = number( answer, "thresholdBitsRate" );
   intf.loadInterval = number( answer, "loadIntervalSeconds" );
   intf.pace = fit( text( answer, "pace" ), look_ );
   intf.quietIn = number( answer, "quietInSeconds" );
   intf.breaks = number( answer, "breaks" ).value_or( 0 );
   intf.spikes = number( answer, "spikes" ).value_or( 0 );
   intf.why = fit( text( answer, "why" ), look_ );
   return intf;
}

void Scene::sampleIs( Series & series, Intf const & intf, double before, double now ) const {
   // The service's clock has begun anew: the machine has been started again.
   if( !series.cells().empty() && series.cells().back().to > now + 1 ) series = Series();
   if( intf.in && intf.out ) series.cellIs( { before, now, *intf.in, *intf.out } );
}

void Scene::windowIs( std::string const & unit, Object const & window ) {
   for( auto const & each : list( window, "interfaces" ) ) {
      auto const found = series_.find( { unit, rawText( object( each ), "interface" ) } );
      if( found != series_.end() ) found->second.pastIs( cellsOf( object( each ), "inHigh", "outHigh" ) );
   }
}

std::vector<Cell> cellsOf( Object const & windowIntf, char const * in, char const * out ) {
   std::vector<Cell> cells;
   for( auto const & each : list( windowIntf, "rates" ) ) {
      Object const & cell = object( each );
      auto const value = [&]( char const * member ) { return number( cell, member ).value_or( 0 ); };
      cells.push_back( { value( "from" ), value( "to" ), value( in ), value( out ) } );
   }
   return cells;
}

}  // namespace Cli::Watch

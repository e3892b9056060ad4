#include "agent/MaintdOverHttp.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "tables/Members.h"
#include "tables/Worst.h"

namespace Fleet {

namespace {

constexpr std::chrono::seconds patience( 2 );
constexpr double allSeconds = 60;
constexpr double restSeconds = 5;            // between two looks at a unit in service
constexpr double interfacesPerSecond = 500;  // that maintd is asked to list, at most

double secondsUntilNext( Maintd::Unit const & unit ) {
   double const least = unit.status.state == UnitState::active ? restSeconds : 1;
   return std::max( least, unit.status.interfaces / interfacesPerSecond );
}

std::optional<double> peakRate( boost::json::object const & intf ) {
   auto const in = Cli::number( intf, "inBitsRate" );
   auto const out = Cli::number( intf, "outBitsRate" );
   // The direction that is not known may be the one that carries more.
   if( !in || !out ) return std::nullopt;
   return std::max( *in, *out );
}

// Of what keeps the unit from being ready: the worst, and how many there are besides.
std::string whyOf( std::vector<Interface> const & unsettled, std::size_t all ) {
   if( unsettled.empty() ) return {};
   Interface const & worst = unsettled.front();
   std::string const more = all > 1 ? ", and " + std::to_string( all - 1 ) + " more" : "";
   return worst.name + ": " + ( worst.why.empty() ? worst.verdict : worst.why ) + more;
}

}  // namespace

Maintd::Unit unitFrom( boost::json::object const & answer, double now ) {
   Maintd::Unit unit;
   UnitStatus & status = unit.status;
   // A word that is not known is of a later release, and never one that frees a slot.
   status.state = named<UnitState>( Cli::text( answer, "state" ) ).value_or( UnitState::unknown );
   status.ready = Cli::yes( answer, "ready" );
   status.disturbed = Cli::yes( answer, "disturbed" );
   unit.generation = static_cast<uint64_t>( Cli::number( answer, "generation" ).value_or( 0 ) );
   auto const said = Cli::number( answer, "now" );
   auto const since = Cli::number( answer, "since" );
   // maintd's clock is its own: only spans of it mean something here.
   status.since = said && since ? std::floor( now - ( *said - *since ) ) : 0;
   status.interfaces = static_cast<uint32_t>( Cli::list( answer, "interfaces" ).size() );
   if( status.state == UnitState::active ) return unit;
   std::size_t standing = 0;
   for( boost::json::object const * intf : Cli::worstFirst( answer ) ) {
      if( Cli::yes( *intf, "settled" ) ) {
         ++status.settled;
         continue;
      }
      ++standing;
      if( status.unsettled.size() == UnitStatus::interfacesTold ) continue;
      status.unsettled.push_back( { Cli::text( *intf, "interface" ), Cli::text( *intf, "verdict" ), peakRate( *intf ),
                                    Cli::text( *intf, "why" ) } );
   }
   status.why = whyOf( status.unsettled, standing );
   if( status.why.empty() ) status.why = Cli::text( answer, "note" );
   return unit;
}

MaintdOverHttp::MaintdOverHttp( std::string controlSocket, std::string readSocket )
   : client_( std::move( controlSocket ), std::move( readSocket ) ) {}

Maintd::Units MaintdOverHttp::units( double now ) {
   try {
      if( now >= allDue_ || !seen_.trouble.empty() ) readAll( now );
      for( auto const & [unit, due] : std::map( due_ ) ) {
         if( now >= due ) read( unit, now );
      }
   } catch( std::runtime_error const & fault ) {
      // Not reached, too late, or an answer that is none: whatever was known of the units is not any more.
      seen_ = { .trouble = std::string( "maintd: " ) + fault.what(), .units = {} };
   }
   return seen_;
}

void MaintdOverHttp::readAll( double now ) {
   Cli::Answer const answer =
      client_.until( Cli::Clock::now() + patience ).get( Cli::Target{ "units" }, Cli::unitsShape );
   if( !answer.ok() ) throw std::runtime_error( answer.error() );
   Units all;
   due_.clear();
   for( boost::json::value const & each : Cli::list( answer.object(), "units" ) ) {
      std::string const name = Cli::text( each.get_object(), "unit" );
      Unit const & unit = all.units[name] = unitFrom( each.get_object(), now );
      due_[name] = now + secondsUntilNext( unit );
   }
   seen_ = std::move( all );
   allDue_ = now + allSeconds;
}

void MaintdOverHttp::read( std::string const & unit, double now ) {
   Cli::Answer const answer =
      client_.until( Cli::Clock::now() + patience ).get( Cli::Target{ "units", unit }, Cli::unitShape );
   if( answer.status == 404 ) {
      // Taken away with maintd's configuration.
      seen_.units.erase( unit );
      due_.erase( unit );
      return;
   }
   if( !answer.ok() ) throw std::runtime_error( answer.error() );
   Unit const & its = seen_.units[unit] = unitFrom( answer.object(), now );
   due_[unit] = now + secondsUntilNext( its );
}

Maintd::Reply MaintdOverHttp::request( std::string const & unit, std::string const & what ) {
   if( due_.contains( unit ) ) due_[unit] = 0;
   try {
      Cli::Answer const answer =
         client_.until( Cli::Clock::now() + patience ).post( Cli::Target{ "units", unit, what }, Cli::requestShape );
      // In force, though not on disk yet: maintd goes on with it.
      if( answer.ok() || answer.status == 500 ) return { Reply::Kind::agreed, {} };
      return { Reply::Kind::refused, answer.error() };
   } catch( std::runtime_error const & fault ) {
      return { Reply::Kind::unknown, fault.what() };
   }
}

}  // namespace Fleet

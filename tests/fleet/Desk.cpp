#include "Desk.h"

#include <algorithm>
#include <cmath>

namespace FleetTest {

Desk::Desk( std::string const & inventory, Memory::Rows rows )
   : memory_( [&] {
        DeskMemory memory;
        memory.kept = std::move( rows );
        return memory;
     }() ),
     owner_( readInventory( inventory, "fleet.yaml" ),
             { memory_, broker_, [this] { return wall_; },
               [this]( Service::Severity, std::string const & text ) { log_.push_back( text ); } } ),
     feed_( { owner_.dispatcher(), [this] { return owner_.now(); }, [this] { return owner_.surroundings(); } } ),
     api_( { .dispatcher = owner_.dispatcher(),
             .now = [this] { return owner_.now(); },
             .surroundings = [this] { return owner_.surroundings(); },
             .changed = [this] { owner_.decide(); },
             .stream = [this] { return feed_.stream(); },
             .keys = {},
             .socket = "/run/fleet.sock" } ) {}

Desk::Answer Desk::ask( Host::HttpRequest const & request ) {
   Host::HttpAnswer const answer = api_.answer( request );
   boost::system::error_code none;
   return { answer.status, boost::json::parse( answer.body, none ), answer.body, answer.by };
}

Desk::Answer Desk::overNet( std::string const & method, std::string const & target,
                            std::string const & authorization ) {
   return ask( { method, target, "", "192.0.2.7:4711", authorization } );
}

void Desk::says( std::string const & box, UnitState state, std::string const & why ) {
   Status & status = statuses_[box];
   status.box = box;
   status.life = 1;
   ++status.sequence;
   for( std::string const & unit : owner_.dispatcher().inventory().box( box )->units ) {
      UnitStatus & its = status.units[unit];
      its.state = state;
      its.ready = state == UnitState::inMaintenance;
      its.why = why;
      its.interfaces = 4;
      its.settled = its.ready ? 4 : 0;
   }
   arrives( "status." + box, textOf( status ) );
}

void Desk::obeys( std::string const & box, UnitState state ) {
   for( auto const & [unit, order] : desiredFrom( sentTo( box ) ).orders ) {
      statuses_[box].units[unit].acknowledged = order.number;
      statuses_[box].units[unit].outcome = Outcome::carried;
   }
   says( box, state );
}

void Desk::advance( double seconds ) {
   for( double const end = wall_ + seconds; wall_ < end; ) {
      wall_ += 0.5;
      if( std::fmod( wall_, 10 ) == 0 ) {
         for( auto & [box, status] : statuses_ ) {
            ++status.sequence;
            arrives( "status." + box, textOf( status ) );
         }
      }
      owner_.turn();
      feed_.handleTurn();
   }
}

std::string Desk::sentTo( std::string const & box ) const {
   auto const sent = broker_.values.find( "desired." + box );
   return sent == broker_.values.end() ? "" : sent->second;
}

std::size_t Desk::logged( std::string const & part ) const {
   return static_cast<std::size_t>( std::ranges::count_if(
      log_, [&]( std::string const & line ) { return line.find( part ) != std::string::npos; } ) );
}

}  // namespace FleetTest

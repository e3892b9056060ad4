#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <stdexcept>

#include "plan/Plan.h"

namespace Fleet {

namespace {

std::string_view trimmed( std::string_view text ) {
   while( text.starts_with( ' ' ) ) text.remove_prefix( 1 );
   while( text.ends_with( ' ' ) ) text.remove_suffix( 1 );
   return text;
}

WaveSize waveSize( std::string_view given ) {
   std::string_view number = trimmed( given );
   bool const share = number.ends_with( '%' );
   if( share ) number.remove_suffix( 1 );
   double amount = 0;
   auto const read = std::from_chars( number.data(), number.data() + number.size(), amount );
   bool const whole = read.ec == std::errc() && read.ptr == number.data() + number.size() && std::isfinite( amount );
   if( !whole || amount <= 0 || ( share ? amount > 100 : amount != std::floor( amount ) ) ) {
      throw std::invalid_argument( "'" + std::string( trimmed( given ) ) +
                                   "' is no size of a wave; one is a number of units, as 5, or a share, as 10%" );
   }
   return { amount, share };
}

std::size_t unitsOf( WaveSize const & size, std::size_t all ) {
   double const units = size.share ? std::floor( static_cast<double>( all ) * size.amount / 100 ) : size.amount;
   return static_cast<std::size_t>( std::clamp( units, 1.0, static_cast<double>( all ) ) );
}

bool has( Labels const & labels, Labels const & wanted ) {
   return std::ranges::all_of( wanted, [&]( auto const & label ) {
      auto const mine = labels.find( label.first );
      return mine != labels.end() && mine->second == label.second;
   } );
}

// One wave while it is filled: no group may have more in it than may be out, as they are all out at once at worst.
class Filling {
 public:
   explicit Filling( Inventory const & inventory ) : inventory_( inventory ) {}

   // The group that has no room for it; null when it fits.
   [[nodiscard]] Group const * fullFor( UnitName const & unit ) const {
      for( Group const * group : inventory_.groupsOf( unit ) ) {
         auto const taken = taken_.find( group );
         if( ( taken == taken_.end() ? 0 : taken->second ) >= group->mayBeOut() ) return group;
      }
      return nullptr;
   }
   void take( UnitName const & unit ) {
      for( Group const * group : inventory_.groupsOf( unit ) ) ++taken_[group];
   }

 private:
   Inventory const & inventory_;
   std::map<Group const *, std::size_t> taken_;
};

std::string putOff( UnitName const & unit, Group const & group, std::size_t wave ) {
   return unit.text() + " is put off to a later wave than " + std::to_string( wave + 1 ) + ": " + group.name + " has " +
          group.budget.text();
}

}  // namespace

std::vector<WaveSize> waveSizes( std::string_view text ) {
   std::vector<WaveSize> sizes;
   while( true ) {
      std::size_t const comma = text.find( ',' );
      sizes.push_back( waveSize( text.substr( 0, comma ) ) );
      if( comma == std::string_view::npos ) return sizes;
      text.remove_prefix( comma + 1 );
   }
}

std::vector<UnitName> selected( Inventory const & inventory, Selection const & select ) {
   for( std::string const & name : select.boxes ) {
      if( !inventory.box( name ) ) throw Refused( "there is no box \"" + name + "\"" );
   }
   std::vector<UnitName> units;
   for( Box const & box : inventory.boxes() ) {
      bool const meant = select.boxes.empty() || std::ranges::find( select.boxes, box.name ) != select.boxes.end();
      if( !meant || !has( box.labels, select.labels ) ) continue;
      for( std::string const & unit : box.units ) {
         if( select.unit.empty() || unit == select.unit ) units.push_back( { box.name, unit } );
      }
   }
   if( units.empty() ) throw Refused( "no unit is selected" );
   return units;
}

Layout layoutOf( Inventory const & inventory, std::vector<UnitName> const & units,
                 std::vector<WaveSize> const & sizes ) {
   for( UnitName const & unit : units ) {
      Group const * const never = Filling( inventory ).fullFor( unit );
      if( !never ) continue;
      throw Refused( unit.text() + " can never go out: " + never->name + " has " + never->budget.text() + ", of " +
                     std::to_string( never->units.size() ) );
   }
   Layout layout;
   std::vector<UnitName> left = units;
   while( !left.empty() ) {
      std::size_t const wave = layout.waves.size();
      std::size_t const most = unitsOf( sizes[std::min( wave, sizes.size() - 1 )], units.size() );
      Filling filling( inventory );
      std::vector<UnitName> taken;
      std::vector<UnitName> later;
      for( UnitName & unit : left ) {
         Group const * const full = taken.size() < most ? filling.fullFor( unit ) : nullptr;
         if( full ) layout.reasons.push_back( putOff( unit, *full, wave ) );
         if( full || taken.size() >= most ) {
            later.push_back( std::move( unit ) );
         } else {
            filling.take( unit );
            taken.push_back( std::move( unit ) );
         }
      }
      layout.waves.push_back( std::move( taken ) );
      left = std::move( later );
   }
   return layout;
}

std::string_view nameOf( Step step ) {
   switch( step ) {
      case Step::waiting: return "waiting";
      case Step::draining: return "draining";
      case Step::drained: return "drained";
      case Step::returning: return "returning";
      case Step::done: return "done";
   }
   return "?";
}

std::string_view nameOf( PlanState state ) {
   switch( state ) {
      case PlanState::running: return "running";
      case PlanState::paused: return "paused";
      case PlanState::finished: return "finished";
      case PlanState::cancelled: return "cancelled";
   }
   return "?";
}

}  // namespace Fleet

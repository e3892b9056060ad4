#include "inventory/Inventory.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Fleet {

namespace {

// "90" of 90.0, "12.5" of 12.5.
std::string decimal( double number ) {
   std::string text = std::to_string( number );
   text.erase( text.find_last_not_of( '0' ) + 1 );
   if( text.back() == '.' ) text.pop_back();
   return text;
}

}  // namespace

std::size_t Budget::mayBeOut( std::size_t units ) const {
   auto const all = static_cast<double>( units );
   // A share such as 10 % of 70 is exact, though its quotient is not: what is next to a whole number is that number.
   double const given = share ? all * amount / 100 : amount;
   double const out = rule == Rule::atMostOut ? std::floor( given + 1e-9 ) : all - std::ceil( given - 1e-9 );
   return static_cast<std::size_t>( std::clamp( out, 0.0, all ) );
}

std::string Budget::text() const {
   std::string const number = decimal( amount ) + ( share ? "%" : "" );
   return rule == Rule::atMostOut ? "at most " + number + " out" : "at least " + number + " in service";
}

Inventory::Inventory( std::vector<Box> boxes, std::map<std::string, Budget> const & budgets, double heartbeatSeconds )
   : boxes_( std::move( boxes ) ), heartbeatSeconds_( heartbeatSeconds ) {
   std::map<std::string, std::pair<std::string, std::vector<UnitName>>> members;  // by group: its label, and its units
   for( std::size_t place = 0; place < boxes_.size(); ++place ) {
      Box const & box = boxes_[place];
      places_[box.name] = place;
      for( auto const & [label, value] : box.labels ) {
         auto & [of, units] = members[label + ": " + value];
         of = label;
         for( std::string const & unit : box.units ) units.push_back( { box.name, unit } );
      }
   }
   for( auto & [name, group] : members ) {
      auto budget = budgets.find( name );
      if( budget == budgets.end() ) budget = budgets.find( group.first );
      if( budget == budgets.end() ) continue;
      std::ranges::sort( group.second );
      groups_.push_back( { name, budget->second, std::move( group.second ) } );
   }
   // Their places are final now.
   for( Group const & group : groups_ ) {
      for( UnitName const & unit : group.units ) memberships_[unit].push_back( &group );
   }
}

Box const * Inventory::box( std::string_view name ) const {
   auto const place = places_.find( name );
   return place == places_.end() ? nullptr : &boxes_[place->second];
}

bool Inventory::has( UnitName const & unit ) const {
   Box const * const in = box( unit.box );
   return in && std::ranges::find( in->units, unit.unit ) != in->units.end();
}

std::span<Group const * const> Inventory::groupsOf( UnitName const & unit ) const {
   auto const groups = memberships_.find( unit );
   if( groups == memberships_.end() ) return {};
   return groups->second;
}

std::vector<std::string> odditiesOf( Inventory const & inventory ) {
   std::vector<std::string> oddities;
   for( Group const & group : inventory.groups() ) {
      if( group.mayBeOut() > 0 ) continue;
      oddities.push_back( "nothing of \"" + group.name + "\" can ever go out: " + group.budget.text() + " of " +
                          std::to_string( group.units.size() ) );
   }
   for( Box const & box : inventory.boxes() ) {
      for( std::string const & unit : box.units ) {
         if( !inventory.groupsOf( { box.name, unit } ).empty() ) continue;
         oddities.push_back( "no budget holds for " + box.name + "/" + unit + ": it may go out at any time" );
      }
   }
   return oddities;
}

}  // namespace Fleet

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>

#include "config/Quantity.h"
#include "config/YamlValue.h"
#include "inventory/Inventory.h"

namespace Fleet {

using namespace Service::Config;

namespace {

constexpr double leastHeartbeat = 1;  // s; below it a fleet says more than anybody reads

// The inventory as far as it has been read.
struct Draft {
   Problems problems;
   std::vector<Fleet::Box> boxes;
   std::vector<Position> boxesAt;
   std::map<std::string, Fleet::Budget> budgets;
   std::vector<std::pair<std::string, Position>> budgetsAt;
   double heartbeatSeconds = 15;
};

// One key of a mapping that has fixed ones.
template<typename T>
struct Key {
   std::string_view name;
   void ( *read )( Draft & in, Value const & value, T & into );
};

template<typename T, std::size_t N>
void readKeys( Draft & in, Value const & value, std::string_view what, Key<T> const ( &keys )[N], T & into ) {
   auto const entries = entriesOf( value, in.problems );
   if( !entries ) return;
   std::vector<std::string_view> names;
   for( Key<T> const & key : keys ) names.push_back( key.name );
   for( Entry const & entry : *entries ) {
      auto const known = std::ranges::find( names, entry.key );
      if( known == names.end() ) {
         addProblem( in.problems, entry.at,
                     "unknown key '" + entry.key + "' in " + std::string( what ) +
                        suggestion( entry.key, std::span<std::string_view const>( names ) ) );
         continue;
      }
      keys[known - names.begin()].read( in, entry.value, into );
   }
}

// What a name must be: it is part of a key in the broker, where '.' separates, '*' and '>' stand for anything.
void checkKeyName( Draft & in, Position at, std::string const & what, std::string const & name ) {
   auto const fits = []( char c ) { return std::isalnum( static_cast<unsigned char>( c ) ) || c == '-' || c == '_'; };
   if( name.empty() ) return addProblem( in.problems, at, "a " + what + " must not be empty" );
   if( name == "owner" ) return addProblem( in.problems, at, "'owner' is the name of the fleet's owner in the broker" );
   if( std::ranges::all_of( name, fits ) ) return;
   addProblem( in.problems, at,
               what + " '" + name + "' may only have letters, digits, '-' and '_': it is part of keys in the broker" );
}

// It is part of "box/unit".
void checkUnit( Draft & in, Position at, std::string const & name ) {
   if( name.empty() ) return addProblem( in.problems, at, "a unit name must not be empty" );
   if( std::ranges::any_of( name, isControl ) || name.find_first_of( "#/" ) != std::string::npos ) {
      addProblem( in.problems, at, "unit name '" + name + "' must not contain '#', '/' or control characters" );
   }
}

void readLabels( Draft & in, Value const & value, Fleet::Box & box ) {
   auto const entries = entriesOf( value, in.problems );
   if( !entries ) return;
   for( Entry const & entry : *entries ) {
      auto const text = textOf( entry.value, in.problems );
      if( entry.key.empty() || entry.key.find( ':' ) != std::string::npos ) {
         addProblem( in.problems, entry.at, "label '" + entry.key + "' must have a name, without ':'" );
      }
      if( text && text->empty() ) addProblem( in.problems, entry.value.at, "label '" + entry.key + "' has no value" );
      if( text ) box.labels[entry.key] = *text;
   }
}

void readUnits( Draft & in, Value const & value, Fleet::Box & box ) {
   auto const items = itemsOf( value, in.problems );
   if( !items ) return;
   for( Value const & item : *items ) {
      auto const name = textOf( item, in.problems );
      if( !name ) continue;
      checkUnit( in, item.at, *name );
      if( std::ranges::find( box.units, *name ) != box.units.end() ) {
         addProblem( in.problems, item.at, "unit '" + *name + "' stands here twice" );
         continue;
      }
      box.units.push_back( *name );
   }
}

constexpr Key<Fleet::Box> boxKeys[] = { { "labels", readLabels }, { "units", readUnits } };

void readBoxes( Draft & in, Value const & value, Draft & ) {
   auto const entries = entriesOf( value, in.problems );
   if( !entries ) return;
   for( Entry const & entry : *entries ) {
      checkKeyName( in, entry.at, "box name", entry.key );
      Fleet::Box box{ entry.key, {}, {} };
      std::size_t const before = in.problems.size();
      readKeys( in, entry.value, "box '" + entry.key + "'", boxKeys, box );
      if( box.units.empty() && in.problems.size() == before ) {
         addProblem( in.problems, entry.at, "box '" + entry.key + "' needs 'units', at least one" );
      }
      in.boxes.push_back( std::move( box ) );
      in.boxesAt.push_back( entry.at );
   }
}

// "3" or "25%".
void readAmount( Draft & in, Value const & value, Fleet::Budget::Rule rule, Fleet::Budget & into ) {
   auto const text = textOf( value, in.problems );
   if( !text ) return;
   std::string_view number = *text;
   bool const share = number.ends_with( '%' );
   if( share ) number.remove_suffix( 1 );
   double amount = -1;
   auto const read = std::from_chars( number.data(), number.data() + number.size(), amount );
   bool const whole = read.ec == std::errc() && read.ptr == number.data() + number.size() && std::isfinite( amount );
   if( !whole || amount < 0 || ( share ? amount > 100 : amount != std::floor( amount ) ) ) {
      return addProblem( in.problems, value.at,
                         "'" + *text + "' is neither a number of units, as 2, nor a share of them, as 25%" );
   }
   into = { rule, amount, share };
}

void readOut( Draft & in, Value const & value, Fleet::Budget & into ) {
   readAmount( in, value, Fleet::Budget::Rule::atMostOut, into );
}
void readInService( Draft & in, Value const & value, Fleet::Budget & into ) {
   readAmount( in, value, Fleet::Budget::Rule::atLeastIn, into );
}

constexpr Key<Fleet::Budget> budgetKeys[] = { { "out", readOut }, { "in-service", readInService } };

void readBudgets( Draft & in, Value const & value, Draft & ) {
   auto const entries = entriesOf( value, in.problems );
   if( !entries ) return;
   for( Entry const & entry : *entries ) {
      auto const given = entriesOf( entry.value, in.problems );
      if( !given ) continue;
      if( given->size() != 1 ) {
         addProblem( in.problems, entry.at, "budget '" + entry.key + "' needs 'out' or 'in-service', one of them" );
         continue;
      }
      Fleet::Budget budget;
      readKeys( in, entry.value, "budget '" + entry.key + "'", budgetKeys, budget );
      in.budgets[entry.key] = budget;
      in.budgetsAt.emplace_back( entry.key, entry.at );
   }
}

void readHeartbeat( Draft & in, Value const & value, Draft & into ) {
   auto const text = textOf( value, in.problems );
   if( !text ) return;
   Quantity const quantity = durationSeconds( *text );
   if( !quantity.reason.empty() ) return addProblem( in.problems, value.at, quantity.reason );
   if( quantity.value < leastHeartbeat ) return addProblem( in.problems, value.at, "a heartbeat takes 1s or more" );
   into.heartbeatSeconds = quantity.value;
}

constexpr Key<Draft> keys[] = { { "boxes", readBoxes }, { "budgets", readBudgets }, { "heartbeat", readHeartbeat } };

// A budget for a label, or a group, that no box has is misspelt.
void checkBudgetsHold( Draft & in ) {
   std::set<std::string> labels;
   std::set<std::string> all;
   for( Fleet::Box const & box : in.boxes ) {
      for( auto const & [label, text] : box.labels ) {
         labels.insert( label );
         all.insert( label + ": " + text );
      }
   }
   std::vector<std::string> known( labels.begin(), labels.end() );
   known.insert( known.end(), all.begin(), all.end() );
   for( auto const & [name, at] : in.budgetsAt ) {
      if( labels.contains( name ) || all.contains( name ) ) continue;
      addProblem( in.problems, at,
                  "no box has the label '" + name + "'" + suggestion( name, std::span<std::string const>( known ) ) );
   }
}

}  // namespace

Inventory readInventory( std::string const & text, std::string const & fileName ) {
   Draft draft;
   try {
      Value const document = documentOf( text, draft.problems );
      readKeys( draft, document, "the inventory", keys, draft );
      if( draft.boxes.empty() && draft.problems.empty() ) {
         addProblem( draft.problems, document.at, "the inventory needs 'boxes', at least one" );
      }
      checkBudgetsHold( draft );
   } catch( YAML::Exception const & fault ) {
      addSyntaxProblem( draft.problems, fault, text );
   }
   if( !draft.problems.empty() ) throw ConfigError( fileName, std::move( draft.problems ) );
   return Inventory( std::move( draft.boxes ), draft.budgets, draft.heartbeatSeconds );
}

}  // namespace Fleet

#include "RandomRecords.h"

#include <cmath>
#include <limits>

#include "errdisable/ErrdisableLib.h"
#include "evidence/Windows.h"
#include "kel/Dir.h"
#include "records/Errdisable.h"

namespace Host {

using Kel::AttributeInfo;
using Kel::Value;

namespace {

// With another number where the type has a smaller one, as of an enumeration.
template<class Do>
void untilTaken( Do const & act ) {
   for( ;; ) {
      try {
         return act();
      } catch( Kel::AttributeError const & ) {
      }
   }
}

}  // namespace

void RandomRecords::fill( Kel::Entity & e ) {
   for( auto const & attribute : e.kelTypeInfo().attributes() ) {
      if( attribute->kind() == AttributeInfo::Kind::scalar || attribute->kind() == AttributeInfo::Kind::counter )
         scalarIs( e, *attribute );
      if( !attribute->keyed() ) continue;
      for( auto n = random_() % 4; n > 0; --n ) entryIs( e, *attribute );
   }
}

void RandomRecords::change( Kel::Entity & e ) {
   for( auto const & attribute : e.kelTypeInfo().attributes() ) {
      if( attribute->keyed() ) {
         changeEntry( e, *attribute );
      } else if( attribute->name() != "rates" && oneIn( 4 ) ) {  // they are written at times of their own
         scalarIs( e, *attribute );
      }
   }
}

void RandomRecords::changeEntry( Kel::Entity & e, AttributeInfo const & attribute ) {
   auto const keys = attribute.keys( e );
   if( keys.empty() || oneIn( 3 ) ) return entryIs( e, attribute );
   std::string const & one = keys[random_() % keys.size()];
   if( oneIn( 3 ) ) return attribute.entryDel( e, one );
   if( auto const child = attribute.child( e, one ) ) return change( *child );
   if( attribute.kind() == AttributeInfo::Kind::set ) return;
   untilTaken( [&] { attribute.entryIs( e, one, like( attribute.entry( e, one ) ) ); } );
}

void RandomRecords::scalarIs( Kel::Entity & e, AttributeInfo const & attribute ) {
   untilTaken( [&] { attribute.set( e, attribute.name() == "rates" ? rates() : like( attribute.get( e ) ) ); } );
}

void RandomRecords::entryIs( Kel::Entity & e, AttributeInfo const & attribute ) {
   bool const inDir = dynamic_cast<Kel::Dir const *>( &e ) != nullptr;
   if( attribute.kind() != AttributeInfo::Kind::children ) return plainEntryIs( e, attribute );
   std::string const name = key( attribute.keyTypeName() );
   auto const & ofDir = e.name() == "cause" ? Errdisable::CauseStatus::kelType() : Errdisable::CauseGroup::kelType();
   auto const child = inDir ? ofDir.newEntity( name ) : attribute.newChild( name );
   // Sometimes whole before it is there, and sometimes filled when it is.
   bool const whole = oneIn( 2 );
   if( whole ) fill( *child );
   attribute.childIs( e, child );
   if( !whole ) fill( *child );
}

// Nobody tells what an absent entry looks like: a number is taken by most, an object by the rest.
void RandomRecords::plainEntryIs( Kel::Entity & e, AttributeInfo const & attribute ) {
   std::string const name = key( attribute.keyTypeName() );
   for( Value const & first : { Value( Value::Content( true ) ), Value( Value::Content( uint64_t{ 1 } ) ),
                                Value( Value::Content( Value::Object() ) ) } ) {
      try {
         attribute.entryIs( e, name, first );
         // Some of its enumerations do not begin with 0.
         if( first.as<Value::Object>() ) attribute.entryIs( e, name, like( attribute.entry( e, name ) ) );
         return;
      } catch( Kel::AttributeError const & ) {
      }
   }
}

Value RandomRecords::like( Value const & value ) {
   if( value.as<bool>() ) return Value( Value::Content( oneIn( 2 ) ) );
   if( value.as<double>() ) return Value( Value::Content( number() ) );
   if( value.as<std::string>() ) return Value( Value::Content( text() ) );
   if( value.as<uint64_t>() || value.as<int64_t>() ) {
      uint64_t const bits = uint64_t{ random_() } << 32 | random_();
      uint64_t const some = bits >> ( random_() % 8 * 8 );
      if( value.as<int64_t>() && oneIn( 2 ) ) return Value( Value::Content( -static_cast<int64_t>( some >> 1 ) ) );
      return Value( Value::Content( some ) );
   }
   Value::Object object;
   for( auto const & [name, field] : *value.as<Value::Object>() ) {
      // The fields of a record of values may be enumerations.
      bool const small = field.as<uint64_t>() && !name.ends_with( "BitsRate" );
      object.emplace_back( name, small ? Value( Value::Content( uint64_t{ 1 } ) ) : like( field ) );
   }
   return Value( Value::Content( std::move( object ) ) );
}

Value RandomRecords::rates() {
   Evidence::RateCells cells( random_() % 3 );
   for( auto & cell : cells ) cell = { number(), number(), number(), number(), number(), number(), number(), number() };
   return Kel::ValueTraits<Evidence::RateCells>::toValue( cells );
}

double RandomRecords::number() {
   using Limits = std::numeric_limits<double>;
   static double const odd[] = { Limits::infinity(),
                                 -Limits::infinity(),
                                 Limits::quiet_NaN(),

                                 0.0,
                                 Limits::denorm_min(),
                                 Limits::max(),
                                 0.1,
                                 1e22,
                                 0x1p63,
                                 0x1p64,
                                 1e15 };
   if( oneIn( 2 ) ) return odd[random_() % std::size( odd )];
   return std::ldexp( std::uniform_real_distribution( -1.0, 1.0 )( random_ ),
                      static_cast<int>( random_() % 100 ) - 50 );
}

std::string RandomRecords::text() {
   static char const * const odd[] = {
      "", "a \"quote\"", "\xc3\xa4\xe2\x82\xac", "tab\tline\n", "null", "back\\slash", "\x01" };
   return odd[random_() % std::size( odd )];
}

std::string RandomRecords::key( std::string const & typeName ) {
   std::string const number = std::to_string( 1 + random_() % 6 );
   if( typeName == "Lumo::IntfId" ) return ( oneIn( 2 ) ? "Ethernet1/" : "50%/0 odd\x7f" ) + number;
   if( typeName == "Group::GroupKey" || typeName == "GroupKey" ) return "intf:a/b" + number;
   if( typeName == "AgentStatusKey" ) return "ratemon:fabric/x#" + number;
   if( typeName == "uint32_t" ) return number;
   return "name/%" + number;
}

}  // namespace Host

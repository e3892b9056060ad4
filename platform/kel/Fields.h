// Value records: plain structs that travel as one attribute value, declared field by field.
//
//    struct IntfRates {
//       KEL_VALUE( IntfRates, "Interface::IntfRates" )
//       KEL_FIELD( double, inBitsRate )    // bit/s
//       KEL_FIELD( double, outBitsRate )   // bit/s
//       KEL_FIELD( double, updateTime )    // s, when they were computed
//       KEL_VALUE_END( IntfRates )
//    };
//
// The struct stays an aggregate with public fields, all zero by default, compares field by field, and is reflected as
// an object with the fields in order of declaration.
#pragma once

#include <string>

#include "kel/Chain.h"
#include "kel/Value.h"

namespace Kel {

// The end of a value record's chain: no field left.
struct FieldChainEnd {
   static constexpr int kelRank = 0;
   template<class T>
   static void toObject( T const &, Value::Object & ) {}
   template<class T>
   static bool fieldIs( T &, std::string const &, Value const & ) {
      return false;
   }
};

}  // namespace Kel

#define KEL_VALUE( SELF, TYPE_NAME )                                 \
   using KelSelf = SELF;                                             \
   static constexpr char const * kelTypeName() { return TYPE_NAME; } \
   static ::Kel::FieldChainEnd kelChain( ::Kel::Rank<0> );

#define KEL_FIELD( TYPE, NAME )                                                                       \
   TYPE NAME{};                                                                                       \
   struct KelLink_##NAME : KEL_LAST_LINK {                                                            \
      using KelPrev = KEL_LAST_LINK;                                                                  \
      static constexpr int kelRank = KelPrev::kelRank + 1;                                            \
      static void toObject( KelSelf const & record, ::Kel::Value::Object & object ) {                 \
         KelPrev::toObject( record, object );                                                         \
         object.emplace_back( #NAME, ::Kel::ValueTraits<TYPE>::toValue( record.NAME ) );              \
      }                                                                                               \
      static bool fieldIs( KelSelf & record, std::string const & name, ::Kel::Value const & value ) { \
         if( name != #NAME ) return KelPrev::fieldIs( record, name, value );                          \
         record.NAME = ::Kel::ValueTraits<TYPE>::fromValue( value );                                  \
         return true;                                                                                 \
      }                                                                                               \
   };                                                                                                 \
   KEL_LINK_IS( KelLink_##NAME )

#define KEL_VALUE_END( SELF )       \
   using KelFields = KEL_LAST_LINK; \
   bool operator==( SELF const & ) const = default;

// Values that may be absent, and lists of values, as Values: for answers that are declared field by field
// (kel/Fields.h), and for records that keep a series. Absent is null; no attribute of a record is that: a record says
// absence by a value of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kel/Value.h"

namespace Kel {

template<class T>
struct ValueTraits<std::optional<T>> {
   static std::string typeName() { return ValueTraits<T>::typeName() + " or null"; }
   static Value toValue( std::optional<T> const & v ) { return v ? ValueTraits<T>::toValue( *v ) : Value(); }
   static std::optional<T> fromValue( Value const & v ) {
      if( v.isNull() ) return std::nullopt;
      return ValueTraits<T>::fromValue( v );
   }
};

template<class T>
struct ValueTraits<std::vector<T>> {
   static std::string typeName() { return "list of " + ValueTraits<T>::typeName(); }
   static Value toValue( std::vector<T> const & elements ) {
      Value::List list;
      list.reserve( elements.size() );
      for( T const & element : elements ) list.push_back( ValueTraits<T>::toValue( element ) );
      return Value( Value::Content( std::move( list ) ) );
   }
   static std::vector<T> fromValue( Value const & v ) {
      auto const * const list = v.as<Value::List>();
      if( !list ) wrongType( "a list", v );
      std::vector<T> elements;
      for( Value const & element : *list ) elements.push_back( ValueTraits<T>::fromValue( element ) );
      return elements;
   }
};

}  // namespace Kel

// What an attribute holds, free of its C++ type: the currency between records and everything that reads or writes them
// by name (JSON, store, API, simulator).
//
// A Value is null, a boolean, a 64-bit integer, a double, a string, an object (names in order), or a list. The traits
// below say how each attribute type and each collection key becomes a Value or a text and back; a Value that does not
// fit throws AttributeError with what was wanted and what was found. Enumerations travel as numbers and know their
// printed names.
#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "kel/Exception.h"
#include "kel/String8.h"

namespace Kel {

class Value {
 public:
   using Object = std::vector<std::pair<std::string, Value>>;
   using List = std::vector<Value>;
   // Unsigned numbers stay unsigned, negative ones are signed; no 64-bit value loses a bit. Lists are for answers and
   // series (kel/Optional.h); what has keys is an object.
   using Content = std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, Object, List>;

   Value() = default;
   explicit Value( Content content ) : content_( std::move( content ) ) {}

   [[nodiscard]] Content const & content() const { return content_; }
   [[nodiscard]] bool isNull() const { return std::holds_alternative<std::monostate>( content_ ); }
   template<class T>
   [[nodiscard]] T const * as() const {
      return std::get_if<T>( &content_ );
   }
   // What kind of value this is, for error texts: "a number", "a string", ...
   [[nodiscard]] char const * kind() const;

   bool operator==( Value const & ) const = default;

 private:
   Content content_;
};

[[noreturn]] void wrongType( char const * wanted, Value const & found );
[[noreturn]] void wrongKey( char const * wanted, std::string_view found );

// An enumeration that prints by `char const * enumName( E )`, null for a number that names nothing.
template<class E>
concept NamedEnum = std::is_enum_v<E> && requires( E e ) {
   { enumName( e ) } -> std::same_as<char const *>;
};

// A plain struct whose fields are declared with KEL_FIELD (kel/Fields.h).
template<class T>
concept ValueRecord = requires {
   typename T::KelFields;
};

template<class T>
struct ValueTraits;

template<>
struct ValueTraits<bool> {
   static std::string typeName() { return "bool"; }
   static Value toValue( bool b ) { return Value( Value::Content( b ) ); }
   static bool fromValue( Value const & v ) {
      if( auto const * b = v.as<bool>() ) return *b;
      wrongType( "true or false", v );
   }
};

// The first two read any number that the type can hold exactly, but a negative one never from a double. The last takes
// any number, rounded where it must be.
uint64_t unsignedFromValue( Value const & v, uint64_t max );
int64_t signedFromValue( Value const & v, int64_t min, int64_t max );
double doubleFromValue( Value const & v );

template<std::unsigned_integral T>
struct ValueTraits<T> {
   static std::string typeName() { return "U" + std::to_string( 8 * sizeof( T ) ); }
   static Value toValue( T n ) { return Value( Value::Content( uint64_t{ n } ) ); }
   static T fromValue( Value const & v ) {
      return static_cast<T>( unsignedFromValue( v, std::numeric_limits<T>::max() ) );
   }
};

template<std::signed_integral T>
struct ValueTraits<T> {
   static std::string typeName() { return "S" + std::to_string( 8 * sizeof( T ) ); }
   static Value toValue( T n ) { return Value( Value::Content( int64_t{ n } ) ); }
   static T fromValue( Value const & v ) {
      return static_cast<T>( signedFromValue( v, std::numeric_limits<T>::min(), std::numeric_limits<T>::max() ) );
   }
};

template<>
struct ValueTraits<double> {
   static std::string typeName() { return "double"; }
   static Value toValue( double d ) { return Value( Value::Content( d ) ); }
   static double fromValue( Value const & v ) { return doubleFromValue( v ); }
};

template<>
struct ValueTraits<String8> {
   static std::string typeName() { return "string"; }
   static Value toValue( String8 const & s ) { return Value( Value::Content( s.str() ) ); }
   static String8 fromValue( Value const & v ) {
      if( auto const * s = v.as<std::string>() ) return String8( *s );
      wrongType( "a string", v );
   }
};

template<NamedEnum E>
struct ValueTraits<E> {
   static std::string typeName() { return "enumeration"; }
   static Value toValue( E e ) { return Value( Value::Content( static_cast<uint64_t>( e ) ) ); }
   static E fromValue( Value const & v ) {
      auto const e = static_cast<E>( unsignedFromValue( v, std::numeric_limits<uint8_t>::max() ) );
      if( !enumName( e ) ) wrongType( "the number of a known enumerator", v );
      return e;
   }
};

template<ValueRecord T>
struct ValueTraits<T> {
   static std::string typeName() { return T::kelTypeName(); }
   static Value toValue( T const & record ) {
      Value::Object object;
      T::KelFields::toObject( record, object );
      return Value( Value::Content( std::move( object ) ) );
   }
   // Fields that the object does not name keep their default; a name that is no field is an error.
   static T fromValue( Value const & v ) {
      auto const * object = v.as<Value::Object>();
      if( !object ) wrongType( "an object", v );
      T record{};
      for( auto const & [name, field] : *object ) {
         if( !T::KelFields::fieldIs( record, name, field ) ) {
            throw AttributeError( T::kelTypeName() + std::string( " has no field \"" ) + name + "\"" );
         }
      }
      return record;
   }
};

// A collection key as text and back: toText and fromText. For keys that are kept for good once they are made, `known`
// gives a key only if it exists already; lookups use that.
template<class K>
struct KeyTraits;

// The key of an entry that is only asked for; none when no entry can have such a key. Throws like fromText.
template<class K>
[[nodiscard]] std::optional<K> knownKey( std::string_view text ) {
   if constexpr( requires { KeyTraits<K>::known( text ); } ) {
      return KeyTraits<K>::known( text );
   } else {
      return KeyTraits<K>::fromText( text );
   }
}

template<>
struct KeyTraits<String8> {
   static std::string toText( String8 const & k ) { return k.str(); }
   static String8 fromText( std::string_view text ) { return String8( text ); }
};

uint64_t unsignedKeyFromText( std::string_view text, uint64_t max );

template<std::unsigned_integral K>
struct KeyTraits<K> {
   static std::string toText( K k ) { return std::to_string( k ); }
   static K fromText( std::string_view text ) {
      return static_cast<K>( unsignedKeyFromText( text, std::numeric_limits<K>::max() ) );
   }
};

template<NamedEnum E>
struct KeyTraits<E> {
   static std::string toText( E e ) { return std::to_string( static_cast<unsigned>( e ) ); }
   static E fromText( std::string_view text ) { return static_cast<E>( unsignedKeyFromText( text, 255 ) ); }
};

}  // namespace Kel

// Gives an enumeration with an enumName() its stream form; stands after enumName, in the enumeration's namespace.
#define KEL_ENUM_PRINTS( E )                                         \
   inline std::ostream & operator<<( std::ostream & out, E e ) {     \
      char const * const name = enumName( e );                       \
      return name ? out << name : out << static_cast<unsigned>( e ); \
   }

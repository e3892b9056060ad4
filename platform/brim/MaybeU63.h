// A 63-bit counter value that may be missing, in one 64-bit word: the top bit set means "no value".
//
// Hardware and kernel counters come as 64-bit words; nothing reaches 2^63 octets, so the top bit is free to say that a
// counter is not there (a link without statistics, a table row not yet filled). Values count modulo 2^63. A new one
// holds the value 0; "no value" is always made on purpose, with none(). A missing value never reads as a zero.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "kel/Assert.h"
#include "kel/Value.h"

namespace Brim {

class MaybeU63 {
 public:
   constexpr MaybeU63() = default;
   // Takes the low 63 bits; a plain number is a value everywhere one is wanted.
   constexpr MaybeU63( uint64_t value ) : word_( value & ~noValueBit ) {}
   [[nodiscard]] static constexpr MaybeU63 none() {
      MaybeU63 missing;
      missing.word_ = noValueBit;
      return missing;
   }

   // From a word that says "no value" by its topmost bit, as shared tables hold it.
   [[nodiscard]] static constexpr MaybeU63 fromWord( uint64_t word ) {
      // Whatever the other bits say, it becomes the one word of none(): missing values compare equal.
      return ( word & noValueBit ) != 0 ? none() : MaybeU63( word );
   }

   [[nodiscard]] constexpr bool hasValue() const { return ( word_ & noValueBit ) == 0; }
   [[nodiscard]] constexpr uint64_t value() const {
      KEL_ASSERT( hasValue() );
      return word_;
   }

   constexpr bool operator==( MaybeU63 const & ) const = default;

   // How far a counter has moved from b to a, right across its wrap as well; none unless both are there.
   friend constexpr MaybeU63 operator-( MaybeU63 a, MaybeU63 b ) {
      if( !a.hasValue() || !b.hasValue() ) return none();
      return MaybeU63( a.word_ - b.word_ );  // modulo 2^64; its low 63 bits are the difference modulo 2^63
   }

   friend std::ostream & operator<<( std::ostream & out, MaybeU63 m ) {
      return m.hasValue() ? out << m.value() : out << '-';
   }

 private:
   static constexpr uint64_t noValueBit = uint64_t{ 1 } << 63;

   uint64_t word_ = 0;
};

}  // namespace Brim

// As an attribute: a number, or null where there is no value.
template<>
struct Kel::ValueTraits<Brim::MaybeU63> {
   static std::string typeName() { return "MaybeU63"; }
   static Value toValue( Brim::MaybeU63 m ) { return m.hasValue() ? Value( Value::Content( m.value() ) ) : Value(); }
   static Brim::MaybeU63 fromValue( Value const & v ) {
      if( v.isNull() ) return Brim::MaybeU63::none();
      return unsignedFromValue( v, ( uint64_t{ 1 } << 63 ) - 1 );
   }
};

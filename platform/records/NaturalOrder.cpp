#include "records/NaturalOrder.h"

#include <algorithm>

namespace Lumo {

namespace {

// As std::string compares: a char may be signed, and bytes beyond ASCII would come first.
unsigned char byteOf( char c ) { return static_cast<unsigned char>( c ); }

// A run of digits, taken off the front of `rest` for comparison.
struct Run {
   explicit Run( std::string_view & rest ) {
      auto const digits = takeDigits( rest );
      zeros = std::min( digits.find_first_not_of( '0' ), digits.size() );
      value = digits.substr( zeros );
   }

   std::size_t zeros = 0;
   std::string_view value;  // without leading zeros, so that the longer one is the greater
};

}  // namespace

std::string_view takeDigits( std::string_view & rest ) {
   auto const end = std::find_if_not( rest.begin(), rest.end(), isDigit );
   auto const digits = rest.substr( 0, static_cast<std::size_t>( end - rest.begin() ) );
   rest.remove_prefix( digits.size() );
   return digits;
}

std::strong_ordering compareNaturally( std::string_view a, std::string_view b ) {
   auto byZeros = std::strong_ordering::equal;  // the first difference in leading zeros
   while( !a.empty() && !b.empty() ) {
      if( isDigit( a.front() ) && isDigit( b.front() ) ) {
         Run const runA( a );
         Run const runB( b );
         if( auto const c = runA.value.size() <=> runB.value.size(); c != 0 ) return c;
         if( auto const c = runA.value <=> runB.value; c != 0 ) return c;
         // Only remembered: Ethernet01 and Ethernet1 are two names, but what follows comes before that difference.
         if( byZeros == 0 ) byZeros = runA.zeros <=> runB.zeros;
      } else {
         if( auto const c = byteOf( a.front() ) <=> byteOf( b.front() ); c != 0 ) return c;
         a.remove_prefix( 1 );
         b.remove_prefix( 1 );
      }
   }
   auto const byEnd = a.size() <=> b.size();  // one of them is empty
   return byEnd != 0 ? byEnd : byZeros;
}

// Fills a key from its front. What does not fit any more is dropped: keys that agree up to there are equal.
class NaturalKey::Writer {
 public:
   explicit Writer( NaturalKey & key ) : key_( key ) {}

   [[nodiscard]] bool full() const { return at_ == size; }
   void put( unsigned char byte ) {
      if( full() ) return;
      auto const shift = 56 - 8 * ( at_ % 8 );
      ( at_ < 8 ? key_.first_ : key_.second_ ) |= uint64_t{ byte } << shift;
      ++at_;
   }
   void putRun( std::string_view value ) {
      // The count of digits reads as a digit, so that numbers stand among other characters where digits do.
      put( static_cast<unsigned char>( '0' + std::min( value.size(), tooLong ) ) );
      if( value.size() >= tooLong ) return end();
      uint32_t number = 0;
      for( char const c : value ) number = 10 * number + static_cast<uint32_t>( c - '0' );
      for( auto left = bytesOfRun[value.size()]; left > 0; ) {
         put( static_cast<unsigned char>( number >> ( 8 * --left ) ) );
      }
   }

 private:
   static constexpr unsigned size = 16;
   static constexpr std::size_t tooLong = 9;  // digits; no name of an interface has a number like that
   static constexpr unsigned char bytesOfRun[tooLong] = { 0, 1, 1, 2, 2, 3, 3, 3, 4 };  // that hold any such number

   // All names with such a run in this place have the same key from here on.
   void end() { at_ = size; }

   NaturalKey & key_;
   unsigned at_ = 0;
};

NaturalKey::NaturalKey( std::string_view name ) {
   Writer writer( *this );
   while( !name.empty() && !writer.full() ) {
      if( isDigit( name.front() ) ) {
         writer.putRun( Run( name ).value );
      } else {
         writer.put( byteOf( name.front() ) );
         name.remove_prefix( 1 );
      }
   }
}

}  // namespace Lumo

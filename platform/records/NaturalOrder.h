// The natural order of names: runs of digits compare as numbers of any length, everything else bytewise; of names that
// differ in leading zeros only, the one with fewer comes first.
//
// Comparing two names takes them apart character by character. Whoever compares the same ones again and again keeps the
// key of each, which is made once and compares as two numbers:
//
//    Ethernet12/40    E t h e r n e t  2 12  /  2 40     (the count of digits, then the number in as few bytes)
//
// A key holds the beginning of its name, as far as 16 bytes reach. Nearly always that tells two names apart; where it
// does not, their order is that of the names.
#pragma once

#include <compare>
#include <cstdint>
#include <string_view>

namespace Lumo {

// Not std::isdigit: that goes by the locale and must not be handed a negative char.
[[nodiscard]] constexpr bool isDigit( char c ) { return c >= '0' && c <= '9'; }
// Takes the run of digits off the front of `rest`; empty where there is none.
[[nodiscard]] std::string_view takeDigits( std::string_view & rest );

// Equal for the same name only.
[[nodiscard]] std::strong_ordering compareNaturally( std::string_view a, std::string_view b );

class NaturalKey {
 public:
   constexpr NaturalKey() = default;  // of the empty name
   explicit NaturalKey( std::string_view name );

   // Less and greater hold for the names too. Equal says nothing of them.
   [[nodiscard]] std::strong_ordering operator<=>( NaturalKey const & ) const = default;

 private:
   class Writer;

   uint64_t first_ = 0;
   uint64_t second_ = 0;
};

}  // namespace Lumo

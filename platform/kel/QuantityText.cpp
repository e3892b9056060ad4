#include "kel/QuantityText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace Kel {

std::string numberText( double value, int decimals ) {
   if( std::isnan( value ) ) return "?";
   // Where whole numbers are no longer told apart, more digits would only be made up.
   constexpr double exact = 1e15;
   std::array<char, 64> digits{};
   if( std::abs( value ) >= exact ) {
      std::snprintf( digits.data(), digits.size(), "%.3g", value );
      return digits.data();
   }
   // Not the formatting of C, which takes several times as long: a thousand interfaces that enter have some thousand of
   // these texts.
   auto const end = std::to_chars( digits.begin(), digits.end(), value, std::chars_format::fixed, decimals ).ptr;
   std::string text( digits.begin(), end );
   // The zeros of 100 count.
   if( text.find( '.' ) == std::string::npos ) return text;
   text.erase( text.find_last_not_of( '0' ) + 1 );
   if( text.back() == '.' ) text.pop_back();
   return text;
}

std::string rateText( double bitsPerSecond ) {
   static constexpr std::array<char const *, 5> units{ "bps", "kbps", "Mbps", "Gbps", "Tbps" };
   std::size_t unit = 0;
   // What would be rounded to 1000 belongs to the next unit.
   for( ; bitsPerSecond >= 999.5 && unit + 1 < units.size(); ++unit ) bitsPerSecond /= 1000;
   int const decimals = bitsPerSecond >= 99.95 ? 0 : bitsPerSecond >= 9.995 ? 1 : 2;
   return numberText( bitsPerSecond, decimals ) + " " + units[unit];
}

std::string durationText( double seconds ) {
   // Also what is no number.
   if( !( seconds >= 120 ) ) return numberText( seconds, 3 ) + " s";
   struct Unit {
      char const * name;
      double seconds;
   };
   constexpr double day = 86400;
   // Beyond that hours say nothing, and further on a double has none.
   if( seconds >= 1e6 * day ) return numberText( std::floor( seconds / day ), 0 ) + " d";
   static constexpr std::array<Unit, 4> units{ { { "d", day }, { "h", 3600 }, { "min", 60 }, { "s", 1 } } };
   // Rounded before it is taken apart: 3599.7 s is an hour.
   double const whole = std::round( seconds );
   auto const * const large =
      std::find_if( units.begin(), units.end(), [&]( Unit const & u ) { return whole >= u.seconds; } );
   double const count = std::floor( whole / large->seconds );
   Unit const & small = *( large + 1 );  // there is one, as two minutes are more than a second
   // Not rounded: 23 h 59.9 min must not become 23 h 60 min.
   double const rest = std::floor( ( whole - count * large->seconds ) / small.seconds );
   std::string const text = numberText( count, 0 ) + " " + large->name;
   return rest == 0 ? text : text + " " + numberText( rest, 0 ) + " " + small.name;
}

}  // namespace Kel

#include "config/Quantity.h"

#include <array>
#include <charconv>
#include <limits>
#include <span>
#include <system_error>

namespace Service::Config {

namespace {

// One of the two factors is 1. A number divided by 1000 is rounded once; multiplied by 0.001, which is itself rounded,
// it may be off in its last bit, and 700bps would not be the same as 0.7kbps.
struct UnitOfMeasure {
   std::string_view suffix;
   double multiplier;
   double divisor;
};

struct Dimension {
   std::string_view name;
   std::string_view examples;
   std::span<UnitOfMeasure const> units;
   double max;
};

constexpr std::array rateUnits = {
   UnitOfMeasure{ "bps", 1, 1000 },
   UnitOfMeasure{ "kbps", 1, 1 },
   UnitOfMeasure{ "Mbps", 1e3, 1 },
   UnitOfMeasure{ "Gbps", 1e6, 1 },
};

constexpr Dimension rate = { "rate", "0bps, 100kbps, 1Mbps or 2.5Gbps", rateUnits, std::numeric_limits<double>::max() };

[[nodiscard]] Quantity refuse( std::string_view text, std::string_view why, Dimension const & dimension ) {
   return { 0, "'" + std::string( text ) + "' " + std::string( why ) + "; write a " + std::string( dimension.name ) +
                  " like " + std::string( dimension.examples ) };
}

[[nodiscard]] Quantity scaled( double number, std::string_view text, std::string_view suffix,
                               Dimension const & dimension ) {
   for( UnitOfMeasure const & unit : dimension.units ) {
      if( unit.suffix != suffix ) continue;
      double const value = number * unit.multiplier / unit.divisor;
      // Infinity too, which a large number of a large unit can become.
      if( value > dimension.max ) return refuse( text, "is too large", dimension );
      return { value, "" };
   }
   return refuse( text, "has an unknown unit '" + std::string( suffix ) + "'", dimension );
}

[[nodiscard]] bool startsWithDigit( std::string_view text ) {
   return !text.empty() && text.front() >= '0' && text.front() <= '9';
}

[[nodiscard]] Quantity measure( std::string_view text, Dimension const & dimension ) {
   if( text.starts_with( '-' ) ) return refuse( text, "is negative", dimension );
   // Also keeps out the "inf" and "nan" that from_chars would take for numbers.
   if( !startsWithDigit( text ) ) return refuse( text, "is not a number with a unit", dimension );

   double number = 0;
   char const * const end = text.data() + text.size();
   // Not by strtod(), whose decimal point is that of the locale; and without exponents, so that the "e3kbps" of
   // "1e3kbps" is refused as an unknown unit.
   auto const [rest, error] = std::from_chars( text.data(), end, number, std::chars_format::fixed );
   if( error == std::errc::result_out_of_range ) return refuse( text, "is out of range", dimension );
   if( rest == end ) return refuse( text, "has no unit", dimension );
   return scaled( number, text, { rest, end }, dimension );
}

}  // namespace

Quantity durationSeconds( std::string_view text ) {
   auto const read = Kel::readDuration( text );
   return { read.seconds, read.reason };
}

Quantity rateKbps( std::string_view text ) { return measure( text, rate ); }

}  // namespace Service::Config

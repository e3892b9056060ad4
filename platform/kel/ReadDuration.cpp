#include "kel/ReadDuration.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

namespace Kel {

namespace {

// One of the two factors is 1. A number divided by 1000 is rounded once; multiplied by 0.001, which is itself rounded,
// it may be off in its last bit, and 700ms would not be the same as 0.7s.
struct Unit {
   std::string_view name;
   double multiplier;
   double divisor;
};
constexpr std::array units{ Unit{ "ms", 1, 1000 }, Unit{ "s", 1, 1 },    Unit{ "sec", 1, 1 },  Unit{ "m", 60, 1 },
                            Unit{ "min", 60, 1 },  Unit{ "h", 3600, 1 }, Unit{ "d", 86400, 1 } };

bool isDigit( char c ) { return c >= '0' && c <= '9'; }

ReadDuration refused( std::string_view text, std::string const & why ) {
   // A longer one is no duration that anybody meant.
   constexpr std::size_t mostQuoted = 40;
   std::string quoted( text.substr( 0, mostQuoted ) );
   if( text.size() > mostQuoted ) quoted += "...";
   return { 0, "'" + quoted + "' " + why + "; write a duration like 500ms, 10s, 5min, 1h30m or 2d" };
}

// One number with its unit, from the beginning of `rest`, which loses it.
struct Part {
   double seconds = 0;
   double unit = 0;  // s
   bool whole = true;
   std::string fault = "";
};
Part part( std::string_view & rest ) {
   auto const blanks = [&] { rest.remove_prefix( std::min( rest.find_first_not_of( ' ' ), rest.size() ) ); };
   // Also keeps out the "inf" and "nan" that from_chars would take for numbers.
   if( rest.empty() || !isDigit( rest.front() ) ) return { .fault = "is not a number with a unit" };
   double number = 0;
   char const * const end = rest.data() + rest.size();
   // Not by strtod(), whose decimal point is that of the locale; and without exponents, so that the "e" of "1e3s" is
   // refused as an unknown unit.
   auto const [after, error] = std::from_chars( rest.data(), end, number, std::chars_format::fixed );
   if( error == std::errc::result_out_of_range ) return { .fault = "is longer than 136 years" };
   Part found{ .whole = std::find( rest.data(), after, '.' ) == after };
   rest = { after, end };
   blanks();
   auto const isUnit = []( char c ) { return !isDigit( c ) && c != ' '; };
   std::string_view const name( rest.data(), std::ranges::find_if_not( rest, isUnit ) );
   if( name.empty() ) return { .fault = "has no unit" };
   auto const * const unit = std::ranges::find( units, name, &Unit::name );
   if( unit == units.end() ) return { .fault = "has an unknown unit '" + std::string( name.substr( 0, 20 ) ) + "'" };
   rest.remove_prefix( name.size() );
   blanks();
   found.unit = unit->multiplier / unit->divisor;
   found.seconds = number * unit->multiplier / unit->divisor;
   return found;
}

}  // namespace

ReadDuration readDuration( std::string_view text ) {
   if( text.starts_with( '-' ) ) return refused( text, "is negative" );
   std::string_view rest = text;
   ReadDuration sum;
   Part before{ .unit = 2 * maxDurationSeconds };
   do {
      Part const next = part( rest );
      if( !next.fault.empty() ) return refused( text, next.fault );
      if( next.unit >= before.unit ) return refused( text, "does not name its units from the largest down, each once" );
      if( !before.whole ) return refused( text, "has a fraction before its last number" );
      sum.seconds += next.seconds;
      before = next;
   } while( !rest.empty() );
   if( !( sum.seconds <= maxDurationSeconds ) ) return refused( text, "is longer than 136 years" );
   return sum;
}

}  // namespace Kel

#include "report/Moments.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "kel/QuantityText.h"

namespace Report {

namespace {

struct Utc {
   std::string date, clock;
};

Utc utc( double unixTime ) {
   namespace chrono = std::chrono;
   // Seconds that have passed, as a clock on the wall shows them. Calendars of <chrono> end with the year 32767.
   auto const seconds = static_cast<long long>( std::clamp( std::floor( unixTime ), 0.0, 9e11 ) );
   chrono::sys_seconds const moment{ chrono::seconds( seconds ) };
   auto const day = chrono::floor<chrono::days>( moment );
   chrono::year_month_day const date( day );
   chrono::hh_mm_ss const clock( moment - day );
   std::array<char, 32> text{};
   std::snprintf( text.data(), text.size(), "%04d-%02u-%02u", static_cast<int>( date.year() ),
                  static_cast<unsigned>( date.month() ), static_cast<unsigned>( date.day() ) );
   Utc found{ text.data(), {} };
   std::snprintf( text.data(), text.size(), "%02d:%02d:%02d", static_cast<int>( clock.hours().count() ),
                  static_cast<int>( clock.minutes().count() ), static_cast<int>( clock.seconds().count() ) );
   found.clock = text.data();
   return found;
}

}  // namespace

Moments::Moments( std::optional<double> wallClockOffset, double first )
   : offset_( wallClockOffset ), firstDay_( offset_ ? utc( first + *offset_ ).date : "" ) {}

std::string Moments::full( double time ) const {
   if( !offset_ ) return Kel::numberText( time, 3 ) + " s";
   auto const [date, clock] = utc( time + *offset_ );
   return date + " " + clock + " UTC";
}

std::string Moments::brief( double time ) const {
   if( !offset_ ) return Kel::numberText( time, 3 ) + " s";
   auto const [date, clock] = utc( time + *offset_ );
   return date == firstDay_ ? clock : date + " " + clock;
}

std::string Moments::tick( double time, double step ) const {
   if( !offset_ ) return Kel::numberText( time, 3 );
   // Marks lie on whole seconds, but for the rounding of what was added up.
   auto const [date, clock] = utc( time + *offset_ + 0.001 );
   if( step >= 86400 ) return date.substr( 5 );
   return step >= 60 ? clock.substr( 0, 5 ) : clock;
}

}  // namespace Report

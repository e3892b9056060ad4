#include "evidence/RateSeries.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <optional>

#include "kel/Value.h"

namespace Evidence {

namespace {

using Bytes = std::vector<unsigned char>;
using Rates = std::array<double, 3>;  // low, mean, high

constexpr unsigned char version = 1;
constexpr std::size_t cellsMost = 600;

// The byte that a packed cell begins with: bit 0, it begins at a time of its own; bit 1, its times are written as they
// are; then two bits how rates in are written, two more for rates out.
constexpr unsigned ownBegin = 1;
constexpr unsigned rawTimes = 2;
constexpr unsigned inShift = 2;
constexpr unsigned outShift = 4;
enum class Form : unsigned { none, octets, one, three };  // nothing flowed; all the same, as octets or as it is; each

bool same( double a, double b ) { return std::bit_cast<uint64_t>( a ) == std::bit_cast<uint64_t>( b ); }

// Nanoseconds, where they give back the very same time.
// By way of signed numbers, here and below: that is one instruction.
double secondsOf( uint64_t ns ) { return static_cast<double>( static_cast<int64_t>( ns ) ) / 1e9; }
std::optional<uint64_t> nanosecondsOf( double seconds ) {
   if( !( seconds >= 0 && seconds < 9e6 ) ) return std::nullopt;  // beyond, a double has no nanoseconds
   auto const ns = static_cast<uint64_t>( static_cast<int64_t>( seconds * 1e9 + 0.5 ) );
   return same( secondsOf( ns ), seconds ) ? std::optional( ns ) : std::nullopt;
}

// Octets over a time, as whoever sampled them has computed the rate.
double rateOf( uint64_t octets, double seconds ) {
   return static_cast<double>( static_cast<int64_t>( octets * 8 ) ) / seconds;
}
std::optional<uint64_t> octetsOf( double rate, double seconds ) {
   double const octets = rate * seconds * 0.125;
   if( !( octets >= 0 && octets < 1e15 ) ) return std::nullopt;
   auto const whole = static_cast<uint64_t>( static_cast<int64_t>( octets + 0.5 ) );
   return same( rateOf( whole, seconds ), rate ) ? std::optional( whole ) : std::nullopt;
}

// One cell.
class Packing {
 public:
   // `own`: it begins at a time of its own.
   Packing( RateCell const & cell, bool own ) {
      unsigned const times = addTimes( cell, own );
      double const seconds = cell.to - cell.from;
      Form const in = addRates( { cell.inLow, cell.inMean, cell.inHigh }, seconds );
      Form const out = addRates( { cell.outLow, cell.outMean, cell.outHigh }, seconds );
      bytes_[0] = static_cast<unsigned char>( times | static_cast<unsigned>( in ) << inShift |
                                              static_cast<unsigned>( out ) << outShift );
   }
   [[nodiscard]] unsigned char const * begin() const { return bytes_.data(); }
   [[nodiscard]] unsigned char const * end() const { return bytes_.data() + size_; }

 private:
   unsigned addTimes( RateCell const & cell, bool own ) {
      auto const from = nanosecondsOf( cell.from );
      auto const to = nanosecondsOf( cell.to );
      bool const raw = !from || !to || *to < *from;
      if( own && raw ) put( cell.from );
      if( own && !raw ) putNumber( *from );
      if( raw ) put( cell.to );
      if( !raw ) putNumber( *to - *from );
      return ( own ? ownBegin : 0 ) | ( raw ? rawTimes : 0 );
   }
   Form addRates( Rates const & r, double seconds ) {
      if( !same( r[0], r[1] ) || !same( r[1], r[2] ) ) {
         for( double const rate : r ) put( rate );
         return Form::three;
      }
      if( same( r[0], 0 ) ) return Form::none;
      auto const octets = octetsOf( r[0], seconds );
      if( octets ) {
         putNumber( *octets );
         return Form::octets;
      }
      put( r[0] );
      return Form::one;
   }
   void put( double value ) {
      std::memcpy( &bytes_[size_], &value, sizeof value );
      size_ += sizeof value;
   }
   // Seven bits a byte, the lowest first; the eighth says that more follow.
   void putNumber( uint64_t number ) {
      for( ; number >= 0x80; number >>= 7 ) bytes_[size_++] = static_cast<unsigned char>( number | 0x80 );
      bytes_[size_++] = static_cast<unsigned char>( number );
   }

   // A byte, two times and six rates of eight bytes; a number below 2^56 takes no more.
   std::array<unsigned char, RateSeries::mostBytes> bytes_;
   std::size_t size_ = 1;
};

// Throws where the bytes end too early or say what no packing says.
class Unpacking {
 public:
   explicit Unpacking( std::string_view bytes ) : bytes_( bytes ) {}

   [[nodiscard]] bool atEnd() const { return bytes_.empty(); }
   RateCell next( double before ) {
      unsigned const head = byte();
      if( head >> ( outShift + 2 ) != 0 ) throw Kel::AttributeError( "has a cell of an unknown form" );
      RateCell cell{};
      takeTimes( cell, head, before );
      double const seconds = cell.to - cell.from;
      Rates const in = takeRates( static_cast<Form>( head >> inShift & 3 ), seconds );
      Rates const out = takeRates( static_cast<Form>( head >> outShift & 3 ), seconds );
      return { cell.from, cell.to, in[0], in[1], in[2], out[0], out[1], out[2] };
   }

 private:
   void takeTimes( RateCell & cell, unsigned head, double before ) {
      bool const raw = ( head & rawTimes ) != 0;
      cell.from = before;
      if( ( head & ownBegin ) != 0 ) cell.from = raw ? value() : secondsOf( number() );
      cell.to = raw ? value() : secondsOf( nanosecondsOf( cell.from ).value_or( 0 ) + number() );
   }
   Rates takeRates( Form form, double seconds ) {
      switch( form ) {
         case Form::none: return {};
         case Form::octets: return all( rateOf( number(), seconds ) );
         case Form::one: return all( value() );
         case Form::three: break;
      }
      double const low = value();
      double const mean = value();
      return { low, mean, value() };
   }
   static Rates all( double rate ) { return { rate, rate, rate }; }
   unsigned byte() {
      if( bytes_.empty() ) throw Kel::AttributeError( "ends in the middle of a cell" );
      auto const first = static_cast<unsigned char>( bytes_.front() );
      bytes_.remove_prefix( 1 );
      return first;
   }
   double value() {
      double found = 0;
      if( bytes_.size() < sizeof found ) throw Kel::AttributeError( "ends in the middle of a cell" );
      std::memcpy( &found, bytes_.data(), sizeof found );
      bytes_.remove_prefix( sizeof found );
      return found;
   }
   uint64_t number() {
      uint64_t found = 0;
      for( unsigned shift = 0; shift < 64; shift += 7 ) {
         unsigned const next = byte();
         found |= uint64_t{ next & 0x7fu } << shift;
         if( next < 0x80 ) return found;
      }
      throw Kel::AttributeError( "has a number of too many bytes" );
   }

   std::string_view bytes_;
};

std::string_view textOf( Bytes const & bytes ) {
   return { reinterpret_cast<char const *>( bytes.data() ), bytes.size() };
}

// Whatever a record takes must be taken from it again, so nothing is asked of times and rates.
void check( RateCells const & cells ) {
   if( cells.size() > cellsMost ) throw Kel::AttributeError( "has more cells than any window" );
}

RateCells unpacked( std::string_view bytes ) {
   RateCells cells;
   Unpacking unpacking( bytes );
   while( !unpacking.atEnd() ) cells.push_back( unpacking.next( cells.empty() ? 0 : cells.back().to ) );
   return cells;
}

}  // namespace

RateCells RateSeries::cells() const {
   RateCells cells = unpacked( textOf( former_ ) );
   if( count_ > 0 ) cells.push_back( last_ );
   return cells;
}

void RateSeries::cellsIs( RateCells const & cells ) {
   *this = {};
   for( RateCell const & cell : cells ) add( cell );
}

void RateSeries::add( RateCell const & cell ) {
   if( count_ > 0 ) {
      Packing const packing( last_, former_.empty() || !same( last_.from, before_ ) );
      // Not twice as much each time: of thousands of series, half would be room for what may never come.
      std::size_t const size = former_.size() + static_cast<std::size_t>( packing.end() - packing.begin() );
      if( former_.capacity() < size ) former_.reserve( size + size / 4 + 16 );
      former_.insert( former_.end(), packing.begin(), packing.end() );
      before_ = last_.to;
   }
   last_ = cell;
   ++count_;
}

std::string RateSeries::packed() const {
   RateSeries whole = *this;
   if( count_ > 0 ) whole.add( {} );  // so that the last one is packed as well
   return std::string( 1, static_cast<char>( version ) ).append( textOf( whole.former_ ) );
}

void RateSeries::packedIs( std::string_view text ) {
   if( text.empty() || static_cast<unsigned char>( text.front() ) != version )
      throw Kel::AttributeError( "is no series of rates that this version knows" );
   RateCells const cells = unpacked( text.substr( 1 ) );
   check( cells );
   cellsIs( cells );
}

}  // namespace Evidence

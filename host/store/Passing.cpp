#include "store/Passing.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

#include "records/Names.h"
#include "store/Records.h"

namespace Host {

namespace {

using Kel::AttributeError;
using Monitor = Passing::Monitor;
using Monitors = Maintenance::MonIntfStatusDir;

constexpr char version = 1;

// How much more than one list of all the lists may come to.
constexpr std::size_t timesAll = 4;
constexpr std::size_t monitorsMore = 64;

struct Numbers {
   std::array<double, 7> rates{};
   std::array<uint32_t, 6> counts{};
};

constexpr std::size_t ratesMost = std::tuple_size_v<decltype( Numbers::rates )>;
constexpr std::size_t countsMost = std::tuple_size_v<decltype( Numbers::counts )>;

Numbers numbersOf( Monitor const & m ) {
   auto const & cur = m.curRates();
   auto const & prev = m.prevRates();
   return { { cur.inBitsRate, cur.outBitsRate, cur.updateTime, prev.inBitsRate, prev.outBitsRate, prev.updateTime,
              m.lastSampleTime() },
            { m.totalSamples(), m.numConsecutiveDrainedSamples(), m.numSamplesAboveThresholdPreMaint(),
              m.numSamplesBelowThresholdPreMaint(), m.numSamplesAboveThresholdPostMaint(),
              m.numSamplesBelowThresholdPostMaint() } };
}

void numbersIs( Monitor & m, Numbers const & n ) {
   auto const & r = n.rates;
   m.curRatesIs( { r[0], r[1], r[2] } );
   m.prevRatesIs( { r[3], r[4], r[5] } );
   m.lastSampleTimeIs( r[6] );
   m.totalSamplesIs( n.counts[0] );
   m.numConsecutiveDrainedSamplesIs( n.counts[1] );
   m.numSamplesAboveThresholdPreMaintIs( n.counts[2] );
   m.numSamplesBelowThresholdPreMaintIs( n.counts[3] );
   m.numSamplesAboveThresholdPostMaintIs( n.counts[4] );
   m.numSamplesBelowThresholdPostMaintIs( n.counts[5] );
}

template<class T>
void put( std::string & bytes, T value ) {
   bytes.append( reinterpret_cast<char const *>( &value ), sizeof value );
}

void append( std::string & bytes, Monitor const & m ) {
   std::string_view const name = m.intfId().name();
   put( bytes, static_cast<uint32_t>( name.size() ) );
   bytes += name;
   // In one piece, as it is short and there are many.
   std::array<char, sizeof( uint16_t ) + sizeof( Numbers )> piece{};
   std::size_t end = sizeof( uint16_t );
   uint16_t present = 0;
   uint16_t bit = 1;
   auto const number = [&]( auto value ) {
      // By its bits: there is a zero with a sign.
      static constexpr decltype( value ) zero{};
      if( std::memcmp( &value, &zero, sizeof value ) != 0 ) {
         present |= bit;
         std::memcpy( piece.data() + end, &value, sizeof value );
         end += sizeof value;
      }
      bit = static_cast<uint16_t>( bit << 1 );
   };
   Numbers const n = numbersOf( m );
   for( double const rate : n.rates ) number( rate );
   for( uint32_t const count : n.counts ) number( count );
   std::memcpy( piece.data(), &present, sizeof present );
   bytes.append( piece.data(), end );
}

// What is left of a list.
class Rest {
 public:
   explicit Rest( std::string_view bytes ) : bytes_( bytes ) {}

   [[nodiscard]] bool empty() const { return bytes_.empty(); }
   std::string_view text( std::size_t size ) {
      if( bytes_.size() < size ) throw AttributeError( "ends in the middle of a monitor" );
      std::string_view const taken = bytes_.substr( 0, size );
      bytes_.remove_prefix( size );
      return taken;
   }
   template<class T>
   T number() {
      T value{};
      std::memcpy( &value, text( sizeof value ).data(), sizeof value );
      return value;
   }

 private:
   std::string_view bytes_;
};

Numbers takeNumbers( Rest & rest ) {
   auto present = rest.number<uint16_t>();
   if( present >> ( ratesMost + countsMost ) != 0 ) throw AttributeError( "has a number that no monitor has" );
   auto const taken = [&]( auto & value ) {
      if( ( present & 1u ) != 0 ) value = rest.number<std::remove_reference_t<decltype( value )>>();
      present >>= 1;
   };
   Numbers n;
   for( double & rate : n.rates ) taken( rate );
   for( uint32_t & count : n.counts ) taken( count );
   return n;
}

std::string top() { return Records::rowPath( Maintenance::Path::monIntfStatus ) + "/passing"; }

Kel::Ptr<Monitors> monitorsIn( Dovra::EntityManager const & database ) {
   return Kel::dynamicPtrCast<Monitors>( database.getEntity( std::string( Maintenance::Path::monIntfStatus ) ) );
}

// In the order of their numbers is in the order of these.
std::string pathOf( uint64_t list ) {
   std::string const digits = std::to_string( list );
   constexpr std::size_t width = 12;
   return top() + "/" + std::string( width - std::min( width, digits.size() ), '0' ) + digits;
}

}  // namespace

Monitor const * Passing::monitor( Kel::Entity const & e ) {
   // The type is final, so this is no walk through its bases.
   return &e.kelTypeInfo() == &Monitor::kelType() ? static_cast<Monitor const *>( &e ) : nullptr;
}

bool Passing::isList( std::string_view path ) {
   static std::string const before = top() + "/";
   return path.starts_with( before );
}

void Passing::restore( Dovra::EntityManager const & database, std::string_view list ) {
   if( list.empty() || list.front() != version ) throw AttributeError( "is no list of monitors that is known here" );
   auto const monitors = monitorsIn( database );
   for( Rest rest( list.substr( 1 ) ); !rest.empty(); ) {
      std::string_view const name = rest.text( rest.number<uint32_t>() );
      if( name.empty() ) throw AttributeError( "names an interface without a name" );
      Numbers const numbers = takeNumbers( rest );
      auto const intf = Lumo::IntfId::known( name );
      auto const one = intf && monitors ? monitors->monIntfStatus( *intf ) : nullptr;
      if( one ) numbersIs( *one, numbers );
   }
}

void Passing::write( Dovra::EntityManager const & database, std::vector<Monitor const *> const & monitors,
                     Store::Transaction & to ) {
   added_ = inStore_;
   if( monitors.empty() ) return;
   auto const directory = monitorsIn( database );
   std::size_t const all = directory->monIntfStatuss();
   bool const whole =
      !inStore_.known || monitors.size() >= all || inStore_.monitors + monitors.size() > timesAll * all + monitorsMore;
   std::string list( 1, version );
   if( whole ) {
      to.del( top() );
      for( auto [intf, one] : directory->monIntfStatusIteratorConst() ) append( list, *one );
      added_ = { 0, all, true };
   } else {
      for( Monitor const * const one : monitors ) append( list, *one );
      added_.monitors += monitors.size();
   }
   to.putSeries( pathOf( added_.next++ ), list );
}

}  // namespace Host

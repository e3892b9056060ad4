// Samples that change nothing but numbers take no memory from the heap: whoever watches a thousand interfaces for a
// month must neither grow nor fragment. The program's operator new counts, for the plug-in and the platform too, since
// the shared objects of a process take the executable's.
#include <cstdlib>
#include <new>

#include "DrainStory.h"

namespace {

uint64_t allocations = 0;

void * counted( std::size_t bytes, std::size_t alignment ) {
   ++allocations;
   std::size_t const whole = ( bytes + alignment - 1 ) / alignment * alignment;
   void * const memory = std::aligned_alloc( alignment, whole > 0 ? whole : alignment );
   if( !memory ) throw std::bad_alloc();
   return memory;
}

}  // namespace

void * operator new( std::size_t bytes ) { return counted( bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__ ); }
void * operator new[]( std::size_t bytes ) { return counted( bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__ ); }
void * operator new( std::size_t bytes, std::align_val_t alignment ) {
   return counted( bytes, static_cast<std::size_t>( alignment ) );
}
void * operator new[]( std::size_t bytes, std::align_val_t alignment ) {
   return counted( bytes, static_cast<std::size_t>( alignment ) );
}
void operator delete( void * memory ) noexcept { std::free( memory ); }
void operator delete[]( void * memory ) noexcept { std::free( memory ); }
void operator delete( void * memory, std::size_t ) noexcept { std::free( memory ); }
void operator delete[]( void * memory, std::size_t ) noexcept { std::free( memory ); }
void operator delete( void * memory, std::align_val_t ) noexcept { std::free( memory ); }
void operator delete[]( void * memory, std::align_val_t ) noexcept { std::free( memory ); }
void operator delete( void * memory, std::size_t, std::align_val_t ) noexcept { std::free( memory ); }
void operator delete[]( void * memory, std::size_t, std::align_val_t ) noexcept { std::free( memory ); }

namespace Test {

class Allocation : public DrainStory {
 protected:
   static constexpr uint32_t intfCount = 50;

   Allocation() {
      for( uint32_t i = 1; i <= intfCount; ++i ) intfs_.push_back( "Ethernet" + std::to_string( i ) );
      unit( "fabric", intfs_ );
      start();
      allTraffic( 1_Mbps );
   }

   void allTraffic( unsigned long long bps ) {
      for( std::string const & intf : intfs_ ) traffic( intf, bps );
   }

   template<class Act>
   [[nodiscard]] static uint64_t allocationsIn( Act const & act ) {
      uint64_t const before = allocations;
      act();
      return allocations - before;
   }

   // Every interface is sampled that often in the next minute.
   void expectMinuteWithoutAllocation( uint32_t samplesEach ) {
      uint32_t const before = samples();
      EXPECT_EQ( allocationsIn( [this] { advance( 60_s ); } ), 0u );
      EXPECT_EQ( samples() - before, samplesEach * intfCount );
   }

   std::vector<std::string> intfs_;

 private:
   [[nodiscard]] uint32_t samples() const {
      uint32_t sum = 0;
      for( std::string const & intf : intfs_ ) sum += monitored( intf )->totalSamples();
      return sum;
   }
};

TEST_F( Allocation, steadySamplesTakeNoMemory ) {
   EXPECT_GT( allocationsIn( [this] { enter( "fabric" ); } ), intfCount )
      << "the plug-in's allocations are not counted";
   advance( 20_s );
   ASSERT_EQ( monitored( "Ethernet1" )->state(), MonIntfState::thresholdMonitoring );
   expectMinuteWithoutAllocation( 6 );

   allTraffic( 0_bps );
   advance( 60_s );
   ASSERT_EQ( monitored( "Ethernet1" )->state(), MonIntfState::passiveMonitoring );
   finishEnter( "fabric" );
   expectMinuteWithoutAllocation( 3 );

   allTraffic( 1_Mbps );  // comes back: spikes are recorded, and then nothing is new any more
   advance( 20_s );
   ASSERT_EQ( status( "fabric" ).intfsViolatingTrafficThresholds(), intfCount );
   expectMinuteWithoutAllocation( 3 );
}

}  // namespace Test

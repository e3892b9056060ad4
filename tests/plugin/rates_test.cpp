// From octet counters to published rates: Ethernet interfaces, port-channels, VLAN interfaces.
#include "DrainStory.h"

namespace Test {

class Rates : public DrainStory {
 protected:
   // Ends an interval of 10 s with the counters at these values; says what must have been published.
   void expectSample( Brim::MaybeU63 in, Brim::MaybeU63 out, double inRate, double outRate ) {
      octets( "Ethernet1", in, out );
      advance( 10_s );
      auto const rates = monitored( "Ethernet1" )->curRates();
      EXPECT_EQ( rates.inBitsRate, inRate );
      EXPECT_EQ( rates.outBitsRate, outRate );
      EXPECT_EQ( rates.updateTime, now() );
      EXPECT_EQ( monitored( "Ethernet1" )->lastSampleTime(), now() );
   }

   void member( std::string const & intf, std::string const & portChannel ) {
      state_.lagConfig->phyIntfIs( Lumo::IntfId( intf ) )->lagIs( Lumo::IntfId( portChannel ) );
   }
   void inVlan( uint16_t vlan, std::string const & intf ) {
      state_.vlanStatus->vlanStatusIs( vlan )->intfIs( Lumo::IntfId( intf ), true );
   }
   Interface::IntfRates published( std::string const & intf ) { return monitored( intf )->curRates(); }
};

TEST_F( Rates, aCounterWithoutAValueMakesNoRateInItsDirectionOnly ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   octets( "Ethernet1", 0, 0 );
   enter( "fabric" );
   expectSample( Brim::MaybeU63::none(), 1250, 0, 1000 );
   expectSample( 9999, 2500, 0, 1000 );  // the one before had none
   expectSample( 11249, 2500, 1000, 0 );
}

TEST_F( Rates, aCounterThatGoesBackwardsReadsAsAWrapOf63Bits ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   octets( "Ethernet1", 1000, 0 );
   enter( "fabric" );
   double const wrapped = static_cast<double>( ( ( uint64_t{ 1 } << 63 ) - 1 ) * 8 ) / 10;
   expectSample( 999, 0, wrapped, 0 );
}

TEST_F( Rates, aPortChannelGoesWithoutMembersThatHaveNoCountersOrAreNoEthernet ) {
   for( auto const * intf : { "Ethernet1", "Ethernet2", "Loopback0" } ) member( intf, "Port-Channel1" );
   unit( "fabric", { "Port-Channel1" } );
   start();
   for( auto const * intf : { "Ethernet1", "Ethernet2", "Loopback0" } ) traffic( intf, 1_Mbps );
   enter( "fabric" );
   advance( 10_s );
   EXPECT_NEAR( published( "Port-Channel1" ).inBitsRate, 2e6, 1 );
   EXPECT_EQ( counter( "numNoIntfCounter" ), 0u );
   countersDel( "Ethernet2" );
   advance( 10_s );
   EXPECT_NEAR( published( "Port-Channel1" ).inBitsRate, 1e6, 1 );
   EXPECT_EQ( published( "Port-Channel1" ).updateTime, now() );
   EXPECT_EQ( counter( "numNoIntfCounter" ), 1u );
}

TEST_F( Rates, aMemberReachedTwiceInOneSampleCountsOnce ) {
   member( "Ethernet1", "Port-Channel1" );
   member( "Ethernet2", "Port-Channel1" );
   inVlan( 10, "Ethernet1" );
   inVlan( 10, "Port-Channel1" );
   unit( "fabric", { "Vlan10" } );
   start();
   traffic( "Ethernet1", 1_Mbps );
   traffic( "Ethernet2", 2_Mbps );
   enter( "fabric" );
   advance( 10_s );
   EXPECT_NEAR( published( "Vlan10" ).inBitsRate, 3e6, 1 );
}

}  // namespace Test

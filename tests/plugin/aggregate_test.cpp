// A unit's aggregate rate: exact, rebuilt at every start, and fatal where the sums do not add up.
#include <gmock/gmock.h>

#include <iostream>

#include "DrainStory.h"
#include "brisklog/Brisklog.h"
#include "kel/Trace.h"
#include "records/Names.h"

namespace Test {

using ::testing::AllOf;
using ::testing::HasSubstr;

class Aggregate : public DrainStory {
 protected:
   // Sampled every 16 s, so that one octet in between is half a bit per second. Never drains.
   void SetUp() override { profile( "#DEFAULTPROFILE", { .sampleInterval = 16, .loadInterval = 3600 } ); }

   [[nodiscard]] uint64_t in( std::string const & unit ) const { return status( unit ).aggTrafficRate().inBitsRate; }
   [[nodiscard]] uint64_t out( std::string const & unit ) const { return status( unit ).aggTrafficRate().outBitsRate; }
   void aggregateIs( std::string const & unit, uint64_t inRate, uint64_t outRate ) {
      status( unit ).aggTrafficRateIs( { outRate, inRate, now() } );
   }
};

TEST_F( Aggregate, goesOnInARecordThatTakesTheUnitsPlace ) {
   unit( "fabric", { "Ethernet1" } );
   traffic( "Ethernet1", 1_Mbps );
   start();
   enter( "fabric" );
   advance( 16_s );
   auto const former = state_.unitStatus->status( Kel::String8( "fabric" ) );
   Kel::Ptr<Maintenance::Unit::Status> const replacement( new Maintenance::Unit::Status( Kel::String8( "fabric" ) ) );
   replacement->aggTrafficRateIs( former->aggTrafficRate() );
   state_.unitStatus->statusIs( replacement );
   traffic( "Ethernet1", 2_Mbps );
   advance( 16_s );
   EXPECT_EQ( in( "fabric" ), 2'000'000u );
   EXPECT_EQ( former->aggTrafficRate().inBitsRate, 1'000'000u );
}

// No counter makes such rates, but whoever writes records by name can.
TEST_F( Aggregate, countsRatesThatNoSignedNumberHolds ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   enter( "fabric" );
   auto const record = monitored( "Ethernet1" );
   record->curRatesIs( { -2.5, 1e19, now() } );
   EXPECT_EQ( in( "fabric" ), ~uint64_t{ 0 } - 2 );  // -3
   EXPECT_EQ( out( "fabric" ), 10'000'000'000'000'000'000u );
   record->prevRatesIs( record->curRates() );
   record->curRatesIs( { 1, 2, now() } );
   EXPECT_EQ( in( "fabric" ), 1u );
   EXPECT_EQ( out( "fabric" ), 2u );
}

// Each failure says which in the trace, then stops the agent. The checks come in this order, so the sums that are wrong
// in more than one way fail with the first.
TEST_F( Aggregate, stopsTheAgentWhereItDoesNotAddUp ) {
   unit( "fabric", { "Ethernet1" } );
   traffic( "Ethernet1", 11_bps, 11_bps );
   profile( "#DEFAULTPROFILE", { .sampleInterval = 8, .loadInterval = 3600 } );
   start();
   enter( "fabric" );
   advance( 8_s );
   ASSERT_EQ( in( "fabric" ), 11u );
   traffic( "Ethernet1", 20_bps, 20_bps );
   Kel::traceHandle( Maintenance::rateMonTraceHandle ).levelsIs( { 1 } );
   uint64_t const top = ~uint64_t{ 0 };
   struct Case {
      uint64_t in, out;
      char const * text;
      char const * ring;
   };
   for( auto const & [aggIn, aggOut, text, ring] : {
           Case{ 10, 11,
                 "Underflow while subtracting rateToSubInRate from curAggInRate. Unit:fabric IntfId:Ethernet1 "
                 "ratesToSubInRate:11 curAggInRate:10",
                 "Underflow while subtracting ratesToSubInRate from curAggInRate. Unit:fabric IntfId:Ethernet1 "
                 "ratesToAddInRate:11 curAggInRate:10" },
           Case{ 10, 10, "rateToSubInRate from curAggInRate.", "ratesToSubInRate from curAggInRate." },
           Case{ 11, 10,
                 "Underflow while subtracting rateToSubOutRate from curAggOutRate. Unit:fabric IntfId:Ethernet1 "
                 "ratesToSubOutRate:11 curAggOutRate:10",
                 "Underflow while subtracting ratesToSubOutRate from curAggOutRate. Unit:fabric IntfId:Ethernet1 "
                 "ratesToSubOutRate:11 curAggOutRate:10" },
           Case{ top, 10, "rateToSubOutRate from curAggOutRate.", "ratesToSubOutRate from curAggOutRate." },
           Case{ top, top,
                 "Overflow while adding ratesToAddInRate to curAggInRate.Unit:fabric IntfId:Ethernet1 "
                 "ratesToAddInRate:20 curAggInRate:18446744073709551615 sumIn:19",
                 "Overflow while adding ratesToAddInRate to curAggInRate. Unit:fabric IntfId:Ethernet1 "
                 "ratesToAddInRate:20 curAggInRate:18446744073709551615 sumIn:19" },
           Case{ 11, top,
                 "Overflow while adding ratesToAddOutRate to  curAggOutRate. Unit:fabric IntfId:Ethernet1 "
                 "ratesToAddOutRate:20 curAggOutRate:18446744073709551615 sumOut:19",
                 "Overflow while adding ratesToAddOutRate to curAggOutRate. Unit:fabric IntfId:Ethernet1 "
                 "ratesToAddOutRate:20 curAggOutRate:18446744073709551615 sumOut:19" },
        } ) {
      SCOPED_TRACE( text );
      EXPECT_DEATH(
         {
            Brisklog::tapIs( []( Brisklog::Message const & message ) { std::cerr << message.text << '\n'; } );
            aggregateIs( "fabric", aggIn, aggOut );
            advance( 8_s );
         },
         AllOf( HasSubstr( text ), HasSubstr( ring ), HasSubstr( "Assertion failed: \"0\"" ) ) );
   }
   aggregateIs( "fabric", top - 9, 11 );  // overflows with 20, although 11 go
   EXPECT_DEATH( advance( 8_s ), HasSubstr( "ratesToAddInRate" ) );
}

// A unit that is served without ever having had a record gets an interface through one of its groups.
TEST_F( Aggregate, stopsTheAgentWhereAServedUnitHasNoRecord ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   state_.enter.progress->progressIs( instance( "absent", 1 ) )->stageIs( "ratemon", true );
   state_.groupToUnit->groupToUnit( { Group::GroupType::intf, "fabric" } )->unitNameIs( "absent", true );
   advance( 0 );
   ASSERT_TRUE( monitored( "Ethernet1" ) );
   Kel::traceHandle( Maintenance::rateMonTraceHandle ).levelsIs( { 1 } );
   EXPECT_DEATH( advance( 16_s ), AllOf( HasSubstr( "Error:Unit Status object does not exist for a dependent unit."
                                                    "IntfId:Ethernet1 Unit:absent" ),
                                         HasSubstr( "Assertion failed: \"0\"" ) ) );
}

}  // namespace Test

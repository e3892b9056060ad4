// maintd and maintctl as an operator meets them: real processes, real links, real packets.
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>

#include "Box.h"
#include "quill/CounterTable.h"

namespace Test {

using ::testing::HasSubstr;

namespace {

std::string config( std::string const & interfaces, std::string const & loadInterval = "3s" ) {
   return "profiles:\n  quick: { threshold: 100kbps, sample-interval: 1s, load-interval: " + loadInterval +
          " }\ndefault-profile: quick\ngroups:\n  g: { interfaces: [" + interfaces +
          "] }\nunits:\n  fabric: { groups: [g] }\n";
}

}  // namespace

class Maintd : public Box {
 protected:
   // One sample as it was published, with what the kernel may have counted as sent when it was taken.
   struct Sample {
      int number = 0;
      double outBitsRate = 0;
      double time = 0;                         // s
      double sentAtLeast = 0, sentAtMost = 0;  // bytes
   };
   // The one after it. That was not taken yet when it was asked for in vain, and is when it is seen.
   [[nodiscard]] Sample sampleAfter( std::string const & link, Sample const & previous ) const {
      Sample next;
      next.sentAtLeast = previous.sentAtLeast;
      for( ;; ) {
         double const sent = sentBytes( link );
         auto const record = boost::json::parse(
            maintctl( { "get", "maintenance/interface/status/ratemon/monIntfStatus/" + link } ).out );
         next.number = record.at( "totalSamples" ).to_number<int>();
         if( next.number != previous.number ) {
            auto const & rates = record.at( "curRates" );
            next.outBitsRate = rates.at( "outBitsRate" ).to_number<double>();
            next.time = rates.at( "updateTime" ).to_number<double>();
            next.sentAtMost = sentBytes( link );
            return next;
         }
         next.sentAtLeast = sent;
      }
   }
};

// The start reads and runs through much that is not needed afterwards, also while somebody asks now and then.
TEST_F( Maintd, keepsLittleOfItsStartInMemory ) {
   startMaintd( config( "up1" ) );
   std::map<std::string, long> kibibytes;
   std::ifstream status( std::filesystem::path( maintdsRoot() ).replace_filename( "status" ) );
   for( std::string line; std::getline( status, line ); )
      kibibytes[line.substr( 0, line.find( ':' ) )] = std::atol( line.c_str() + line.find( ':' ) + 1 );
   ASSERT_GT( kibibytes["VmRSS"], 0 );
   EXPECT_LT( kibibytes["VmRSS"], kibibytes["VmHWM"] * 3 / 4 );
}

TEST_F( Maintd, takesAUnitThroughAWholeCycle ) {
   link( "up1", 1 );
   link( "up2", 2 );
   startMaintd( config( "up1, up2" ) );
   pid_t const sender = send( "up1", 1, 4e6 );
   auto const entered = maintctl( { "enter", "fabric", "--json" } );
   EXPECT_EQ( entered.status, 0 );
   EXPECT_THAT( entered.out, HasSubstr( "\"result\": \"started\", \"generation\": 1" ) );
   ASSERT_TRUE( eventually( [&] { return shown( "up1" ).at( "totalSamples" ).to_number<int>() >= 2; } ) );

   // What was published is what the kernel counted over the same time. Of a machine with other things to do nobody
   // knows what it sends in a second, and a sample may pass before it is seen.
   Sample last = sampleAfter( "up1", {} );
   for( int samples = 0; samples < 4; ) {
      Sample const next = sampleAfter( "up1", last );
      if( next.number == last.number + 1 ) {
         double const published = next.outBitsRate * ( next.time - last.time );  // bits
         EXPECT_GT( published, 0 );
         EXPECT_GE( published, ( next.sentAtLeast - last.sentAtMost ) * 8 - 1 );
         EXPECT_LE( published, ( next.sentAtMost - last.sentAtLeast ) * 8 + 1 );
         ++samples;
      }
      last = next;
   }
   EXPECT_LT( shown( "up1" ).at( "inBitsRate" ).to_number<double>(), 100e3 );

   EXPECT_TRUE( eventually( [&] { return account( "fabric", "up2" ).at( "settled" ).as_bool(); } ) );
   EXPECT_FALSE( account( "fabric", "up1" ).at( "settled" ).as_bool() );
   EXPECT_THAT( maintctl( { "status" } ).out, HasSubstr( "to fall below 100 kbps" ) );
   auto const again = maintctl( { "enter", "fabric" } );
   EXPECT_EQ( again.status, 0 );
   EXPECT_THAT( again.out, HasSubstr( "already" ) );
   EXPECT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "1s" } ).status, 3 );

   stop( sender );
   EXPECT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   EXPECT_EQ( state( "fabric" ), "inMaintenance" );
   EXPECT_EQ( maintctl( { "exit", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   EXPECT_EQ( state( "fabric" ), "active" );
   EXPECT_EQ( maintctl( { "get", "maintenance/interface/status/ratemon/monIntfStatus" } ).out, "{}\n" );
   EXPECT_EQ( stopMaintd( SIGTERM ), 0 );
   EXPECT_FALSE( std::filesystem::exists( path( "maintd.sock" ) ) );
}

// The counter table holds what was last read from the kernel, so it stands still while nothing is read.
TEST_F( Maintd, readsTheKernelOnlyWhileAUnitIsInMaintenance ) {
   link( "up1", 1 );
   startMaintd( config( "up1", "0s" ), { "--counter-table", path( "counters" ) } );
   std::string before;
   auto const changed = [&] { return contents( path( "counters" ) ) != before; };
   auto const stands = [&] {
      before = contents( path( "counters" ) );
      double const sent = sentBytes( "up1" );
      // At 4 Mbps longer than two ticks of the wheel: a sample asked for between two comes after the second.
      EXPECT_TRUE( eventually( [&] { return sentBytes( "up1" ) > sent + 1.2e6; } ) );
      return !changed();
   };
   pid_t const sender = send( "up1", 1, 4e6 );
   EXPECT_TRUE( stands() );
   ASSERT_EQ( maintctl( { "enter", "fabric" } ).status, 0 );
   EXPECT_TRUE( eventually( changed ) );
   ASSERT_EQ( maintctl( { "exit", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   EXPECT_TRUE( stands() );
   stop( sender );
}

// A read that fails is no read of zeros: the row keeps the time of the last one that did not.
TEST_F( Maintd, doesNotTakeCountersForReadThatCouldNotBe ) {
   link( "up1", 1 );
   startMaintd( config( "up1" ), { "--counter-table", path( "counters" ) }, { .unread = path( "unread" ) } );
   auto const table = KelQuill::CounterTable::openReadOnly( path( "counters" ) );
   auto const row = [&] {
      for( uint32_t i = 0; i < table->rows(); ++i ) {
         auto const entry = table->entry( i );
         if( entry && entry->name == "up1" ) return entry->counters;
      }
      return KelQuill::CounterTable::LastRead{};
   };
   pid_t const sender = send( "up1", 1, 4e6 );
   ASSERT_EQ( maintctl( { "enter", "fabric" } ).status, 0 );
   ASSERT_TRUE( eventually( [&] { return row().readTime > 0; } ) );
   auto const samplesPass = [&]( int number ) {
      auto const samples = [&] { return shown( "up1" ).at( "totalSamples" ).to_number<int>(); };
      int const before = samples();
      return eventually( [&] { return samples() >= before + number; } );
   };
   file( "unread", "" );
   ASSERT_TRUE( samplesPass( 1 ) );  // a read may have been under way
   auto const unread = row();
   ASSERT_TRUE( samplesPass( 2 ) );
   EXPECT_EQ( row().readTime, unread.readTime );
   EXPECT_EQ( row().outOctets, unread.outOctets );
   EXPECT_THAT( contents( path( "maintd.log" ) ), HasSubstr( "the links' counters cannot be read: " ) );
   std::filesystem::remove( path( "unread" ) );
   EXPECT_TRUE( eventually( [&] { return row().readTime > unread.readTime; } ) );
   EXPECT_GT( row().outOctets.value(), unread.outOctets.value() );
   EXPECT_EQ( row().restarts, 0u );
   stop( sender );
}

// Nobody samples a link that is down, and nobody needs to.
TEST_F( Maintd, takesALinkThatIsDownThroughMaintenance ) {
   link( "up1", 1 );
   ip( "link set up1 down" );
   startMaintd( config( "up1", "2s" ) );
   EXPECT_EQ( maintctl( { "enter", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   EXPECT_EQ( text( account( "fabric", "up1" ), "verdict" ), "down" );
   EXPECT_EQ( maintctl( { "ready", "fabric" } ).status, 0 );
   EXPECT_EQ( shown( "up1" ).at( "outBitsRate" ), nullptr );
   EXPECT_EQ( maintctl( { "exit", "fabric", "--wait", "--timeout", "60s" } ).status, 0 );
   EXPECT_EQ( stopMaintd( SIGINT ), 0 );
}

TEST_F( Maintd, followsLinksThatComeAndGoWithoutAWrongRate ) {
   link( "up1", 1 );
   startMaintd( config( "up1", "3600s" ) );
   auto const operStatus = [&] { return text( shown( "up1" ), "operStatus" ); };
   static_cast<void>( send( "up1", 1, 4e6 ) );
   ASSERT_EQ( maintctl( { "enter", "fabric" } ).status, 0 );
   ASSERT_TRUE( eventually( [&] { return shown( "up1" ).at( "totalSamples" ).to_number<int>() >= 2; } ) );
   ip( "link set farup1 down" );
   EXPECT_TRUE( eventually( [&] { return operStatus() == "down"; } ) );
   ip( "link set farup1 up" );
   EXPECT_TRUE( eventually( [&] { return operStatus() == "up"; } ) );
   ip( "link delete up1" );
   EXPECT_TRUE( eventually( [&] { return operStatus() == "missing"; } ) );
   link( "up1", 1 );  // its counters start again at 0, and whoever sent on the other does not reach it
   static_cast<void>( send( "up1", 1, 4e6 ) );
   EXPECT_TRUE( eventually( [&] { return operStatus() == "up"; } ) );
   int const then = shown( "up1" ).at( "totalSamples" ).to_number<int>();
   double highest = 0;  // bit/s
   EXPECT_TRUE( eventually( [&] {
      auto const now = shown( "up1" );
      for( char const * const rate : { "inBitsRate", "outBitsRate" } ) {
         if( now.at( rate ).is_number() ) highest = std::max( highest, now.at( rate ).to_number<double>() );
      }
      return now.at( "totalSamples" ).to_number<int>() >= then + 3;
   } ) );
   EXPECT_GT( highest, 1e6 );
   EXPECT_LT( highest, 1e9 );
   EXPECT_EQ( stopMaintd( SIGTERM ), 0 );  // in the middle of the entry
}

TEST_F( Maintd, saysWhatIsWrong ) {
   auto const unreached = maintctl( { "units" } );
   EXPECT_EQ( unreached.status, 5 );
   EXPECT_THAT( unreached.err, HasSubstr( "Start it with: maintd --config" ) );
   EXPECT_EQ( maintctl( { "no-such-command" } ).status, 2 );

   std::string bad = config( "up1" );
   bad.replace( bad.find( "100kbps" ), 7, "100furlongs" );
   auto const refused =
      run( { RATEMON_MAINTD_PATH, "--config", file( "bad.yaml", bad ), "--socket", path( "maintd.sock" ) } );
   EXPECT_EQ( refused.status, 2 );
   EXPECT_THAT( refused.err, HasSubstr( path( "bad.yaml" ) + ":2:" ) );
   // Larger than one read of the file, with everything in its last part.
   std::string const longFile = file( "long.yaml", std::string( 10000, '\n' ) + bad );
   for( auto const & [name, reason] : std::map<std::string, std::string>{
           { path( "absent.yaml" ), path( "absent.yaml" ) + ": cannot be read: No such file or directory\n" },
           { "/", "/: cannot be read: Is a directory\n" },
           { longFile, longFile + ":10002:" } } ) {
      auto const unread = run( { RATEMON_MAINTD_PATH, "--config", name, "--socket", path( "maintd.sock" ) } );
      EXPECT_EQ( unread.status, 2 ) << name;
      EXPECT_THAT( unread.err, HasSubstr( reason ) );
   }
   EXPECT_FALSE( std::filesystem::exists( path( "maintd.sock" ) ) );

   startMaintd( config( "up1" ) );
   auto const unknown = maintctl( { "enter", "nowhere" } );
   EXPECT_EQ( unknown.status, 1 );
   EXPECT_THAT( unknown.err, HasSubstr( "there is no unit \"nowhere\"; the units are: fabric" ) );
   auto const second =
      run( { RATEMON_MAINTD_PATH, "--config", path( "maintd.yaml" ), "--socket", path( "maintd.sock" ) } );
   EXPECT_EQ( second.status, 1 );
   EXPECT_THAT( second.err, HasSubstr( "the links of this network namespace are another's" ) );
   EXPECT_EQ( maintctl( { "get", "maintenance/unit/status/status/fabric/state" } ).out, "1\n" );
   EXPECT_EQ( maintctl( { "get", "maintenance/unit/status/nothing" } ).status, 1 );
}

}  // namespace Test

// The tracker's backlog under a burst: slices that end in time, go on where they stopped, and take each interface once.
#include <gmock/gmock.h>

#include <algorithm>
#include <charconv>
#include <functional>

#include "DrainStory.h"
#include "brisklog/Brisklog.h"
#include "kel/Trace.h"
#include "records/Names.h"

namespace Test {

using ::testing::Contains;
using ::testing::ElementsAre;

class Backlog : public ::testing::Test {
 protected:
   static constexpr double clockStep = 0.001;  // s that each read of the clock takes
   static constexpr double quantum = 0.05;     // s, what a slice is allowed

   explicit Backlog( double step = clockStep ) : world_( RATEMON_PLUGIN_PATH, 1000, step ) {
      Brisklog::tapIs( [this]( Brisklog::Message const & message ) { hear( message.text ); } );
   }
   ~Backlog() override { Brisklog::tapIs( {} ); }

   static Lumo::IntfId ethernet( int n ) { return Lumo::IntfId( "Ethernet" + std::to_string( n ) ); }
   void linkIs( int n, Interface::IntfOperStatus status ) {
      world_.state().intfStatus->intfStatusIs( ethernet( n ) )->operStatusIs( status );
   }
   void links( int first, int last, Interface::IntfOperStatus status ) {
      for( int n = first; n <= last; ++n ) linkIs( n, status );
   }

   void hear( std::string const & text ) {
      std::string_view const work = "processIntf: intf ";
      std::string_view const end = "processBacklog: num items processed ";
      std::string_view const pause = "Pausing backlog processing at ";
      if( text.starts_with( work ) ) worked_.push_back( text.substr( work.size(), text.find( ',' ) - work.size() ) );
      if( text.starts_with( pause ) ) pauses_.push_back( text.substr( pause.size() ) );
      if( !text.starts_with( end ) ) return;
      uint64_t items = 0;
      std::from_chars( text.data() + end.size(), text.data() + text.size(), items );
      slices_.push_back( items );
   }
   // One line of the tracker's part of the dump.
   [[nodiscard]] std::string dumped( std::string const & name ) {
      std::string const text = world_.dump();
      std::size_t const at = text.find( name + ": " ) + name.size() + 2;
      return text.substr( at, text.find( '\n', at ) - at );
   }

   Sim::World world_;
   std::vector<std::string> worked_;  // interfaces, in the order in which they were worked on
   std::vector<uint64_t> slices_;     // how many each slice took
   std::vector<std::string> pauses_;  // before which interface a slice ended
};

TEST_F( Backlog, ofABurstIsWorkedOffInSlicesEachInterfaceOnce ) {
   int const count = 20'000;
   world_.start();
   world_.advance( 1 );
   links( 1, count, Interface::IntfOperStatus::down );
   links( 1, count, Interface::IntfOperStatus::up );
   EXPECT_EQ( dumped( "updatesSeen" ), std::to_string( 3 * count ) );  // it came, was down, was up
   EXPECT_EQ( dumped( "backlogSize" ), std::to_string( count ) );
   world_.advance( 0 );
   ASSERT_EQ( worked_.size(), static_cast<std::size_t>( count ) );
   for( int n = 1; n <= count; ++n ) ASSERT_EQ( worked_[static_cast<std::size_t>( n - 1 )], ethernet( n ).name() );
   // The clock is read once for each interface, so a slice has room for this many, and the one that it always takes.
   EXPECT_LE( *std::max_element( slices_.begin(), slices_.end() ), static_cast<uint64_t>( quantum / clockStep ) + 1 );
   EXPECT_GE( slices_.size(), static_cast<std::size_t>( count * clockStep / quantum * 0.9 ) );
   EXPECT_EQ( dumped( "updatesProcessed" ), std::to_string( count ) );
   EXPECT_EQ( dumped( "updatesCoalesced" ), std::to_string( 2 * count ) );
   EXPECT_EQ( dumped( "bookmark" ), "" );
   EXPECT_EQ( dumped( "warm" ), "true" );
}

TEST_F( Backlog, goesOnAtItsBookmarkAndComesRoundToTheSmallest ) {
   links( 1, 120, Interface::IntfOperStatus::up );
   world_.start();
   world_.loop().turn();  // the mounts are complete
   worked_.clear();
   world_.loop().turn();
   ASSERT_FALSE( worked_.empty() );
   std::string const bookmark = dumped( "bookmark" );
   EXPECT_NE( bookmark, "" );
   worked_.clear();
   // Before the bookmark: it has to wait until the others have had their turn.
   linkIs( 1, Interface::IntfOperStatus::down );
   world_.advance( 0 );
   ASSERT_GT( worked_.size(), 2u );
   EXPECT_EQ( worked_.front(), bookmark );
   EXPECT_EQ( worked_[worked_.size() - 2], "Ethernet120" );
   EXPECT_EQ( worked_.back(), "Ethernet1" );
   EXPECT_GT( slices_.back(), 1u );  // it did not need a slice of its own
   EXPECT_EQ( dumped( "bookmark" ), "" );
}

// Plays the host that hears of a monitor's end, inside the work that ended it, and finds the link up again.
class ComesBack final : public Kel::Watcher {
 public:
   ComesBack( Maintenance::MonIntfStatusDir const & dir, std::function<void()> hear )
      : dir_( dir ), hear_( std::move( hear ) ) {
      dir_.watcherIs( *this );
   }
   ~ComesBack() override { dir_.watcherDel( *this ); }
   void onAttribute( Kel::Entity const &, Kel::AttributeInfo const & attribute, std::string const * ) override {
      if( attribute.name() == "monIntfStatus" && dir_.monIntfStatuss() == 0 ) hear_();
   }

 private:
   Maintenance::MonIntfStatusDir const & dir_;
   std::function<void()> const hear_;
};

class BacklogStory : public DrainStory {};

TEST_F( BacklogStory, anInterfaceThatItsOwnWorkQueuesComesAgain ) {
   unit( "fabric", { "Ethernet1" } );
   start();
   enter( "fabric" );
   int ended = 0;
   ComesBack const host( *state_.monIntfStatus, [&] {
      ++ended;
      link( "Ethernet1", Interface::IntfOperStatus::up );
   } );
   link( "Ethernet1", Interface::IntfOperStatus::down );
   advance( 0 );
   EXPECT_EQ( ended, 1 );
   ASSERT_TRUE( monitored( "Ethernet1" ) );
   advance( 30_s );
   EXPECT_EQ( monitored( "Ethernet1" )->totalSamples(), 3u );
}

// On a clock of which one read takes longer than a slice may.
class SlowBacklog : public Backlog {
 protected:
   SlowBacklog() : Backlog( 2 * quantum ) {}
};

TEST_F( SlowBacklog, takesOneInterfaceInEachSlice ) {
   std::vector<std::string> traced;
   Kel::TraceHandle & trace = Kel::traceHandle( Maintenance::rateMonTraceHandle );
   Kel::traceSinkIs( [&]( Kel::TraceRecord const & record ) { traced.emplace_back( record.text ); } );
   trace.levelsIs( { 4 } );
   links( 1, 5, Interface::IntfOperStatus::up );
   world_.start();
   world_.advance( 0 );
   trace.levelsIs( {} );
   Kel::traceSinkIs( {} );
   EXPECT_THAT( traced, Contains( "processBacklog: Pausing backlog processing at Ethernet2" ) );
   EXPECT_THAT( worked_, ElementsAre( "Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5" ) );
   EXPECT_THAT( slices_, ElementsAre( 1u, 1u, 1u, 1u, 1u ) );
   EXPECT_THAT( pauses_, ElementsAre( "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5" ) );
   EXPECT_EQ( dumped( "yieldBeforeFinishingCount" ), "4" );
}

}  // namespace Test

// What the keeper puts on disk, when, and what is there again after a restart.
#include "store/Keeper.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <optional>
#include <random>
#include <span>

#include "RandomRecords.h"
#include "TempDir.h"
#include "evidence/Windows.h"
#include "kel/ActivityLoop.h"
#include "kel/Dir.h"
#include "kel/Json.h"
#include "links/HeldLinks.h"
#include "records/Errdisable.h"
#include "records/Names.h"
#include "state/MaintenanceState.h"
#include "store/Passing.h"
#include "store/Records.h"
#include "store/RowText.h"

namespace Host {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace fs = std::filesystem;
namespace Path = Maintenance::Path;
using Evidence::Window;
using Evidence::WindowIntf;
using Maintenance::MonIntfStatus;

// The records of an agent, and all of them as text, each directory by itself.
struct Kept {
   Kel::Ptr<Dovra::EntityManager> database{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state{ *database };
   std::vector<std::string> kept = Records::kept( *database );

   [[nodiscard]] std::string text() const {
      std::string all;
      for( auto const & path : kept ) all += path + " " + textOf( *database->getEntity( path ) ) + "\n";
      return all;
   }
   static std::string textOf( Kel::Entity const & e ) {
      std::string all = e.kelTypeInfo().name();
      for( auto const & attribute : e.kelTypeInfo().attributes() ) {
         if( attribute->kind() == Kel::AttributeInfo::Kind::reference ) continue;
         all += " " + attribute->name() + "=";
         if( attribute->kind() != Kel::AttributeInfo::Kind::children ) {
            all += textOf( attribute->get( e ) );
            continue;
         }
         for( auto const & key : attribute->keys( e ) ) all += "\n " + key + textOf( *attribute->child( e, key ) );
      }
      return all;
   }
   // Tells all numbers from each other.
   static std::string textOf( Kel::Value const & value ) {
      std::string all;
      if( auto const * const object = value.as<Kel::Value::Object>() ) {
         for( auto const & [name, member] : *object ) all += name + ":" + textOf( member ) + " ";
      } else if( auto const * const list = value.as<Kel::Value::List>() ) {
         for( auto const & element : *list ) all += "[" + textOf( element ) + "]";
      } else if( auto const * const d = value.as<double>() ) {
         std::array<char, 40> text{};
         std::snprintf( text.data(), text.size(), "%a", *d );
         all = text.data();
      } else {
         all = Kel::toJson( value );
      }
      return all;
   }
};

class KeeperTest : public ::testing::Test {
 protected:
   Keeper::Parts parts( Kept const & records, Store & store ) {
      return { records.database,
               store,
               [this]( std::string const & text ) { told_.push_back( text ); },
               [this] { ++writable_; },
               [this] { return 1e9 + clock_->now(); },
               "boot",
               5 };
   }
   void begin() {
      store_.emplace( path_ );
      records_.emplace();
      keeper_.emplace( parts( *records_, *store_ ) );
   }
   void end() {
      keeper_.reset();
      store_.reset();
   }
   // What an agent finds that starts after a crash at this moment.
   std::string afterCrash() {
      std::string const copy = dir_ / "copy.db";
      fs::copy_file( path_, copy, fs::copy_options::overwrite_existing );
      fs::copy_file( path_ + "-wal", copy + "-wal", fs::copy_options::overwrite_existing );
      Store store( copy );
      Kept const found;
      keeper_.reset();  // there is one at a time; it has nothing left to write
      { Keeper const keeper( parts( found, store ) ); }
      return found.text();
   }
   std::string afterEnd() {
      end();
      begin();
      return records_->text();
   }
   void inTurn( Kel::ActivityLoop::Work const & work ) { loop_.turn( work ); }
   // Second by second, `each` in each. How often something was put on disk.
   int commits( int seconds, std::function<void()> const & each ) {
      int count = 0;
      double last = store_->moment().now;
      for( int i = 0; i < seconds; ++i ) {
         loop_.runUntil( *clock_, clock_->now() + 1 );
         inTurn( each );
         if( std::exchange( last, store_->moment().now ) != store_->moment().now ) ++count;
      }
      return count;
   }
   std::string row( std::string const & path ) const {
      auto const rows = store_->rows( path );
      return rows.empty() ? "" : rows.front().value;
   }

   TempDir const dir_;
   std::string const path_ = dir_ / "maintd.db";
   std::vector<std::string> told_;
   int writable_ = 0;
   Kel::Ptr<Kel::VirtualClock> clock_{ new Kel::VirtualClock( 1000 ) };
   Kel::ActivityLoop loop_{ Kel::Ptr<Kel::Clock>( clock_ ) };
   std::optional<Store> store_;
   std::optional<Kept> records_;
   std::optional<Keeper> keeper_;
};

TEST_F( KeeperTest, whateverIsInTheRecordsIsThereAgainAfterAnEndAndAfterACrash ) {
   auto const seed = std::random_device{}();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   RandomRecords random( seed );
   begin();
   for( int life = 0; life < 8; ++life ) {
      SCOPED_TRACE( "life " + std::to_string( life ) );
      for( int turn = 0; turn < 10; ++turn ) {
         inTurn( [&] {
            for( auto const & path : records_->kept ) {
               if( random.oneIn( 2 ) ) random.change( *records_->database->getEntity( path ) );
            }
         } );
      }
      ASSERT_TRUE( keeper_->keep() );
      std::string const before = records_->text();
      // The copy first; what its keeper has written does not reach the store.
      ASSERT_EQ( afterCrash(), before );
      ASSERT_EQ( afterEnd(), before );
   }
   EXPECT_THAT( told_, IsEmpty() );
   EXPECT_GT( records_->text().size(), 2000u );
}

TEST_F( KeeperTest, aKindThatANameDoesNotTellIsThereAgain ) {
   using Lumo::IntfId;
   using Lumo::IntfKind;
   begin();
   IntfId const trunk = IntfId::declare( "keeper-trunk", IntfKind::portChannel );
   IntfId const vlan = IntfId::declare( "keeper.7", IntfKind::vlan, 7 );
   IntfId const sub( "Ethernet1.100" );
   Service::HeldLinkDir & held = *Service::heldLinkDir( *records_->database );
   inTurn( [&] {
      held.heldIs( trunk );
      held.heldIs( sub );
      records_->state.monIntfStatus->monIntfUnderMaintIs( vlan, true );
   } );
   // As in another process, which knows nothing of them.
   IntfId::declare( "keeper-trunk", IntfKind::other );
   IntfId::declare( "keeper.7", IntfKind::other );
   end();
   begin();
   EXPECT_EQ( trunk.kind(), IntfKind::portChannel );
   EXPECT_EQ( vlan.kind(), IntfKind::vlan );
   EXPECT_EQ( Lumo::VlanIntfId::vlanId( vlan ), 7 );
   EXPECT_EQ( sub.baseKind(), IntfKind::ethernet );
}

TEST_F( KeeperTest, samplesGoToDiskEveryTenSecondsAndChangesAtOnce ) {
   begin();
   Lumo::IntfId const up1( "up1" );
   Kel::Ptr<MonIntfStatus> status( new MonIntfStatus( up1 ) );
   inTurn( [&] { records_->state.monIntfStatus->monIntfStatusIs( status ); } );
   auto const sample = [&] {
      status->lastSampleTimeIs( Kel::now() );
      status->totalSamplesInc( 1 );
      status->curRatesIs( { Kel::now(), 2, 3 } );
   };
   EXPECT_EQ( commits( 60, sample ), 5 );  // the last ten seconds are still to come
   EXPECT_EQ( commits( 60, [] {} ), 1 );
   EXPECT_EQ( commits( 60, [] {} ), 0 );
   EXPECT_EQ( commits( 3, [&] { status->stateTimeIs( Kel::now() ); } ), 3 );
   // What passes goes along with what else changes in its record.
   inTurn( [&] {
      sample();
      status->spikeUnderMaintIs( true );
   } );
   // Nothing that is set to what it is, and nothing that is not kept.
   EXPECT_EQ( commits( 20,
                       [&] {
                          status->spikeUnderMaintIs( true );
                          records_->state.intfStatus->intfStatusDel( up1 );
                          records_->state.intfStatus->intfStatusIs( up1 );
                       } ),
              0 );
   EXPECT_THAT( afterCrash(), HasSubstr( " totalSamples=61 " ) );
}

class MonitorKeeperTest : public KeeperTest {
 protected:
   static constexpr int monitors = 10;

   Kel::Ptr<MonIntfStatus> monitor( int i ) {
      return records_->state.monIntfStatus->monIntfStatusIs( Lumo::IntfId( "up" + std::to_string( i ) ) );
   }
   void sample( int i ) {
      monitor( i )->totalSamplesInc( 1 );
      monitor( i )->curRatesIs( { Kel::now() / 3, -0.0, Kel::now() } );
      monitor( i )->lastSampleTimeIs( Kel::now() );
   }
   std::size_t bytesOfLists() const {
      std::size_t all = 0;
      store_->eachSeries(
         [&]( auto const & path, auto const & bytes ) { all += Passing::isList( path ) * bytes.size(); } );
      return all;
   }
};

TEST_F( MonitorKeeperTest, theirNumbersAreThereAfterACrashAndTakeNoMoreRoomAsTimeGoesBy ) {
   begin();
   inTurn( [&] {
      for( int i = 0; i < monitors; ++i ) sample( i );
   } );
   std::size_t const once = bytesOfLists();
   std::size_t most = 0;
   std::minstd_rand random( 1 );
   for( int round = 0; round < 150; ++round ) {
      // Some of them, and now and then one that is new under an old name, whose numbers are 0.
      commits( 11, [&] {
         if( random() % 20 == 0 ) {
            records_->state.monIntfStatus->monIntfStatusDel( Lumo::IntfId( "up3" ) );
            monitor( 3 );
         }
         if( random() % 4 == 0 ) sample( static_cast<int>( random() % monitors ) );
      } );
      most = std::max( most, bytesOfLists() );
   }
   EXPECT_LT( most, 15 * once );
   EXPECT_GT( most, 2 * once );
   commits( 11, [] {} );
   std::string const before = records_->text();
   EXPECT_EQ( afterCrash(), before );
}

TEST_F( MonitorKeeperTest, rowsOfAnEarlierLayoutHaveTheNumbersUntilAListHasThem ) {
   store_.emplace( path_ );
   Store::Changes changes;
   for( char const * const name : { "up1", "up2" } ) {
      changes.written.push_back( { std::string( "maintenance/interface/status/ratemon/monIntfStatus/" ) + name,
                                   R"({"totalSamples":7,"curRates":{"inBitsRate":5}})" } );
   }
   store_->commit( changes );
   store_.reset();
   begin();
   EXPECT_EQ( monitor( 1 )->curRates().inBitsRate, 5 );
   inTurn( [&] { sample( 2 ); } );
   commits( 11, [] {} );
   std::string const before = records_->text();
   EXPECT_THAT( before, HasSubstr( " totalSamples=8 " ) );
   EXPECT_EQ( afterCrash(), before );
}

class WindowKeeperTest : public KeeperTest {
 protected:
   // One under way, with so many interfaces.
   void window( int intfs ) {
      window_ = new Window( "fabric#1" );
      inTurn( [&] {
         Evidence::windowDir( *records_->database )->windowIs( window_ );
         for( int i = 0; i < intfs; ++i ) {
            intfs_.push_back( window_->intfIs( Lumo::IntfId( "up" + std::to_string( i ) ) ) );
         }
      } );
      status_ = records_->state.monIntfStatus->monIntfStatusIs( Lumo::IntfId( "up0" ) );
   }
   void beginAgain() {
      begin();
      intfs_.clear();
      window_ = Evidence::windowDir( *records_->database )->window( "fabric#1" );
      for( auto [id, intf] : window_->intfIterator() ) intfs_.push_back( intf );
      status_ = records_->state.monIntfStatus->monIntfStatus( Lumo::IntfId( "up0" ) );
   }
   void sample() {
      status_->totalSamplesInc( 1 );
      for( auto const & intf : intfs_ ) intf->rateIs( { Kel::now(), 0, 0, 0, 0, 0, 0, 0 } );
   }
   // Of all interfaces, in their order. How many cells are on disk.
   std::vector<std::size_t> cells() const {
      std::vector<std::size_t> found;
      std::map<std::string, std::size_t> onDisk;
      store_->eachSeries( [&]( auto const & path, auto const & all ) {
         if( Passing::isList( path ) ) return;
         WindowIntf intf( Lumo::IntfId( "any" ) );
         intf.packedRatesIs( all.substr( all.find_first_not_of( 'p' ) ) );
         onDisk[path] = intf.rates().size();
      } );
      for( auto const & intf : intfs_ ) {
         found.push_back( onDisk["maintenance/evidence/window/window/fabric#1/intf/" + intf->name()] );
      }
      return found;
   }

   Kel::Ptr<Window> window_;
   std::vector<Kel::Ptr<WindowIntf>> intfs_;
   Kel::Ptr<MonIntfStatus> status_;
};

TEST_F( WindowKeeperTest, theRatesOfEachInterfaceGoToDiskOnceInFiveMinutesAndNotAllAtATime ) {
   begin();
   window( 30 );
   // One minute is a fifth of it.
   commits( 61, [&] { sample(); } );
   auto const first = cells();
   EXPECT_EQ( std::ranges::count( first, 0u ), 24 );
   EXPECT_EQ( std::ranges::max( first ), 60u );
   commits( 300, [&] { sample(); } );
   EXPECT_GT( std::ranges::min( cells() ), 60u );
   // Another change of an interface does not take its rates along.
   auto const before = cells();
   inTurn( [&] { intfs_[0]->seenIs( true ); } );
   EXPECT_EQ( cells(), before );
}

TEST_F( WindowKeeperTest, turnsGoOnWhereInterfacesAndWindowsComeAndGo ) {
   begin();
   window( 20 );
   auto const windows = Evidence::windowDir( *records_->database );
   inTurn( [&] { windows->windowIs( new Window( "edge#1" ) )->intfIs( Lumo::IntfId( "up0" ) ); } );
   commits( 151, [&] { sample(); } );
   // In the middle of the turns, and while all of them are due.
   inTurn( [&] {
      window_->stageRunIs( 0, { "ratemon", Maintenance::Unit::MaintenanceOp::enter } );
      for( auto const & intf : std::span( intfs_ ).subspan( 5, 10 ) ) window_->intfDel( intf->intfId() );
      windows->windowDel( "edge#1" );
   } );
   intfs_.erase( intfs_.begin() + 5, intfs_.begin() + 15 );
   EXPECT_THAT( cells(), Each( 151u ) );
   commits( 301, [&] { sample(); } );
   EXPECT_GT( std::ranges::min( cells() ), 151u );
}

TEST_F( WindowKeeperTest, allRatesGoToDiskWithTheEndOfAStageOfTheWindowAndOfTheAgent ) {
   begin();
   window( 3 );
   commits( 2, [&] { sample(); } );
   EXPECT_THAT( cells(), ElementsAre( 0, 0, 0 ) );
   inTurn( [&] { window_->stageRunIs( 0, { "ratemon", Maintenance::Unit::MaintenanceOp::enter } ); } );
   EXPECT_THAT( cells(), ElementsAre( 2, 2, 2 ) );
   inTurn( [&] { sample(); } );
   end();
   store_.emplace( path_ );
   EXPECT_THAT( cells(), ElementsAre( 3, 3, 3 ) );
   store_.reset();

   beginAgain();
   inTurn( [&] {
      sample();
      window_->outcomeIs( Evidence::Outcome::completed );
   } );
   EXPECT_THAT( cells(), ElementsAre( 4, 4, 4 ) );
   // It is over, and not written any more, nor by the next agent.
   commits( 400, [&] { sample(); } );
   EXPECT_THAT( cells(), ElementsAre( 4, 4, 4 ) );
   end();
   beginAgain();
   commits( 400, [&] { sample(); } );
   EXPECT_THAT( cells(), ElementsAre( 4, 4, 4 ) );
}

TEST_F( KeeperTest, whereItCannotBeWrittenNothingIsLostAndItIsTriedAgain ) {
   begin();
   inTurn( {} );
   auto const state = [&]( auto value ) { records_->state.unitStatus->statusIs( "fabric" )->stateIs( value ); };
   using Maintenance::Unit::State;
   fs::rename( path_, path_ + ".away" );
   inTurn( [&] { state( State::entering ); } );
   // At the end of the turn, so that whoever answers a request knows.
   EXPECT_THAT( keeper_->trouble(), HasSubstr( "moved or deleted" ) );
   EXPECT_FALSE( keeper_->keep() );
   EXPECT_EQ( commits( 30, [&] { state( State::failed ); } ), 0 );
   EXPECT_THAT( told_, SizeIs( 1 ) );
   EXPECT_EQ( writable_, 0 );
   fs::rename( path_ + ".away", path_ );
   EXPECT_FALSE( keeper_->keep() );
   EXPECT_EQ( commits( 10, [] {} ), 1 );
   EXPECT_THAT( keeper_->trouble(), IsEmpty() );
   EXPECT_THAT( told_, SizeIs( 2 ) );
   EXPECT_EQ( writable_, 1 );
   EXPECT_TRUE( keeper_->keep() );
   std::string const before = records_->text();
   EXPECT_EQ( afterEnd(), before );
   EXPECT_EQ( records_->state.unitStatus->status( "fabric" )->state(), State::failed );
}

// In the turn, for whoever has to know that it is on disk before he goes on.
TEST_F( KeeperTest, whatIsAskedForIsKeptAtOnce ) {
   begin();
   inTurn( [&] {
      Service::heldLinkDir( *records_->database )->heldIs( Lumo::IntfId( "up1" ) );
      EXPECT_THAT( store_->rows( Service::heldLinksPath ), IsEmpty() );
      EXPECT_TRUE( keeper_->keep() );
      EXPECT_THAT( store_->rows( Service::heldLinksPath ), SizeIs( 1 ) );
   } );
}

TEST_F( KeeperTest, aRowThatFitsNoRecordIsNamed ) {
   struct Case {
      char const * path;
      char const * value;
      char const * says;
   };
   Case const cases[] = {
      { "interface/status/all/intfStatus/up1", "{}", "not of a record that is kept" },
      { "maintenance/unit/status/status/u", "no", "no JSON" },
      { "maintenance/unit/status/status/u", R"({"genId":1}})", "goes on after its end" },
      { "maintenance/unit/status/status/u", R"({"genId":1,"genId":2})", "stands twice" },
      { "maintenance/unit/status/status/u", "[1]", "wants an object" },
      { "maintenance/unit/status/status/u", R"({"colour":1})", "no attribute \"colour\"" },
      { "maintenance/unit/status/status/u", R"({"state":77})", "known enumerator" },
      { "maintenance/unit/status/status/u", R"({"genId":null})", "wants a whole number" },
      { "maintenance/unit/status/status/u", R"({"group":7})", "wants an object" },
      { "maintenance/interface/status/ratemon/monIntfUnderMaint/up1", "{}", "cannot be given a child" },
      { "maintenance/unit/status/colour/u", "{}", "no attribute" },
      { "maintenance/unit/status/status", "{}", "in the middle" },
      { "maintenance/unit/status/status/%", "{}", "without a number" },
      { "maintenance/unit/status", R"({"status":{}})", "rows of their own" },
      { "maintenance/evidence/window/window/w/intf/up1", "{}", "not there" },
      { "maintenance/link/held/held/", "{}", "without a name" },
      { "maintenance/interface/status/ratemon", R"({"monIntfUnderMaint":{"":true}})", "without a name" },
      { "interface/errdisable/cause/c", "{}", "which type" },
      { "interface/errdisable/cause/c", R"({"@type":"Kel::Dir"})", "not known here" },
   };
   for( auto const & [path, value, says] : cases ) {
      SCOPED_TRACE( std::string( path ) + " " + value );
      fs::remove( path_ );
      Store store( path_ );
      store.commit( { {}, { { path, value } }, {} } );
      Kept const records;
      try {
         Keeper const keeper( parts( records, store ) );
         ADD_FAILURE() << "it was taken";
      } catch( StoreError const & error ) {
         EXPECT_EQ( error.kind(), StoreError::Kind::damaged );
         EXPECT_THAT( error.what(), HasSubstr( "the row \"" + std::string( path ) + "\"" ) );
         EXPECT_THAT( error.what(), HasSubstr( says ) );
      }
   }
}

// Every length of what is packed comes by, also that of whole cells; and cells as an earlier layout has them are read.
TEST_F( WindowKeeperTest, ratesOfAnyLengthAreThereAgainAndThoseOfAnEarlierLayoutToo ) {
   begin();
   window( 100 );
   for( std::size_t i = 0; i < intfs_.size(); ++i ) {
      for( std::size_t c = 0; c < i; ++c ) {
         double const from = static_cast<double>( c );
         intfs_[i]->rateIs( { from, from + 1, 0, c == 1 ? 1. / 3 : 0, c == 1 ? 0.7 : 0, 0, 0, 0 } );
      }
   }
   std::string const before = records_->text();
   EXPECT_EQ( afterEnd(), before );
   EXPECT_THAT( before, HasSubstr( "0x1.6666666666666p-1" ) );
   Evidence::RateCells const cells = { { 1, 2, 3, 4, 5, 6, 7, 8 }, { 2, 3, 3, 4, 5, 6, 7, 8 } };
   keeper_.reset();
   Store::Changes changes;
   std::string const raw( reinterpret_cast<char const *>( cells.data() ), 2 * sizeof cells[0] );
   changes.series = { { "maintenance/evidence/window/window/fabric#1/intf/up7", raw } };
   store_->commit( changes );
   store_.reset();
   beginAgain();
   EXPECT_EQ( window_->intf( Lumo::IntfId( "up7" ) )->rates(), cells );
}

TEST_F( KeeperTest, aSeriesThatFitsNoRecordIsNamed ) {
   using namespace std::string_literals;
   struct Case {
      char const * path;
      std::string bytes;
      char const * says;
   };
   char const * const list = "maintenance/interface/status/ratemon/passing/000000000000";
   Case const cases[] = {
      { "maintenance/evidence/window/window/w/intf/up1", "seven b", "ends in the middle of a cell" },
      { "maintenance/evidence/window/window/w/intf/up1", "p", "no series of rates" },
      { "maintenance/evidence/window/window/w/intf/up1", "pp\2", "no series of rates" },
      { "maintenance/evidence/window/window/w/intf/up2", "seven b", "not of a record with a series" },
      { "maintenance/evidence/window/window/w", "seven b", "not of a record with a series" },
      { list, "", "no list of monitors" },
      { list, "\2"s, "no list of monitors" },
      { list, "\1\3\0\0\0up1\x01\0\0\0"s, "in the middle of a monitor" },
      { list, "\1\xff\0\0\0up1"s, "in the middle of a monitor" },
      { list, "\1\0\0\0\0\0\0"s, "without a name" },
      { list, "\1\3\0\0\0up1\0\x20"s, "a number that no monitor has" },
   };
   for( auto const & [path, bytes, says] : cases ) {
      fs::remove( path_ );
      Store store( path_ );
      Store::Changes changes;
      changes.written = { { "maintenance/evidence/window/window/w", "{}" },
                          { "maintenance/evidence/window/window/w/intf/up1", "{}" } };
      changes.series = { { path, bytes } };
      store.commit( changes );
      Kept const records;
      try {
         Keeper const keeper( parts( records, store ) );
         ADD_FAILURE() << "it was taken: " << path;
      } catch( StoreError const & error ) {
         EXPECT_THAT( error.what(), HasSubstr( "the row \"" + std::string( path ) + "\"" ) );
         EXPECT_THAT( error.what(), HasSubstr( says ) );
      }
   }
}

TEST( ClockShift, timesThatWereKeptStayInThePast ) {
   Store::Moment const kept{ "boot", 5000, 1200, 2e9 };
   EXPECT_EQ( Keeper::clockShift( {}, "boot", 300, 2e9 ), 0 );
   // The boot in which it was written: as it was then, whatever the wall clock says.
   EXPECT_EQ( Keeper::clockShift( kept, "boot", 4000, 1e9 ), 1200 );
   // Another one, 900 s later, of which 300 since the start of the machine.
   EXPECT_EQ( Keeper::clockShift( kept, "other", 300, 2e9 + 900 ) + 300, 5900 );
   // A machine that does not know the time.
   EXPECT_EQ( Keeper::clockShift( kept, "other", 300, 1000 ) + 300, 5000 );
}

}  // namespace
}  // namespace Host

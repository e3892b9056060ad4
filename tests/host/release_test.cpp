// Links are given back while no maintd runs.
#include "store/Release.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <functional>
#include <map>
#include <optional>
#include <sstream>

#include "TempDir.h"
#include "links/HeldLinks.h"
#include "store/Records.h"
#include "store/RowText.h"
#include "store/Store.h"

namespace Host {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace fs = std::filesystem;
using Service::HeldLink;
using Service::HoldState;

// A kernel whose links can be counted.
class Links final : public Service::LinkSwitch {
 public:
   std::optional<Link> link( Lumo::IntfId ) const override { return std::nullopt; }
   std::optional<Link> link( int index ) const override {
      auto const found = up.find( index );
      return found == up.end() ? std::nullopt : std::optional( Link{ index, found->second } );
   }
   std::string adminUpIs( int index, bool adminUp ) override {
      EXPECT_TRUE( adminUp );
      if( before ) before();
      if( index == refused ) return "Device or resource busy";
      up[index] = adminUp;
      return "";
   }
   std::optional<int> keepAddrOnDown( int ) const override { return 1; }
   std::string keepAddrOnDownIs( int index, int value ) override {
      keepAddr[index] = value;
      return "";
   }

   std::map<int, bool> up;
   std::map<int, int> keepAddr;
   int refused = 0;
   std::function<void()> before;
};

class ReleaseTest : public ::testing::Test {
 protected:
   void hold( std::string const & name, int index, HoldState state, bool withEntry, char const * boot = "boot" ) {
      HeldLink record{ Lumo::IntfId( name ) };
      record.stateIs( state );
      record.indexIs( index );
      record.bootIs( boot );
      record.keepAddrWasIs( index == 1 ? 0 : HeldLink::notOurs );
      rows_.push_back(
         { path( name ), RowText::of( Kel::Value( Kel::Value::Content( Records::rowValue( record, false ) ) ) ) } );
      if( withEntry ) entries_ += ( entries_.empty() ? "\"" : ",\"" ) + name + "\":5";
   }
   void write() {
      rows_.push_back( { "interface/errdisable/cause/maintenance-shutdown",
                         R"({"@type":"Errdisable::CauseStatus","intfStatus":{)" + entries_ + "}}" } );
      Store( store_ ).commit( { {}, rows_, {} } );
   }
   int released( std::vector<std::string> const & names = {} ) {
      std::ostringstream out;
      std::ostringstream err;
      int const status = release( { store_, names, "boot" }, links_, out, err );
      said_ = out.str();
      trouble_ = err.str();
      return status;
   }
   static std::string path( std::string const & name ) { return "maintenance/link/held/held/" + name; }
   // "state" of the record; empty when there is none.
   static std::string stateOf( Store const & store, std::string const & name ) {
      auto const rows = store.rows( path( name ) );
      if( rows.empty() ) return "";
      auto const value = RowText::value( rows.front().value );
      return RowText::of( value.as<Kel::Value::Object>()->front().second );
   }
   std::string stateOf( std::string const & name ) { return stateOf( Store( store_ ), name ); }

   TempDir const dir_;
   std::string const store_ = dir_ / "maintd.db";
   std::vector<Store::Row> rows_;
   std::string entries_;
   Links links_;
   std::string said_;
   std::string trouble_;
};

TEST_F( ReleaseTest, linksThatMaintdTookDownAreSetUpAndNoOthers ) {
   links_.up = { { 1, false }, { 2, false }, { 3, false }, { 4, false },
                 { 5, false }, { 6, false }, { 7, false }, { 9, true } };
   hold( "up1", 1, HoldState::held, true );
   hold( "up2", 2, HoldState::taking, true );
   hold( "up3", 3, HoldState::releasing, false );
   hold( "up4", 4, HoldState::foundDown, true );
   hold( "up5", 5, HoldState::raised, true );
   hold( "up6", 6, HoldState::released, true );
   hold( "up7", 7, HoldState::held, true, "an earlier boot" );
   hold( "up8", 8, HoldState::held, true );
   hold( "up9", 9, HoldState::held, true );
   write();
   EXPECT_EQ( released(), 0 ) << trouble_;
   EXPECT_EQ( links_.up, ( std::map<int, bool>{ { 1, true },
                                                { 2, true },
                                                { 3, true },
                                                { 4, false },
                                                { 5, false },
                                                { 6, false },
                                                { 7, false },
                                                { 9, true } } ) );
   EXPECT_EQ( said_,
              "up4: left as it is: it was down before maintd would have taken it down\n"
              "up5: left as it is: somebody else has set it up since\n"
              "up6: left as it is: it was released before\n"
              "up7: left as it is: the machine was started since it was held, and it is as the machine made it\n"
              "up8: left as it is: there is no such link any more\n"
              "up1: set up\nup2: set up\nup3: set up\nup9: is up already\n" );
   EXPECT_THAT( trouble_, IsEmpty() );
   EXPECT_EQ( links_.keepAddr, ( std::map<int, int>{ { 1, 0 } } ) );
   std::vector<std::string> states;
   for( int i = 1; i <= 9; ++i ) states.push_back( stateOf( "up" + std::to_string( i ) ) );
   EXPECT_THAT( states, ElementsAre( "5", "5", "", "2", "3", "5", "1", "1", "5" ) );
   EXPECT_EQ( released(), 0 );
   EXPECT_THAT( said_, HasSubstr( "up1: left as it is: it was released before" ) );
}

TEST_F( ReleaseTest, theStepIsOnRecordBeforeItIsMade ) {
   links_.up = { { 1, false }, { 2, false } };
   hold( "up1", 1, HoldState::held, true );
   hold( "up2", 2, HoldState::held, true );
   write();
   std::vector<std::string> states;
   links_.before = [&] {
      std::string const copy = dir_ / "copy.db";
      fs::copy_file( store_, copy, fs::copy_options::overwrite_existing );
      fs::copy_file( store_ + "-wal", copy + "-wal", fs::copy_options::overwrite_existing );
      Store const found( copy );
      states.push_back( stateOf( found, "up1" ) + stateOf( found, "up2" ) );
   };
   links_.refused = 2;
   EXPECT_EQ( released(), 1 );
   EXPECT_THAT( states, ElementsAre( "44", "54" ) );
   EXPECT_EQ( said_, "up1: set up\nup2: cannot be set up: Device or resource busy\n" );
   EXPECT_EQ( stateOf( "up2" ), "4" );
}

TEST_F( ReleaseTest, onlyThoseThatAreNamed ) {
   EXPECT_EQ( released(), 0 );
   EXPECT_THAT( said_, HasSubstr( "there is no store" ) );
   EXPECT_FALSE( fs::exists( store_ ) );
   links_.up = { { 1, false }, { 2, false } };
   hold( "up1", 1, HoldState::held, true );
   hold( "up2", 2, HoldState::held, true );
   write();
   EXPECT_EQ( released( { "up2", "nobody" } ), 1 );
   EXPECT_EQ( said_, "up2: set up\n" );
   EXPECT_EQ( trouble_, "nobody: is not held down by maintd\n" );
   EXPECT_FALSE( links_.up[1] );
}

TEST_F( ReleaseTest, otherRowsMayBeDamagedAndWhatIsReadableIsReleased ) {
   links_.up = { { 1, false }, { 2, false } };
   hold( "up1", 1, HoldState::held, true );
   rows_.push_back( { path( "up2" ), "{]" } );
   rows_.push_back( { "maintenance/unit/status/status/u", "{]" } );
   write();
   EXPECT_EQ( released(), 1 );
   EXPECT_EQ( said_, "up1: set up\n" );
   EXPECT_THAT( trouble_, AllOf( HasSubstr( path( "up2" ) ), ::testing::Not( HasSubstr( "unit/status" ) ) ) );
   EXPECT_EQ( stateOf( "up1" ), "5" );
}

TEST_F( ReleaseTest, aDamagedFileIsReadAndNotWritten ) {
   links_.up = { { 1, false } };
   hold( "up1", 1, HoldState::held, true );
   for( int i = 0; i < 500; ++i ) rows_.push_back( { "a/" + std::to_string( 1000 + i ), std::string( 200, 'v' ) } );
   write();
   std::string content = contentOf( store_ );
   content.replace( 20 * 4096, 4096, 4096, 'x' );
   contentIs( store_, content );
   EXPECT_EQ( released(), 0 );
   EXPECT_EQ( said_, "up1: set up\n" );
   EXPECT_THAT( trouble_, HasSubstr( "is damaged" ) );
   EXPECT_EQ( contentOf( store_ ), content );
}

TEST_F( ReleaseTest, whatCannotBeRecordedIsNotDone ) {
   links_.up = { { 1, false } };
   hold( "up1", 1, HoldState::held, true );
   write();
   auto const before = std::signal( SIGXFSZ, SIG_IGN );
   rlimit limit{};
   getrlimit( RLIMIT_FSIZE, &limit );
   rlimit const small{ 1000, limit.rlim_max };
   setrlimit( RLIMIT_FSIZE, &small );
   int const status = released();
   setrlimit( RLIMIT_FSIZE, &limit );
   std::signal( SIGXFSZ, before );
   EXPECT_EQ( status, 1 );
   EXPECT_FALSE( links_.up[1] );
   EXPECT_THAT( said_, HasSubstr( "by hand: ip link set dev up1 up" ) );
   EXPECT_THAT( trouble_, HasSubstr( "Make room" ) );
   EXPECT_EQ( stateOf( "up1" ), "1" );
}

}  // namespace
}  // namespace Host

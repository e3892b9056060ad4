// Link control over a kernel that writes down what is done to its links. tests/kills/ has it die at each step.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <system_error>

#include "kel/ActivityLoop.h"
#include "kel/Json.h"
#include "links/LinkControl.h"
#include "records/Errdisable.h"
#include "records/Names.h"

namespace Service {

using Lumo::IntfId;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// Links by name. What LinkControl does to them is written down; what others do is done by the tests.
class Kernel final : public LinkSwitch {
 public:
   struct State {
      int index;
      bool up = true;
      std::optional<int> keepAddr = 0;
   };

   std::optional<Link> link( IntfId intf ) const override {
      if( silent ) throw std::system_error( std::make_error_code( std::errc::timed_out ) );
      auto const found = links.find( intf );
      if( found == links.end() ) return std::nullopt;
      return Link{ found->second.index, found->second.up };
   }
   std::optional<Link> link( int index ) const override { return link( nameOf( index ) ); }
   std::string adminUpIs( int index, bool up ) override {
      return write( ( up ? "up " : "down " ) + std::to_string( index ), [&] { links.at( nameOf( index ) ).up = up; } );
   }
   std::optional<int> keepAddrOnDown( int index ) const override { return links.at( nameOf( index ) ).keepAddr; }
   std::string keepAddrOnDownIs( int index, int value ) override {
      return write( "keep " + std::to_string( index ) + "=" + std::to_string( value ),
                    [&] { links.at( nameOf( index ) ).keepAddr = value; } );
   }

   IntfId nameOf( int index ) const {
      for( auto const & [intf, state] : links ) {
         if( state.index == index ) return intf;
      }
      return {};
   }

   std::map<IntfId, State> links;
   std::vector<std::string> done;
   std::string refusal;  // of every order; empty: each is carried out
   bool silent = false;  // no question is answered
   std::function<void( IntfId )> heard;

 private:
   template<class Write>
   std::string write( std::string const & what, Write const & act ) {
      done.push_back( what );
      if( refusal.empty() ) act();
      if( heard ) heard( nameOf( std::stoi( what.substr( what.find( ' ' ) ) ) ) );
      return refusal;
   }
};

}  // namespace

class LinkControlTest : public ::testing::Test {
 protected:
   LinkControlTest() {
      causes_->entityIs( cause_ );
      causes_->entityIs( other_ );
   }

   void start() {
      loop_.turn( [this] { make(); } );
      disk_ = rows();
   }
   void make() {
      control_ = std::make_unique<LinkControl>( LinkControl::Parts{
         .held = held_,
         .causes = causes_,
         .links = kernel_,
         .keep = [this] { return keep(); },
         .tell = [this]( IntfId intf, Severity,
                         std::string const & text ) { told_.push_back( std::string( intf.name() ) + ": " + text ); },
         .preserveIpv6 = [this] { return preserve_; },
         .boot = boot_,
         .note = {},
      } );
   }
   // Nothing of it runs any more, and the records are those on disk.
   void die() {
      control_ = nullptr;
      held_->heldDelAll();
      for( auto const & row : disk_ ) held_->heldIs( copy( *row ) );
   }
   bool keep() {
      if( !diskWorks_ ) return false;
      ++kept_;
      disk_ = rows();
      return true;
   }
   std::vector<Kel::Ptr<HeldLink>> rows() const {
      std::vector<Kel::Ptr<HeldLink>> all;
      for( auto [intf, record] : held_->heldIteratorConst() ) all.push_back( copy( *record ) );
      return all;
   }
   static Kel::Ptr<HeldLink> copy( HeldLink const & from ) {
      Kel::Ptr<HeldLink> const made( new HeldLink( from.intfId() ) );
      Kel::setAttributes( *made, *Kel::toValue( from ).as<Kel::Value::Object>() );
      return made;
   }
   void record( std::string const & name, HoldState state, std::string const & boot, int index = 5 ) {
      Kel::Ptr<HeldLink> const made( new HeldLink( IntfId( name ) ) );
      made->indexIs( index );
      made->bootIs( Kel::String8( boot ) );
      made->sinceIs( 900 );
      made->keepAddrWasIs( HeldLink::notOurs );
      made->stateIs( state );
      held_->heldIs( made );
   }

   // What others do, each in a turn of its own; at the end of it what was written is on disk.
   void turn( std::function<void()> const & work ) {
      loop_.turn( work );
      disk_ = rows();
   }
   void enter( std::string const & name ) {
      turn( [&] { cause_->intfStatusIs( IntfId( name ), Kel::now() ); } );
   }
   void leave( std::string const & name ) {
      turn( [&] { cause_->intfStatusDel( IntfId( name ) ); } );
   }
   // Its state, and who hears of it.
   void link( std::string const & name, int index, bool up ) {
      turn( [&] {
         kernel_.links[IntfId( name )] = { index, up, 0 };
         if( control_ ) control_->handleLink( IntfId( name ) );
      } );
   }
   void gone( std::string const & name ) {
      turn( [&] {
         kernel_.links.erase( IntfId( name ) );
         control_->handleLink( IntfId( name ) );
      } );
   }
   void rename( std::string const & from, std::string const & to ) {
      turn( [&] {
         kernel_.links[IntfId( to )] = kernel_.links.extract( IntfId( from ) ).mapped();
         control_->handleLink( IntfId( from ) );
         control_->handleLink( IntfId( to ) );
      } );
   }
   void advance( double seconds ) { clock_->nowIs( clock_->now() + seconds ); }

   std::string state( std::string const & name ) const {
      auto const found = held_->held( IntfId( name ) );
      return found ? enumName( found->state() ) : "none";
   }
   std::string remark( std::string const & name ) const { return LinkControl::remark( *held_, IntfId( name ) ); }
   std::vector<std::string> done() { return std::exchange( kernel_.done, {} ); }

   Kel::Ptr<Kel::VirtualClock> clock_{ new Kel::VirtualClock( 1000 ) };
   Kel::ActivityLoop loop_{ Kel::Ptr<Kel::Clock>( clock_ ) };
   Kel::Ptr<HeldLinkDir> held_{ new HeldLinkDir( "held" ) };
   Kel::Ptr<Kel::Dir> causes_{ new Kel::Dir( "cause" ) };
   Kel::Ptr<Errdisable::CauseStatus> cause_{ new Errdisable::CauseStatus( "maintenance-shutdown" ) };
   Kel::Ptr<Errdisable::CauseStatus> other_{ new Errdisable::CauseStatus( "other" ) };
   Kernel kernel_;
   std::string boot_ = "boot 1";
   bool preserve_ = false;
   bool diskWorks_ = true;
   int kept_ = 0;
   std::vector<Kel::Ptr<HeldLink>> disk_;
   std::vector<std::string> told_;
   std::unique_ptr<LinkControl> control_;
};

// What a start makes of each record that a death can leave behind: what it does to the link, and the record after it.
TEST_F( LinkControlTest, aStartGoesOnFromEachRecord ) {
   struct Row {
      HoldState state;
      char const *entryUp, *entryDown, *noneUp, *noneDown;
   };
   for( auto const & [state, entryUp, entryDown, noneUp, noneDown] : std::vector<Row>{
           { HoldState::taking, "down 5, held", "held", "none", "up 5, none" },
           { HoldState::held, "down 5, held", "held", "none", "up 5, none" },
           { HoldState::foundDown, "down 5, held", "found down", "none", "none" },
           { HoldState::raised, "down 5, held", "found down", "none", "none" },
           { HoldState::releasing, "down 5, held", "held", "none", "up 5, none" },
           { HoldState::released, "released", "released", "none", "none" },
        } ) {
      bool const left = state == HoldState::released;
      // After a start of the machine the link is as the machine made it, also where it has the same number.
      for( auto const & [boot, entry, up, expected] : std::vector<std::tuple<std::string, bool, bool, std::string>>{
              { "boot 1", true, true, entryUp },
              { "boot 1", true, false, entryDown },
              { "boot 1", false, true, noneUp },
              { "boot 1", false, false, noneDown },
              { "boot 0", true, true, left ? "released" : "down 5, held" },
              { "boot 0", true, false, left ? "released" : "found down" },
              { "boot 0", false, true, "none" },
              { "boot 0", false, false, "none" },
           } ) {
         SCOPED_TRACE( std::string( enumName( state ) ) + ( entry ? " with" : " without" ) + " entry, " +
                       ( up ? "up" : "down" ) + ", " + boot );
         record( "eth0", state, boot );
         kernel_.links = { { IntfId( "eth0" ), { 5, up, 0 } } };
         if( entry ) cause_->intfStatusIs( IntfId( "eth0" ), 900 );
         start();
         std::string found;
         for( std::string const & call : done() ) found += call + ", ";
         EXPECT_EQ( found + this->state( "eth0" ), expected );
         auto const after = held_->held( IntfId( "eth0" ) );
         if( after && !left ) {
            EXPECT_EQ( after->sinceBeforeBoot(), boot == "boot 0" );
            EXPECT_EQ( after->index(), 5 );
            EXPECT_EQ( after->since(), 900 );
         }
         // A second start finds nothing more to do.
         die();
         start();
         EXPECT_THAT( done(), IsEmpty() );
         control_ = nullptr;
         cause_->intfStatusDelAll();
         held_->heldDelAll();
      }
   }
}

TEST_F( LinkControlTest, anyCauseHoldsALinkAndTheLastLetsItGo ) {
   link( "eth0", 5, true );
   start();
   enter( "eth0" );
   EXPECT_THAT( done(), ElementsAre( "down 5" ) );
   EXPECT_EQ( state( "eth0" ), "held" );
   turn( [&] { other_->intfStatusIs( IntfId( "eth0" ), 1 ); } );
   leave( "eth0" );
   // Taken away and written again in one turn.
   turn( [&] {
      other_->intfStatusDelAll();
      cause_->intfStatusIs( IntfId( "eth0" ), 2 );
   } );
   EXPECT_THAT( done(), IsEmpty() );
   // A cause that goes as a whole, and one in its place that has no entries.
   turn( [&] { causes_->entityIs( Kel::Ptr<Kel::Entity>( new Errdisable::CauseStatus( cause_->causeName() ) ) ); } );
   EXPECT_THAT( done(), ElementsAre( "up 5" ) );
   EXPECT_EQ( state( "eth0" ), "none" );
   EXPECT_EQ( told_, ( std::vector<std::string>{ "eth0: taken down", "eth0: set up again" } ) );
}

TEST_F( LinkControlTest, whatSomebodyElseDoesIsNotFought ) {
   link( "eth0", 5, true );
   start();
   enter( "eth0" );
   done();
   link( "eth0", 5, true );
   EXPECT_EQ( state( "eth0" ), "raised" );
   EXPECT_EQ( remark( "eth0" ), "set up by somebody else while held" );
   link( "eth0", 5, false );  // and set down again by him
   turn( [&] { other_->intfStatusIs( IntfId( "eth0" ), 1 ); } );
   turn( [&] { other_->intfStatusDelAll(); } );
   leave( "eth0" );
   EXPECT_THAT( done(), IsEmpty() );
   EXPECT_EQ( state( "eth0" ), "none" );
   // Down before us: his. Once he has set it up it is taken down all the same, as its entry says.
   enter( "eth0" );
   EXPECT_EQ( state( "eth0" ), "found down" );
   leave( "eth0" );
   enter( "eth0" );
   EXPECT_THAT( done(), IsEmpty() );
   link( "eth0", 5, true );
   EXPECT_THAT( done(), ElementsAre( "down 5" ) );
   link( "eth0", 5, true );
   EXPECT_THAT( done(), IsEmpty() );
   EXPECT_EQ( state( "eth0" ), "raised" );
   // The next start takes it down once more, and the end gives it back.
   die();
   start();
   EXPECT_THAT( done(), ElementsAre( "down 5" ) );
   leave( "eth0" );
   EXPECT_THAT( done(), ElementsAre( "up 5" ) );
}

TEST_F( LinkControlTest, aLinkThatIsMadeAgainIsAnotherOne ) {
   link( "eth0", 5, true );
   start();
   enter( "eth0" );
   gone( "eth0" );
   // Its number is another link's, who has it down.
   link( "eth7", 5, false );
   leave( "eth0" );
   EXPECT_THAT( done(), ElementsAre( "down 5" ) );
   EXPECT_EQ( state( "eth0" ), "none" );
   enter( "eth0" );
   link( "eth0", 6, true );
   EXPECT_THAT( done(), ElementsAre( "down 6" ) );
   // At once, so that nobody saw that there was none.
   link( "eth0", 8, true );
   EXPECT_THAT( done(), ElementsAre( "down 8" ) );
   EXPECT_EQ( held_->held( IntfId( "eth0" ) )->index(), 8 );
   leave( "eth0" );
   EXPECT_THAT( done(), ElementsAre( "up 8" ) );
}

TEST_F( LinkControlTest, aRenamedLinkIsGivenBackByItsNumber ) {
   link( "eth0", 5, true );
   start();
   enter( "eth0" );
   rename( "eth0", "up0" );
   EXPECT_EQ( state( "eth0" ), "held" );
   EXPECT_THAT( done(), ElementsAre( "down 5" ) );
   leave( "eth0" );
   EXPECT_THAT( done(), ElementsAre( "up 5" ) );
   EXPECT_EQ( told_.back(), "eth0: set up again under the name that it has now" );
   EXPECT_EQ( held_->helds(), 0u );
   // Another link takes the name: that one is held now.
   rename( "up0", "eth0" );
   enter( "eth0" );
   rename( "eth0", "up0" );
   link( "eth0", 9, true );
   EXPECT_THAT( done(), ElementsAre( "down 5", "up 5", "down 9" ) );
   // Its new name has an entry, too: it stays as it is, under that.
   enter( "up1" );
   rename( "eth0", "up1" );
   leave( "eth0" );
   EXPECT_THAT( done(), IsEmpty() );
   EXPECT_EQ( state( "up1" ) + ", " + state( "eth0" ), "held, none" );
   leave( "up1" );
   EXPECT_THAT( done(), ElementsAre( "up 9" ) );
}

TEST_F( LinkControlTest, nothingIsTouchedThatCannotBeKept ) {
   link( "eth0", 5, true );
   link( "eth1", 6, true );
   link( "eth2", 7, true );
   link( "eth3", 8, true );
   start();
   enter( "eth2" );
   done();
   diskWorks_ = false;
   turn( [&] {
      for( char const * name : { "eth0", "eth1", "eth3" } ) cause_->intfStatusIs( IntfId( name ), 1 );
      cause_->intfStatusDel( IntfId( "eth2" ) );
   } );
   EXPECT_TRUE( control_->waiting() );
   EXPECT_EQ( remark( "eth0" ), "cannot be taken down yet: nothing can be kept on disk" );
   // Meanwhile somebody takes two down himself, and one loses its entry: they were never ours.
   link( "eth1", 6, false );
   leave( "eth1" );
   advance( 1 );
   link( "eth3", 8, false );
   EXPECT_EQ( state( "eth3" ), "found down" );
   EXPECT_THAT( done(), IsEmpty() );
   EXPECT_EQ( state( "eth1" ), "none" );
   kept_ = 0;
   diskWorks_ = true;
   turn( [&] { control_->retry(); } );
   EXPECT_THAT( done(), ElementsAre( "up 7", "down 5" ) );
   EXPECT_EQ( kept_, 1 );
   EXPECT_FALSE( control_->waiting() );
   EXPECT_EQ( remark( "eth0" ), "" );
}

TEST_F( LinkControlTest, whatTheSwitchRefusesIsToldAndTriedAgain ) {
   link( "lo", 1, true );
   start();
   kernel_.refusal = "it is the loopback";
   // Each order, also a refused one, makes the link change.
   kernel_.heard = [this]( IntfId intf ) {
      if( control_ ) control_->handleLink( intf );
   };
   enter( "lo" );
   EXPECT_THAT( done(), ElementsAre( "down 1" ) );
   EXPECT_EQ( remark( "lo" ), "cannot be taken down: it is the loopback" );
   EXPECT_TRUE( control_->waiting() );
   turn( [&] { control_->retry(); } );
   EXPECT_THAT( done(), ElementsAre( "down 1" ) );
   advance( 0.5 );
   link( "lo", 1, true );
   EXPECT_THAT( done(), IsEmpty() );
   advance( 0.5 );
   link( "lo", 1, true );
   EXPECT_THAT( done(), ElementsAre( "down 1" ) );
   EXPECT_EQ( told_.size(), 1u );
   kernel_.refusal.clear();
   leave( "lo" );
   EXPECT_THAT( done(), IsEmpty() );
   EXPECT_FALSE( control_->waiting() );
   EXPECT_EQ( state( "lo" ), "none" );
   // One that is held and cannot be set up.
   link( "eth0", 5, true );
   enter( "eth0" );
   kernel_.refusal = "no";
   leave( "eth0" );
   EXPECT_EQ( state( "eth0" ), "releasing" );
   EXPECT_EQ( remark( "eth0" ), "cannot be given back: no" );
   kernel_.refusal.clear();
   die();
   start();
   EXPECT_THAT( done(), ElementsAre( "down 5", "up 5", "up 5" ) );
}

// Not to know is not to know that it is gone.
TEST_F( LinkControlTest, aKernelThatDoesNotAnswerLosesNoRecord ) {
   link( "eth0", 5, true );
   link( "eth1", 6, true );
   start();
   enter( "eth0" );
   done();
   kernel_.silent = true;
   leave( "eth0" );
   enter( "eth1" );
   die();
   turn( [&] { make(); } );
   EXPECT_EQ( state( "eth0" ), "held" );
   EXPECT_TRUE( control_->waiting() );
   kernel_.silent = false;
   turn( [&] { control_->retry(); } );
   EXPECT_THAT( done(), ElementsAre( "up 5", "down 6" ) );
   EXPECT_FALSE( control_->waiting() );
}

TEST_F( LinkControlTest, keepsAddressesWhereItIsAskedTo ) {
   preserve_ = true;
   link( "eth0", 5, true );
   link( "eth1", 6, true );
   kernel_.links.at( IntfId( "eth1" ) ).keepAddr = 1;
   link( "eth2", 7, true );
   kernel_.links.at( IntfId( "eth2" ) ).keepAddr = std::nullopt;
   start();
   for( char const * name : { "eth0", "eth1", "eth2" } ) enter( name );
   EXPECT_THAT( done(), ElementsAre( "keep 5=1", "down 5", "down 6", "down 7" ) );
   // Also where somebody else has set it up, and where maintd was away.
   link( "eth0", 5, true );
   kernel_.links.at( IntfId( "eth0" ) ).keepAddr = 1;
   die();
   start();
   EXPECT_THAT( done(), ElementsAre( "keep 5=1", "down 5" ) );
   preserve_ = false;
   for( char const * name : { "eth0", "eth1", "eth2" } ) leave( name );
   EXPECT_THAT( done(), ElementsAre( "up 5", "keep 5=0", "up 6", "up 7" ) );
}

TEST_F( LinkControlTest, aLinkThatComesAfterTheBootIsHeldAgain ) {
   record( "bond0", HoldState::held, "boot 0" );
   cause_->intfStatusIs( IntfId( "bond0" ), 1 );
   start();
   EXPECT_EQ( held_->held( IntfId( "bond0" ) )->boot(), Kel::String8( "boot 0" ) );
   link( "bond0", 12, false );  // as it is made
   link( "bond0", 12, true );
   EXPECT_THAT( done(), ElementsAre( "down 12" ) );
   EXPECT_EQ( remark( "bond0" ), "held since before boot" );
   leave( "bond0" );
   EXPECT_THAT( done(), ElementsAre( "up 12" ) );
}

}  // namespace Service

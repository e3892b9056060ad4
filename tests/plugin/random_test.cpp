// Random lives of three units that share interfaces, against what the records alone say must hold.
//
// Every operation is one that a host may carry out at any time. After each, and after the turns that it causes, the
// invariants are checked; a completion mark is checked in the moment in which it is made. The seed is printed with each
// failure.
#include <random>

#include "DrainStory.h"
#include "Model.h"
#include "records/Names.h"

namespace Test {

namespace {

// Checks each completion mark as it is made: the stage is active and the unit exists.
class MarkCheck final : public Kel::Watcher {
 public:
   MarkCheck( Maintenance::MaintenanceState const & state, Maintenance::StageState const & stage )
      : state_( state ), stage_( stage ) {
      stage_.agentStatus->watcherIs( *this );
   }
   ~MarkCheck() override { stage_.agentStatus->watcherDel( *this ); }
   void onAttribute( Kel::Entity const &, Kel::AttributeInfo const & attribute, std::string const * key ) override {
      if( attribute.name() != "complete" || !key || attribute.entry( *stage_.agentStatus, *key ).isNull() ) return;
      ++marks;
      Kel::Name const instance( key->substr( key->find( ':' ) + 1 ) );
      auto const progress = stage_.progress->progress( instance );
      bool const * const active = progress ? progress->stage( Kel::String8( Maintenance::rateMonStage ) ) : nullptr;
      EXPECT_TRUE( active && *active ) << *key << " is marked while its stage is not active";
      EXPECT_TRUE( state_.unitStatus->status( Maintenance::Unit::StageMgrInstKey( instance ).unitName() ) ) << *key;
   }

   int marks = 0;

 private:
   Maintenance::MaintenanceState const & state_;
   Maintenance::StageState const & stage_;
};

}  // namespace

class RandomLife : public DrainStory, public ::testing::WithParamInterface<unsigned> {
 protected:
   void populate();
   void operate();
   void hostOperation( int choice );
   void configurationOperation( int choice );
   void lifeOperation( int choice );
   void followShutdowns();
   void check();

   int roll( int n ) { return std::uniform_int_distribution<int>( 0, n - 1 )( random_ ); }
   std::string anyIntf() { return "Ethernet" + std::to_string( 1 + roll( 6 ) ); }
   std::string anyUnit() { return std::string( "u" ) + static_cast<char>( '0' + roll( 3 ) ); }
   std::string anyProfile() {
      return std::vector<std::string>{ "#DEFAULTPROFILE", "quick", "shut" }[size_t( roll( 3 ) )];
   }
   void groupMember( std::string const & group, std::string const & intf, bool member );

   std::mt19937 random_{ GetParam() };
   std::set<std::string> heldDown_;  // the links that the host holds down for the plug-in
   MarkCheck enterMarks_{ state_, state_.enter };
   MarkCheck exitMarks_{ state_, state_.exit };
};

void RandomLife::populate() {
   profile( "quick", { .sampleInterval = 3, .loadInterval = 6 } );
   profile( "shut", { .sampleInterval = 5, .loadInterval = 10, .shutdown = true, .maxDelay = 40 } );
   unit( "u0", { "Ethernet1", "Ethernet2", "Ethernet3" } );
   unit( "u1", { "Ethernet3", "Ethernet4", "Ethernet5" } );
   unit( "u2", { "Ethernet5", "Ethernet6", "Ethernet1" } );
}

// As the host does it: the group's own list and the interface's mapping.
void RandomLife::groupMember( std::string const & group, std::string const & intf, bool member ) {
   Group::GroupKey const key{ Group::GroupType::intf, Kel::String8( group ) };
   auto const status = state_.groupStatus->status( Kel::String8( group ) );
   auto const mapping = state_.intfToGroup->intfToGroupIs( Lumo::IntfId( intf ) );
   if( member ) {
      status->intfIs( Lumo::IntfId( intf ), true );
      mapping->groupIs( key, true );
   } else {
      status->intfDel( Lumo::IntfId( intf ) );
      mapping->groupDel( key );
   }
}

void RandomLife::hostOperation( int choice ) {
   std::string const unitName = anyUnit();
   auto const state = status( unitName ).state();
   switch( choice ) {
      case 0:
         if( state == State::active || state == State::leaving ) enter( unitName );
         return;
      case 1:
         if( state == State::entering || state == State::inMaintenance ) exit( unitName );
         return;
      case 2:
         if( state == State::entering && enterComplete( unitName ) ) finishEnter( unitName );
         return;
      case 3:
         if( state == State::leaving && exitComplete( unitName ) ) finishExit( unitName );
         return;
      case 4:
         return link( anyIntf(), roll( 3 ) == 0 ? Interface::IntfOperStatus::down : Interface::IntfOperStatus::up );
      case 5: return linkDel( anyIntf() );
      case 6: return octets( anyIntf(), static_cast<uint64_t>( roll( 1000 ) ), static_cast<uint64_t>( roll( 9 ) ) );
      default:
         return traffic( anyIntf(), static_cast<unsigned long long>( roll( 4 ) * 60'001 ),
                         static_cast<unsigned long long>( roll( 300'000 ) ) );
   }
}

void RandomLife::configurationOperation( int choice ) {
   switch( choice ) {
      case 0: return groupMember( anyUnit(), anyIntf(), true );
      case 1: return groupMember( anyUnit(), anyIntf(), false );
      case 2: return select( anyIntf(), anyProfile() );
      case 3: {
         auto const shut = state_.profiles->config( Kel::String8( "shut" ) );
         return shut->shutdownIs( !shut->shutdown() );
      }
      case 4: return defaultProfile( anyProfile() );
      default: return countersDel( anyIntf() );
   }
}

void RandomLife::lifeOperation( int choice ) {
   switch( choice ) {
      case 0: return restart();
      case 1: world_.crash(); break;
      case 2:
         stop();
         expectNothingLeftBehind( world_ );
         break;
      default: return advance( roll( 2000 ) / 100.0 );
   }
   advance( roll( 20 ) );
   start();
   EXPECT_EQ( monitoredNow( world_ ), monitoredAfterRestart( world_ ) );
}

void RandomLife::operate() {
   int const choice = roll( 100 );
   if( choice < 30 ) {
      hostOperation( roll( 12 ) );
   } else if( choice < 45 ) {
      configurationOperation( roll( 6 ) );
   } else {
      lifeOperation( choice < 48 ? choice - 45 : 99 );
   }
}

// What the host does about shutdowns: it takes the link down, and up again when the plug-in lets it go.
void RandomLife::followShutdowns() {
   for( int n = 1; n <= 6; ++n ) {
      std::string const intf = "Ethernet" + std::to_string( n );
      if( shutDown( intf ) == heldDown_.contains( intf ) ) continue;
      if( heldDown_.erase( intf ) == 0 ) heldDown_.insert( intf );
      link( intf, heldDown_.contains( intf ) ? Interface::IntfOperStatus::down : Interface::IntfOperStatus::up );
   }
}

void RandomLife::check() {
   advance( 0 );
   followShutdowns();
   advance( 0 );
   expectInvariants( world_ );
   EXPECT_EQ( monitoredNow( world_ ), monitoredByRecords( world_ ) );
}

TEST_P( RandomLife, keepsItsInvariants ) {
   SCOPED_TRACE( "seed " + std::to_string( GetParam() ) );
   populate();
   start();
   for( int step = 0; step < 1500 && !HasFailure(); ++step ) {
      operate();
      SCOPED_TRACE( "step " + std::to_string( step ) );
      check();
   }
   EXPECT_GT( enterMarks_.marks, 0 );
   EXPECT_GT( exitMarks_.marks, 0 );
   stop();
   expectNothingLeftBehind( world_ );
}

INSTANTIATE_TEST_SUITE_P( Seeds, RandomLife, ::testing::Range( 1u, 9u ) );

}  // namespace Test

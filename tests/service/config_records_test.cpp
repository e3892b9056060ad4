// The configuration as records: what stands where, what a reload changes and in which order, and units from which
// interfaces are left out.
#include "units/ConfigRecords.h"

#include <functional>
#include <memory>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dovra/Watches.h"
#include "kel/Json.h"
#include "records/Names.h"

namespace Service {
namespace {

using Lumo::IntfId;
using Lumo::IntfKind;
using Maintenance::ProfileChangeCause;
using Maintenance::Profile::ProfileType;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using State = Maintenance::Unit::State;

// The directories that the service writes its configuration to.
constexpr std::string_view directories[] = { Maintenance::Path::unitStatus,     Maintenance::Path::groupConfig,
                                             Maintenance::Path::groupStatus,    Maintenance::Path::profiles,
                                             Maintenance::Path::defaultProfile, Maintenance::Path::intfToGroup,
                                             Maintenance::Path::groupToUnit };

// A state database that nobody else writes to.
struct RecordsBox {
   RecordsBox() {
      for( std::string_view const path : directories ) watches.watch( { std::string( path ) } );
   }
   // What goes has lost its members one by one before: that a record is gone tells nobody what was in it.
   void heard( Dovra::StateComponents const & path, bool removed ) {
      bool const member = path.size() == 5 && ( path[3] == "intf" || path[3] == "group" || path[3] == "unitName" );
      if( member && !removed ) memberships.insert( path );
      if( member && removed ) memberships.erase( path );
      for( auto const & left : memberships ) {
         bool const within = removed && path.size() == 3 && std::equal( path.begin(), path.end(), left.begin() );
         EXPECT_FALSE( within ) << path[2] << " goes with its " << left[3] << " " << left[4];
      }
      if( changed ) changed();
   }
   std::string json() const {
      std::string text;
      for( std::string_view const path : directories )
         text += Kel::toJson( Dovra::stateValue( *database, path ) ) + '\n';
      return text;
   }
   std::string json( std::string_view directory, std::string_view below ) const {
      return Kel::toJson( Dovra::stateValue( *database, std::string( directory ) + '/' + std::string( below ) ) );
   }
   // As every reader of these records takes it: by a group of which all four records say so.
   bool isMember( std::string const & unit, IntfId intf ) const {
      auto const record = state.unitStatus->status( unit );
      auto const member = state.intfToGroup->intfToGroup( intf );
      if( !record || !member ) return false;
      for( auto [group, present] : member->groupIteratorConst() ) {
         auto const members = state.groupStatus->status( group.name );
         auto const units = state.groupToUnit->groupToUnit( group );
         bool const complete = record->group( group ) && units && units->unitName( unit ) && members &&
                               members->intf( intf ) && state.groupConfig->config( group.name );
         if( complete ) return true;
      }
      return false;
   }
   Kel::Ptr<Dovra::EntityManager> database{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state{ *database };
   std::function<void()> changed;
   std::set<Dovra::StateComponents> memberships;  // entries that are there
   Dovra::Watches watches{ *database, [this]( auto const & path, auto const & v ) { heard( path, v.isNull() ); } };
};

Config::Config parsed( std::string const & groupsAndUnits ) {
   return Config::parse(
      "profiles: { p: { threshold: 1kbps }, q: { threshold: 2kbps }, r: { threshold: 3kbps } }\n"
      "default-profile: p\n" +
         groupsAndUnits,
      "test.yaml" );
}

TEST( ConfigRecords, knowWhoBelongsToWhom ) {
   RecordsBox box;
   ConfigRecords const records( box.state,
                                parsed( "groups: { a: { interfaces: [e2, e1] }, b: { interfaces: [e1, e3] }, "
                                        "c: { interfaces: [e4] } }\n"
                                        "units: { v: { groups: [b, a] }, u: { groups: [a] } }\n" ) );
   EXPECT_THAT( records.interfaces(), ElementsAre( IntfId( "e2" ), IntfId( "e1" ), IntfId( "e3" ), IntfId( "e4" ) ) );
   EXPECT_THAT( records.interfacesOf( "v" ), ElementsAre( IntfId( "e1" ), IntfId( "e3" ), IntfId( "e2" ) ) );
   EXPECT_THAT( records.interfacesOf( "w" ), IsEmpty() );
   EXPECT_THAT( records.unitsOf( IntfId( "e1" ) ), ElementsAre( "v", "u" ) );
   EXPECT_THAT( records.unitsOf( IntfId( "e4" ) ), IsEmpty() );
   EXPECT_THAT( records.unitsOf( IntfId( "e9" ) ), IsEmpty() );
}

TEST( ConfigRecords, takeANameForEthernetUnlessItOrALinkSaysOtherwise ) {
   IntfId::declare( "bond7", IntfKind::portChannel );
   IntfId::declare( "tun7", IntfKind::other );
   RecordsBox box;
   box.state.intfStatus->intfStatusIs( IntfId( "tun7" ) );
   ConfigRecords const records(
      box.state, parsed( "groups: { a: { interfaces: [swp7, bond7, tun7, Port-Channel7, Vlan70, Ethernet7.5] } }\n"
                         "units: { u: { groups: [a] } }\n" ) );
   std::vector<IntfKind> kinds;
   for( IntfId const intf : records.interfaces() ) kinds.push_back( intf.kind() );
   EXPECT_THAT( kinds, ElementsAre( IntfKind::ethernet, IntfKind::portChannel, IntfKind::other, IntfKind::portChannel,
                                    IntfKind::vlan, IntfKind::subIntf ) );
}

// Left out, it must be no delay that ever passes; given, it is that one; and without shutdown it says nothing.
TEST( ConfigRecords, aMaxDelayLeftOutNeverPasses ) {
   RecordsBox box;
   auto const config = Config::parse(
      "profiles: { drained: { threshold: 1bps, shutdown: true }, atOnce: { threshold: 1bps, shutdown: true, "
      "max-delay: 0s }, late: { threshold: 1bps, shutdown: true, max-delay: 1h }, up: { threshold: 1bps } }\n"
      "default-profile: up\ngroups: {}\nunits: {}\n",
      "test.yaml" );
   ConfigRecords const records( box.state, config );
   auto const delay = [&]( char const * profile ) { return box.json( Maintenance::Path::profiles, profile ); };
   EXPECT_EQ( delay( "config/drained/shutdownMaxDelay" ), "1e+300" );
   EXPECT_EQ( delay( "config/atOnce/shutdownMaxDelay" ), "0" );
   EXPECT_EQ( delay( "config/late/shutdownMaxDelay" ), "3600" );
   EXPECT_EQ( delay( "config/up/shutdownMaxDelay" ), "0" );
}

TEST( ConfigRecords, aUnitWithoutAnInterfaceHasItsOwnCopiesOfTheGroupsThatHoldIt ) {
   RecordsBox box;
   ConfigRecords records( box.state, parsed( "groups: { a: { interfaces: [e1, e2] }, b: { interfaces: [e3] } }\n"
                                             "units: { u: { groups: [a, b] }, v: { groups: [a] } }\n" ) );
   std::string const whole = box.json();
   records.leftOutIs( "u", { IntfId( "e1" ), IntfId( "e99" ) } );
   EXPECT_EQ( box.json( Maintenance::Path::unitStatus, "status/u/group" ), R"({"intf:a/u": true, "intf:b": true})" );
   EXPECT_EQ( box.json( Maintenance::Path::unitStatus, "status/v/group" ), R"({"intf:a": true})" );
   EXPECT_EQ( box.json( Maintenance::Path::groupToUnit, "groupToUnit" ),
              R"({"intf:a": {"unitName": {"v": true}}, "intf:a/u": {"unitName": {"u": true}}, )"
              R"("intf:b": {"unitName": {"u": true}}})" );
   EXPECT_EQ(
      box.json( Maintenance::Path::groupStatus, "status" ),
      R"({"a": {"intf": {"e1": true, "e2": true}}, "a/u": {"intf": {"e2": true}}, "b": {"intf": {"e3": true}}})" );
   EXPECT_EQ( box.json( Maintenance::Path::groupConfig, "config" ), R"({"a": {}, "a/u": {}, "b": {}})" );
   EXPECT_EQ( box.json( Maintenance::Path::intfToGroup, "intfToGroup/e1/group" ), R"({"intf:a": true})" );
   EXPECT_EQ( box.json( Maintenance::Path::intfToGroup, "intfToGroup/e2/group" ),
              R"({"intf:a": true, "intf:a/u": true})" );
   // It is of the unit all the same.
   EXPECT_THAT( records.interfacesOf( "u" ), ElementsAre( IntfId( "e1" ), IntfId( "e2" ), IntfId( "e3" ) ) );
   records.leftOutIs( "u", {} );
   EXPECT_EQ( box.json(), whole );
}

// Random configurations of few names, so that everything moves from everywhere to everywhere.
class RandomConfigs {
 public:
   explicit RandomConfigs( unsigned seed ) : random_( seed ) {}

   [[nodiscard]] std::size_t below( std::size_t n ) { return random_() % n; }
   [[nodiscard]] bool chance( double p ) { return std::bernoulli_distribution( p )( random_ ); }
   [[nodiscard]] Config::Config config() {
      Config::Config config;
      for( std::string const & name : some( "p", 4, 1 ) ) {
         double const maxDelay = static_cast<double>( below( 3 ) );
         config.profiles.push_back( { name, static_cast<double>( 1 + below( 3 ) ), 10, 60, chance( 0.5 ), maxDelay } );
      }
      config.defaultProfile = config.profiles[below( config.profiles.size() )].name;
      for( std::string const & name : some( "g", 5, 1 ) ) {
         Config::Group group = { name, some( "e", 6, 0 ), {} };
         if( chance( 0.5 ) ) group.profile = config.profiles[below( config.profiles.size() )].name;
         config.groups.push_back( group );
      }
      for( std::string const & name : some( "u", 3, 0 ) ) {
         Config::Unit unit = { name, {} };
         for( auto const & group : config.groups ) {
            if( chance( 0.5 ) ) unit.groups.push_back( group.name );
         }
         std::shuffle( unit.groups.begin(), unit.groups.end(), random_ );
         if( !unit.groups.empty() ) config.units.push_back( unit );
      }
      return config;
   }
   [[nodiscard]] std::set<IntfId> intfs() {
      std::set<IntfId> intfs;
      for( std::string const & name : some( "e", 6, 0 ) ) intfs.insert( IntfId( name ) );
      return intfs;
   }

 private:
   std::vector<std::string> some( char const * letter, int of, std::size_t atLeast ) {
      std::vector<std::string> names;
      while( names.size() <= atLeast ) {
         names.clear();
         for( int i = 0; i < of; ++i ) {
            if( chance( 0.6 ) ) names.push_back( letter + std::to_string( i ) );
         }
         if( atLeast == 0 ) break;
      }
      std::shuffle( names.begin(), names.end(), random_ );
      return names;
   }

   std::mt19937 random_;
};

// Lives of one service's records, next to those that a fresh service would write.
class ConfigRecordsLife {
 public:
   explicit ConfigRecordsLife( unsigned seed )
      : random_( seed ), records_( std::in_place, box_.state, random_.config() ) {
      box_.changed = [this] { look(); };
   }

   void step() {
      setUnitStates();
      auto const before = members();
      std::function<void()> const change = nextChange();
      // A dry run on a box of its own says who will be a member.
      inBetween_ = before;
      auto const after = [&] {
         RecordsBox fresh;
         ConfigRecords const same = freshRecords( fresh );
         return membersIn( fresh );
      }();
      std::erase_if( inBetween_, [&]( auto const & member ) { return !after.contains( member ); } );
      change();
      inBetween_.clear();
      EXPECT_EQ( members(), after );

      RecordsBox fresh;
      ConfigRecords const same = freshRecords( fresh );
      forgetCauses( fresh );
      forgetCauses( box_ );
      EXPECT_EQ( box_.json(), fresh.json() );
   }

 private:
   using Members = std::set<std::pair<std::string, IntfId>>;

   // Chooses what is next, and notes how things should be afterwards.
   std::function<void()> nextChange() {
      auto const oldConfig = config_;
      if( random_.chance( 0.6 ) || config_.units.empty() ) {
         config_ = random_.config();
         keepWhatStays();
         if( random_.chance( 0.8 ) ) return [this] { records_->configIs( config_ ); };
         // Another service takes over; whoever owns it says again what is left out.
         return [this] {
            records_.emplace( box_.state, config_ );
            inBetween_.clear();
            for( auto const & [unit, intfs] : leftOut_ ) records_->leftOutIs( unit, intfs );
         };
      }
      std::string const unit = config_.units[random_.below( config_.units.size() )].name;
      auto const intfs = random_.chance( 0.3 ) ? std::set<IntfId>() : random_.intfs();
      leftOut_[unit] = intfs;
      keepWhatStays();
      return [this, unit, intfs] { records_->leftOutIs( unit, intfs ); };
   }
   // Units that go take along what is known of them; what is left out stays left out while it is of the unit.
   void keepWhatStays() {
      std::map<std::string, std::set<std::string>> of;
      for( auto const & unit : config_.units ) {
         auto & intfs = of[unit.name];
         for( auto const & group : config_.groups ) {
            bool const has = std::ranges::find( unit.groups, group.name ) != unit.groups.end();
            if( has ) intfs.insert( group.interfaces.begin(), group.interfaces.end() );
         }
      }
      std::erase_if( leftOut_, [&]( auto const & entry ) { return !of.contains( entry.first ); } );
      for( auto & [unit, intfs] : leftOut_ ) {
         auto const & all = of[unit];
         std::erase_if( intfs, [&]( IntfId intf ) { return !all.contains( std::string( intf.name() ) ); } );
      }
   }
   void setUnitStates() {
      constexpr State states[] = { State::active, State::entering, State::inMaintenance, State::leaving };
      for( auto [name, unit] : box_.state.unitStatus->statusIterator() ) {
         unit->stateIs( states[random_.below( 4 )] );
         unit->genIdIs( unit->genId() + 1 );
      }
      records_->selectProfiles();
   }
   ConfigRecords freshRecords( RecordsBox & fresh ) {
      ConfigRecords made( fresh.state, config_ );
      for( auto [name, unit] : fresh.state.unitStatus->statusIterator() ) {
         auto const former = box_.state.unitStatus->status( name );
         if( !former ) continue;
         unit->stateIs( former->state() );
         unit->genIdIs( former->genId() );
      }
      for( auto const & [unit, intfs] : leftOut_ ) made.leftOutIs( unit, intfs );
      made.selectProfiles();
      return made;
   }
   // How a selection came about depends on what was before, so a fresh one differs.
   static void forgetCauses( RecordsBox & box ) {
      for( auto [intf, member] : box.state.intfToGroup->intfToGroupIterator() ) {
         member->profileChangeCauseIs( ProfileChangeCause::unknown );
      }
   }
   static Members membersIn( RecordsBox const & box ) {
      Members found;
      for( char const * unit : { "u0", "u1", "u2" } ) {
         for( int i = 0; i < 6; ++i ) {
            IntfId const intf( "e" + std::to_string( i ) );
            if( box.isMember( unit, intf ) ) found.emplace( unit, intf );
         }
      }
      return found;
   }
   Members members() const { return membersIn( box_ ); }

   void look() {
      Members const now = members();
      for( auto const & [unit, intf] : inBetween_ ) {
         EXPECT_TRUE( now.contains( { unit, intf } ) ) << intf << " is out of " << unit << " for a while";
      }
      for( auto const & [unit, intf] : now ) {
         auto const * const selected =
            box_.state.intfToGroup->intfToGroup( intf )->selectedProfile( ProfileType::interface );
         ASSERT_TRUE( selected ) << intf << " has no profile for a while";
         EXPECT_TRUE( box_.state.profiles->config( selected->name ) ) << selected->name << " is not there for a while";
      }
   }

   RandomConfigs random_;
   RecordsBox box_;
   std::optional<ConfigRecords> records_;
   Config::Config config_ = records_->config();
   std::map<std::string, std::set<IntfId>> leftOut_;
   Members inBetween_;  // those that are members before and after the present change
};

TEST( ConfigRecords, afterAnyChangesAreThoseOfAFreshServiceAndNobodyIsOutInBetween ) {
   unsigned const seed = std::random_device()();
   for( unsigned life = 0; life < 15; ++life ) {
      SCOPED_TRACE( "seed " + std::to_string( seed + life ) );
      ConfigRecordsLife records( seed + life );
      for( int i = 0; i < 12 && !testing::Test::HasFailure(); ++i ) records.step();
      if( testing::Test::HasFailure() ) return;
   }
}

}  // namespace
}  // namespace Service

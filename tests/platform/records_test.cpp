// The record library: names that tools rely on, keys as text, and every attribute of every record by name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "kel/Json.h"
#include "records/Bridging.h"
#include "records/Cell.h"
#include "records/Errdisable.h"
#include "records/Group.h"
#include "records/Interface.h"
#include "records/Lag.h"
#include "records/MonIntfStatus.h"
#include "records/Profile.h"
#include "records/Stage.h"
#include "records/Unit.h"

namespace {

using Kel::AttributeInfo;
using Kel::Value;
using Kel::value;
using Maintenance::Unit::StageMgrInstKey;
using ::testing::ElementsAreArray;

// What is mounted; all other records are below these.
std::vector<Kel::TypeInfo const *> const & mounted() {
   static std::vector<Kel::TypeInfo const *> const types = {
      &Interface::AllIntfStatusDir::kelType(),
      &Interface::EthLagIntfConfigDir::kelType(),
      &Maintenance::Unit::StatusDir::kelType(),
      &Maintenance::MaintenanceGroup::ConfigDir::kelType(),
      &IntfGroup::StatusDir::kelType(),
      &IntfMaintenanceProfile::ConfigDir::kelType(),
      &Maintenance::Profile::DefaultProfile::kelType(),
      &IntfMaintenance::IntfToGroupDir::kelType(),
      &Maintenance::GroupToUnitDir::kelType(),
      &Maintenance::MonIntfStatusDir::kelType(),
      &Errdisable::CauseStatus::kelType(),
      &Lag::Config::kelType(),
      &Bridging::VlanStatusDir::kelType(),
      &Stage::AgentConfig::kelType(),
      &Stage::ProgressDir::kelType(),
      &Stage::CompletionStatusDir::kelType(),
      &Stage::AgentStatus::kelType(),
   };
   return types;
}

// Two keys of each key type as they are written, in key order.
std::pair<std::string, std::string> keysOf( AttributeInfo const & attribute ) {
   static std::map<std::string, std::pair<std::string, std::string>> const keys = {
      { "Lumo::IntfId", { "Ethernet2", "Ethernet10" } },
      { "IntfId", { "Ethernet2", "Ethernet10" } },
      { "Kel::String8", { "#x", "fabric" } },
      { "Kel::Name", { "fabric#12", "fabric#7" } },
      { "Group::GroupKey", { "intf:up:links", "bgp:peers" } },
      { "AgentStatusKey", { "ratemon:a:b#1", "ratemon:fabric#12" } },
      { "uint32_t", { "9", "10" } },
      { "Maintenance::Profile::ProfileType", { "0", "2" } },
   };
   return keys.at( attribute.keyTypeName() );
}

// Another value of the same kind, different from zero and in the range of every enumeration; objects field by field.
Value other( Value const & v ) {
   if( v.as<bool>() ) return value( true );
   if( v.as<uint64_t>() ) return value( uint64_t{ 1 } );
   if( v.as<double>() ) return value( 0.1 );
   if( v.as<std::string>() ) return value( "Ethernet2" );
   Value::Object changed = *v.as<Value::Object>();
   for( auto & [name, field] : changed ) field = other( field );
   return value( changed );
}

Value valueIn( AttributeInfo const & map ) {
   if( map.typeName() == "bool" ) return value( true );
   return map.typeName() == "double" ? value( 0.1 ) : value( "uplink" );
}

// Sets every attribute of an entity by name and expects to read the same; what holds children, with children in it.
void expectRoundTrips( Kel::Entity & e ) {
   for( auto const & attribute : e.kelTypeInfo().attributes() ) {
      SCOPED_TRACE( e.kelTypeInfo().name() + "::" + attribute->name() );
      if( !attribute->keyed() ) {
         Value const before = attribute->get( e );
         Value const wanted = other( before );
         ASSERT_NE( wanted, before );
         attribute->set( e, wanted );
         EXPECT_EQ( attribute->get( e ), wanted );
         continue;
      }
      auto const [first, second] = keysOf( *attribute );
      bool const children = attribute->kind() == AttributeInfo::Kind::children;
      Value const entry = children ? value( Value::Object() ) : valueIn( *attribute );
      attribute->set( e, value( Value::Object{ { second, entry }, { first, entry } } ) );
      EXPECT_THAT( attribute->keys( e ), ElementsAreArray( { first, second } ) );
      if( children ) {
         ASSERT_TRUE( attribute->child( e, first ) );
         EXPECT_EQ( attribute->child( e, first )->name(), first );
         expectRoundTrips( *attribute->child( e, first ) );
      } else {
         EXPECT_EQ( attribute->entry( e, first ), entry );
      }
      attribute->entryDel( e, second );
      EXPECT_THAT( attribute->keys( e ), ElementsAreArray( { first } ) );
   }
}

TEST( Records, everyAttributeReadsBackWhatWasSetByName ) {
   for( auto const * type : mounted() ) {
      auto const record = type->newEntity( "record" );
      expectRoundTrips( *record );
      // The whole record as one object makes an equal one.
      auto const copy = type->newEntity( "copy" );
      Value const whole = Kel::toValue( *record );
      Kel::setAttributes( *copy, *whole.as<Value::Object>() );
      EXPECT_EQ( Kel::toJson( Kel::toValue( *copy ) ), Kel::toJson( whole ) );
   }
}

// "path to the attribute" of a type and all below it, in order of declaration.
void collectNames( Kel::TypeInfo const & type, std::string const & prefix, std::vector<std::string> & names ) {
   for( auto const & attribute : type.attributes() ) {
      names.push_back( prefix + attribute->name() );
      if( attribute->kind() != AttributeInfo::Kind::children ) continue;
      auto const child = attribute->newChild( keysOf( *attribute ).first );
      collectNames( child->kelTypeInfo(), prefix + attribute->name() + ".", names );
   }
}

// Scenario files, stores and API clients hold the names in the file beside this one: each type with its attributes, and
// after a dot those of the records in them.
TEST( Records, keepTheNamesThatToolsRelyOn ) {
   std::ifstream file( RATEMON_SOURCE_DIR "/tests/platform/records.names" );
   std::vector<std::string> wanted, names;
   for( std::string line; std::getline( file, line ); ) wanted.push_back( line );
   for( auto const * type : mounted() ) {
      names.push_back( type->name() );
      collectNames( *type, "   ", names );
   }
   EXPECT_THAT( names, ElementsAreArray( wanted ) );
   Maintenance::Unit::Status const unit( "fabric" );
   EXPECT_EQ( Kel::toJson( unit.kelTypeInfo().attribute( "aggTrafficRate" )->get( unit ) ),
              R"({"outBitsRate": 0, "inBitsRate": 0, "updateTime": 0})" );
   Maintenance::MonIntfStatus const intf( Lumo::IntfId( "Ethernet1" ), "strict", 12.5 );
   EXPECT_EQ( Kel::toJson( intf.kelTypeInfo().attribute( "curRates" )->get( intf ) ),
              R"({"inBitsRate": 0, "outBitsRate": 0, "updateTime": 0})" );
   EXPECT_EQ( intf.name() + " " + intf.profileName().str(), "Ethernet1 strict" );
   EXPECT_EQ( intf.startTime(), 12.5 );
}

// A record's JSON and the traces hold these numbers and names.
TEST( Records, enumeratorsKeepNumbersAndNames ) {
   auto const names = []( auto first ) {
      std::string all;
      for( unsigned number = 0; number <= 255; ++number ) {
         auto const e = static_cast<decltype( first )>( number );
         if( enumName( e ) ) all += std::to_string( number ) + " " + enumName( e ) + ", ";
      }
      return all;
   };
   EXPECT_EQ( names( Interface::IntfOperStatus{} ), "0 unknown, 1 up, 2 down, " );
   EXPECT_EQ( names( Maintenance::Unit::State{} ),
              "0 unknown, 1 active, 2 entering, 3 inMaintenance, 4 failed, 5 leaving, " );
   EXPECT_EQ( names( Maintenance::Unit::MaintenanceOp{} ), "1 enter, 2 exit, " );
   EXPECT_EQ( names( Maintenance::MonIntfState{} ),
              "0 notMonitoring, 1 thresholdMonitoring, 2 passiveMonitoring, 3 monitoringStopped, " );
   EXPECT_EQ( names( Maintenance::Profile::ProfileType{} ), "0 unknown, 2 interface, " );
   EXPECT_EQ( names( Maintenance::ProfileChangeCause{} ), "0 unknown, 1 configuration, 2 precedence, " );
   EXPECT_EQ( static_cast<int>( Group::GroupType::intf ), 1 );
   EXPECT_EQ( static_cast<int>( Group::GroupType::bgp ), 2 );
}

TEST( Keys, ofGroupsAndAgentStatusSplitAtTheFirstColon ) {
   auto const group = Kel::KeyTraits<Group::GroupKey>::fromText( "intf:up:links" );
   EXPECT_EQ( group, ( Group::GroupKey{ Group::GroupType::intf, "up:links" } ) );
   EXPECT_NE( group, ( Group::GroupKey{ Group::GroupType::bgp, "up:links" } ) );
   auto const mark = Kel::KeyTraits<Stage::AgentStatusKey>::fromText( "ratemon:a:b#1" );
   EXPECT_EQ( mark, ( Stage::AgentStatusKey{ "ratemon", "a:b#1" } ) );
   for( char const * wrong : { "", "uplinks", "vlan:x", "intf", ":x", "INTF:x", "1:x", "unknown:x" } ) {
      EXPECT_THROW( Kel::KeyTraits<Group::GroupKey>::fromText( wrong ), Kel::AttributeError ) << wrong;
   }
   EXPECT_THROW( Kel::KeyTraits<Stage::AgentStatusKey>::fromText( "ratemon" ), Kel::AttributeError );
   std::ostringstream printed;
   printed << group << ' ' << Maintenance::Profile::ProfileKey{} << ' '
           << Maintenance::Profile::ProfileKey{ Maintenance::Profile::defaultProfileName() };
   EXPECT_EQ( printed.str(), "intf:up:links - #DEFAULTPROFILE" );
   EXPECT_EQ( Cell::path( "stage/maintEnter/progress", 0 ), "cell/0/stage/maintEnter/progress" );
}

// "unit genId" of an instance name, or the complaint.
std::string parsed( char const * instanceName ) {
   try {
      StageMgrInstKey const key{ Kel::Name( instanceName ) };
      return key.unitName().str() + " " + std::to_string( key.genId() );
   } catch( Kel::InternalException const & error ) {
      return error.what();
   }
}

TEST( StageMgrInstKey, readsTheNameOfAnInstance ) {
   std::pair<char const *, std::string> const cases[] = {
      { "unit#12", "unit 12" },
      { "a b:c#0", "a b:c 0" },
      { "u#4294967295", "u 4294967295" },
      { "u#007", "u 7" },
      { "u# 7", "u 7" },
      { "u#7x", "u 7" },
      { "u#7#8", "u 7" },
      { "", "Unexpected instanceName format" },
      { "u5", "Unexpected instanceName format" },
      { "#5", "Unexpected instanceName format, couldn't extract unitName" },
      { "#0", "Unexpected instanceName format, couldn't extract unitName" },
      { "#", "Unexpected instanceName format, couldn't extract unitName" },
      { "u#", "Unexpected instanceName format, couldn't extract genId" },
      { "u#x", "Unexpected instanceName format, genId is invalid" },
      { "u# ", "Unexpected instanceName format, genId is invalid" },
      { "a#b#3", "Unexpected instanceName format, genId is invalid" },
      { "u#4294967296", "Unexpected instanceName format, genId is invalid" },
   };
   for( auto const & [name, wanted] : cases ) EXPECT_EQ( parsed( name ), wanted ) << name;
}

TEST( StageMgrInstKey, keepsWhatItHasWhenANameIsRefused ) {
   StageMgrInstKey key( "fabric", 7 );
   EXPECT_EQ( key.instanceName(), Kel::Name( "fabric#7" ) );
   EXPECT_THROW( key.instanceNameIs( "edge#x" ), Kel::InternalException );
   EXPECT_EQ( key.instanceName(), Kel::Name( "fabric#7" ) );
   key.instanceNameIs( "edge#08" );
   EXPECT_EQ( key.instanceName(), Kel::Name( "edge#8" ) );
}

}  // namespace

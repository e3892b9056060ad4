// docs/api/openapi.yaml says what the program says: each answer field by field, each word, each route.
//
// That answers of a running maintd fit it is for tests/api/walk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <yaml-cpp/yaml.h>

#include <boost/pfr.hpp>
#include <set>

#include "api/Api.h"
#include "events/Events.h"
#include "records/MonIntfStatus.h"
#include "views/Answers.h"
#include "views/WindowAnswer.h"

namespace Host {
namespace {

using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

using Texts = std::vector<std::string>;

template<class T>
struct Within;  // what is in an optional or a list
template<class T>
struct Within<std::optional<T>> {
   using Type = T;
};
template<class T>
struct Within<std::vector<T>> {
   using Type = T;
};
template<class T, template<class...> class Of>
constexpr bool isA = false;
template<class T, template<class...> class Of>
constexpr bool isA<Of<T>, Of> = true;

class SchemaTest : public ::testing::Test {
 protected:
   static Texts keys( YAML::Node const & map ) {
      Texts found;
      for( auto const & entry : map ) found.push_back( entry.first.as<std::string>() );
      return found;
   }
   static std::string refTo( std::string const & name ) { return "#/components/schemas/" + name; }
   // "Evidence::RateCell" is RateCell there, "UnitAnswer" Unit.
   template<class T>
   static std::string nameOf() {
      std::string name = T::kelTypeName();
      if( auto const colon = name.rfind( ':' ); colon != std::string::npos ) name.erase( 0, colon + 1 );
      if( name.ends_with( "Answer" ) ) name.erase( name.size() - std::string( "Answer" ).size() );
      return name;
   }
   template<class E>
   static Texts words() {
      Texts found;
      for( int i = 0; i < 256; ++i ) {
         if( char const * const word = enumName( static_cast<E>( i ) ) ) found.emplace_back( word );
      }
      return found;
   }
   Texts wordsOf( YAML::Node const & schema ) { return schema["enum"].as<Texts>(); }

   YAML::Node resolved( YAML::Node const & schema ) {
      if( !schema["$ref"] ) return schema;
      std::string const ref = schema["$ref"].as<std::string>();
      return schemas_[ref.substr( refTo( "" ).size() )];
   }

   // What a value of that type is in JSON; a record is what it refers to.
   template<class T>
   static std::string typeOf() {
      if constexpr( std::is_same_v<T, bool> ) return "boolean";
      if constexpr( std::is_floating_point_v<T> ) return "number";
      if constexpr( std::is_unsigned_v<T> ) return "integer";
      return "string";
   }

   template<class T>
   void expect( YAML::Node const & schema, std::string const & at ) {
      SCOPED_TRACE( at );
      ASSERT_TRUE( schema ) << "not described";
      if constexpr( isA<T, std::optional> ) {
         using X = typename Within<T>::Type;
         if( schema["anyOf"] ) {
            ASSERT_EQ( schema["anyOf"].size(), 2u );
            EXPECT_EQ( schema["anyOf"][1]["type"].as<std::string>(), "null" );
            expect<X>( schema["anyOf"][0], at );
         } else {
            EXPECT_THAT( schema["type"].as<Texts>(), ( ElementsAreArray<std::string>( { typeOf<X>(), "null" } ) ) );
         }
      } else if constexpr( isA<T, std::vector> ) {
         ASSERT_EQ( schema["type"].as<std::string>(), "array" );
         expect<typename Within<T>::Type>( schema["items"], at + "[]" );
      } else if constexpr( Kel::ValueRecord<T> ) {
         ASSERT_TRUE( schema["$ref"] );
         EXPECT_EQ( schema["$ref"].as<std::string>(), refTo( nameOf<T>() ) );
         expectRecord<T>();
      } else {
         EXPECT_EQ( resolved( schema )["type"].as<std::string>(), typeOf<T>() );
      }
   }

   template<class T>
   void expectRecord() {
      std::string const name = nameOf<T>();
      if( !described_.insert( name ).second ) return;
      YAML::Node const schema = schemas_[name];
      ASSERT_TRUE( schema ) << name;
      EXPECT_FALSE( schema["additionalProperties"].as<bool>() ) << name;
      // The record knows its names, the compiler its types, both in the order of declaration.
      Texts fields;
      Kel::Value const empty = Kel::ValueTraits<T>::toValue( T{} );
      for( auto const & [field, value] : *empty.template as<Kel::Value::Object>() ) fields.push_back( field );
      boost::pfr::for_each_field( T{}, [&]( auto const & field, std::size_t place ) {
         expect<std::decay_t<decltype( field )>>( schema["properties"][fields[place]], name + "." + fields[place] );
      } );
      EXPECT_THAT( keys( schema["properties"] ), ElementsAreArray( fields ) ) << name;
      EXPECT_THAT( schema["required"].as<Texts>(), ElementsAreArray( fields ) ) << name;
   }

   YAML::Node document_ = YAML::LoadFile( RATEMON_SOURCE_DIR "/docs/api/openapi.yaml" );
   YAML::Node schemas_ = document_["components"]["schemas"];
   std::set<std::string> described_;
};

TEST_F( SchemaTest, everyFieldOfAnAnswerIsDescribedAsItIsDeclared ) {
   expectRecord<Service::UnitsAnswer>();
   expectRecord<Service::ReadyAnswer>();
   expectRecord<Service::InterfacesAnswer>();
   expectRecord<Service::RequestAnswer>();
   expectRecord<Service::WindowsAnswer>();
   expectRecord<Service::WindowAnswer>();
   expectRecord<Service::Event>();
   // Made by hand in the program, as no record is.
   std::set<std::string> const byHand{ "Branch",   "Change",   "Error", "Gone",      "Octets",     "Refusal",
                                       "Reloaded", "Snapshot", "Step",  "StreamEnd", "TraceLevels" };
   for( std::string const & name : keys( schemas_ ) ) {
      bool const isRecord = schemas_[name]["properties"] && !byHand.contains( name );
      EXPECT_EQ( isRecord, described_.contains( name ) ) << name;
   }
}

TEST_F( SchemaTest, everyWordIsDescribed ) {
   auto const expectWords = [&]( YAML::Node const & schema, Texts const & expected ) {
      EXPECT_THAT( wordsOf( schema ), UnorderedElementsAreArray( expected ) );
   };
   auto const property = [&]( char const * schema, char const * name ) { return schemas_[schema]["properties"][name]; };
   expectWords( schemas_["UnitState"], words<Maintenance::Unit::State>() );
   expectWords( schemas_["Verdict"], words<Evidence::Verdict>() );
   expectWords( schemas_["Outcome"], words<Evidence::Outcome>() );
   expectWords( schemas_["Monitoring"], words<Maintenance::MonIntfState>() );
   expectWords( property( "Loud", "direction" ), words<Evidence::Direction>() );
   expectWords( property( "WindowStage", "result" ), words<Evidence::StageResult>() );
   expectWords( property( "WindowStage", "operation" ), words<Maintenance::Unit::MaintenanceOp>() );
   expectWords( schemas_["EventKind"], words<Service::EventKind>() );
   expectWords( schemas_["Severity"], words<Service::Severity>() );
   Texts status = words<Interface::IntfOperStatus>();
   status.emplace_back( "missing" );
   expectWords( property( "Interface", "operStatus" ), status );
}

TEST_F( SchemaTest, everyRouteIsDescribedAndNoOther ) {
   Texts described;
   for( auto const & entry : document_["paths"] ) {
      std::string path = entry.first.as<std::string>();
      for( std::size_t open = 0; ( open = path.find( '{' ) ) != std::string::npos; ) {
         auto const name = path.substr( open, path.find( '}' ) + 1 - open );
         path.replace( open, name.size(), name == "{path}" ? "**" : "*" );
      }
      for( std::string method : keys( entry.second ) ) {
         if( method == "parameters" ) continue;
         for( char & c : method ) c = static_cast<char>( std::toupper( c ) );
         described.push_back( method + " " + path );
      }
   }
   EXPECT_THAT( described, UnorderedElementsAreArray( Api::routeTexts() ) );
}

}  // namespace
}  // namespace Host

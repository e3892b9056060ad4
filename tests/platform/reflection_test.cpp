// Records by name: what the store, the API and the simulator rely on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "KelSamples.h"
#include "kel/Dir.h"
#include "kel/Json.h"

namespace {

using Kel::AttributeInfo;
using Kel::Value;
using Kel::value;
using Sample::Record;
using ::testing::HasSubstr;

class Reflection : public ::testing::Test {
 protected:
   AttributeInfo const & attribute( char const * name ) const { return *record_->kelTypeInfo().attribute( name ); }
   void set( char const * name, Value const & v ) { attribute( name ).set( *record_, v ); }

   Kel::Ptr<Record> record_{ new Record( "r" ) };
};

TEST_F( Reflection, refusesWhatDoesNotFitAndSaysWhich ) {
   struct Case {
      char const * attribute;
      Value wrong;
      char const * complaint;
   };
   Case const cases[] = {
      { "quiet", value( "fast" ), "\"quiet\" wants a number, not a string" },
      { "mood", value( uint64_t{ 2 } ), "\"mood\" wants the number of a known enumerator" },
      { "mood", value( "odd" ), "\"mood\" wants a whole number" },
      { "label", value( true ), "\"label\" wants a string, not a boolean" },
      { "level", value( uint64_t{ 1 } << 31 ), "\"level\" wants a whole number" },
      { "total", value( int64_t{ -1 } ), "\"total\" wants a whole number" },
      { "total", value( 1.5 ), "\"total\" wants a whole number" },
      { "total", value( uint64_t{ 1 } << 32 ), "\"total\" wants a whole number" },
      { "pair", value( Value::Object{ { "up", value( 1.0 ) } } ), "Sample::Pair has no field \"up\"" },
      { "port", value( Value::Object{ { "x", value( true ) } } ), "\"x\" is not a number" },
      { "port", value( Value::Object{ { "1", value( false ) } } ), "true (it is a set)" },
      { "unit", value( uint64_t{ 1 } ), "\"unit\" wants an object" },
      { "peer", value( "x" ), "\"peer\" cannot be set" },
   };
   for( Case const & c : cases ) {
      try {
         set( c.attribute, c.wrong );
         ADD_FAILURE() << c.attribute << " took " << Kel::toJson( c.wrong );
      } catch( Kel::AttributeError const & error ) {
         EXPECT_THAT( error.what(), HasSubstr( c.complaint ) );
      }
   }
   EXPECT_EQ( Kel::toJson( Kel::toValue( *record_ ) ),
              Kel::toJson( Kel::toValue( *Kel::Ptr<Record>( new Record( "" ) ) ) ) );
}

TEST_F( Reflection, mergesIntoAChildThatExists ) {
   Kel::Ptr<Sample::Directory> const directory( new Sample::Directory( "d" ) );
   auto const & records = *directory->kelTypeInfo().attribute( "record" );
   records.entryIs( *directory, "r", value( Value::Object{ { "total", value( 1u ) }, { "quiet", value( 2.0 ) } } ) );
   auto const made = directory->record( "r" );
   records.entryIs( *directory, "r", value( Value::Object{ { "total", value( 5u ) } } ) );
   EXPECT_EQ( directory->record( "r" ), made );
   EXPECT_EQ( made->total(), 5u );
   EXPECT_EQ( made->quiet(), 2.0 );
   EXPECT_THROW( records.entryIs( *directory, "r", value( Value::Object{ { "nothing", value( 1u ) } } ) ),
                 Kel::AttributeError );
   EXPECT_TRUE( records.entry( *directory, "absent" ).isNull() );
}

TEST( Json, printsWhatReadsBackTheSame ) {
   struct Case {
      Value v;
      char const * text;
   };
   Case const cases[] = {
      { value( 0.1 ), "0.1" },
      { value( 1e21 ), "1e+21" },
      { value( std::numeric_limits<double>::infinity() ), "null" },
      { value( std::numeric_limits<int64_t>::min() ), "-9223372036854775808" },
      { value( "quote \" back \\ tab \t bell \a" ), R"("quote \" back \\ tab \t bell \u0007")" },
      { value( "caf\xc3\xa9 \xf0\x9f\x90\xa6" ), "\"caf\xc3\xa9 \xf0\x9f\x90\xa6\"" },
      { value( "\xc3 \xed\xa0\x80 \xf8" ), "\"\xef\xbf\xbd \xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd \xef\xbf\xbd\"" },
      { Value( Value::List{ value( true ), Value() } ), "[true, null]" },
   };
   for( Case const & c : cases ) EXPECT_EQ( Kel::toJson( c.v ), c.text );
}

}  // namespace

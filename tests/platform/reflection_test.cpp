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
using Sample::Mood;
using Sample::Record;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Reflection : public ::testing::Test {
 protected:
   AttributeInfo const & attribute( char const * name ) const { return *record_->kelTypeInfo().attribute( name ); }
   void set( char const * name, Value const & v ) { attribute( name ).set( *record_, v ); }
   Value get( char const * name ) const { return attribute( name ).get( *record_ ); }

   Kel::Ptr<Record> record_{ new Record( "r" ) };
};

TEST_F( Reflection, namesEveryAttributeInOrderWithKindAndType ) {
   std::vector<std::string> seen;
   for( auto const & a : Record::kelType().attributes() ) {
      seen.push_back( a->name() + " " + std::to_string( static_cast<int>( a->kind() ) ) + " " + a->typeName() +
                      ( a->keyed() ? " by " + a->keyTypeName() : "" ) );
   }
   EXPECT_THAT( seen, ElementsAre( "quiet 0 double", "mood 0 enumeration", "pair 0 Sample::Pair", "label 0 string",
                                   "level 0 S32", "total 1 U32", "peer 2 reference", "unit 3 bool by Kel::String8",
                                   "port 4 bool by uint32_t" ) );
}

TEST_F( Reflection, readsAndWritesEveryForm ) {
   Value const pair = value( Value::Object{ { "in", value( 0.5 ) }, { "out", value( ~uint64_t{ 0 } ) } } );
   set( "quiet", value( uint64_t{ 3 } ) );  // a whole number is a double, too
   set( "mood", value( uint64_t{ 7 } ) );
   set( "pair", pair );
   set( "level", value( int64_t{ -5 } ) );
   set( "total", value( uint64_t{ 9 } ) );
   set( "unit", value( Value::Object{ { "u2", value( false ) }, { "u1", value( true ) } } ) );
   attribute( "port" ).entryIs( *record_, "10", value( true ) );
   attribute( "port" ).entryIs( *record_, "9", value( true ) );
   EXPECT_EQ( record_->mood(), Mood::odd );
   EXPECT_EQ( record_->pair().out, ~uint64_t{ 0 } );
   EXPECT_EQ( get( "pair" ), pair );
   EXPECT_EQ( attribute( "mood" ).print( *record_ ), "odd" );
   EXPECT_THAT( attribute( "port" ).keys( *record_ ), ElementsAre( "9", "10" ) );
   EXPECT_EQ( Kel::toJson( Kel::toValue( *record_ ) ),
              R"({"quiet": 3, "mood": 7, "pair": {"in": 0.5, "out": 18446744073709551615}, "label": "", "level": -5, )"
              R"("total": 9, "peer": null, "unit": {"u1": true, "u2": false}, "port": {"9": true, "10": true}})" );
   attribute( "port" ).entryDel( *record_, "9" );
   attribute( "port" ).entryDel( *record_, "9" );
   attribute( "unit" ).entryDelAll( *record_ );
   EXPECT_EQ( record_->ports(), 1u );
   EXPECT_EQ( record_->units(), 0u );
   record_->peerIs( new Record( "friend" ) );
   EXPECT_EQ( get( "peer" ), value( "friend" ) );
}

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

// Interface names as numbers: what kind they are, in which order they stand, what is interned.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <sstream>

#include "kel/Exception.h"
#include "kel/HashMap.h"
#include "records/IntfId.h"

namespace {

using Lumo::IntfId;
using Lumo::IntfKind;
using Lumo::VlanIntfId;

// Which tests an id passes, as letters: E(thernet), P(ort-channel), V(LAN), S(ub-interface), C(PU).
std::string passed( IntfId id ) {
   std::string tests;
   if( Lumo::EthIntfId::isEthIntfId( id ) ) tests += 'E';
   if( Lumo::PortChannelIntfId::isPortChannelIntfId( id ) ) tests += 'P';
   if( VlanIntfId::isVlanIntfId( id ) ) tests += 'V';
   if( Lumo::SubIntfId::isSubIntfId( id ) ) tests += 'S';
   if( Lumo::CpuIntfId::isCpuIntfId( id ) ) tests += 'C';
   return tests;
}

std::vector<std::string> words( std::string const & text ) {
   std::istringstream in( text );
   return { std::istream_iterator<std::string>( in ), {} };
}

TEST( IntfIdKind, followsFromTheFormOfTheName ) {
   std::pair<char const *, char const *> const cases[] = {
      { "E", "Ethernet1 Ethernet3/1 Ethernet3/12/4 Ethernet0" },
      { "P", "Port-Channel7" },
      { "V", "Vlan100" },
      { "C", "Cpu" },
      { "ES", "Ethernet1.5 Ethernet3/1.100" },
      { "PS", "Port-Channel1.5 Port-Channel7.20" },
      { "",
        "Ethernet Ethernet/1 Ethernet1/ Ethernet1/.5 Ethernet1. Ethernet1.x Ethernet1.5.6 Ethernet1.5/6 Ethernet1x" },
      { "", "Ethernet-1 ethernet1 xEthernet1 Port-Channel Port-Channel7/1 Vlan Vlan100.5 Vlan10/1 Cpu0 eth0 .5" },
   };
   for( auto const & [passes, names] : cases ) {
      for( std::string const & name : words( names ) ) EXPECT_EQ( passed( IntfId( name ) ), passes ) << name;
   }
   EXPECT_EQ( passed( IntfId() ), "" );
   EXPECT_EQ( passed( IntfId( "" ) ), "" );
}

TEST( IntfIdKind, declaredWinsOverTheNameAlsoAfterwards ) {
   IntfId const before( "bond0" );
   ASSERT_EQ( passed( before ), "" );
   EXPECT_EQ( IntfId::declare( "bond0", IntfKind::portChannel ), before );
   EXPECT_EQ( passed( before ), "P" );
   EXPECT_EQ( passed( IntfId( "bond0" ) ), "P" );

   EXPECT_EQ( passed( IntfId::declare( "uplink", IntfKind::ethernet ) ), "E" );
   EXPECT_EQ( passed( IntfId::declare( "uplink.5", IntfKind::subIntf ) ), "S" );
   EXPECT_EQ( passed( IntfId::declare( "Ethernet77.1", IntfKind::subIntf ) ), "S" );
   EXPECT_EQ( passed( IntfId::declare( "Ethernet78", IntfKind::other ) ), "" );
   EXPECT_EQ( passed( IntfId::declare( "Ethernet79.3", IntfKind::ethernet ) ), "E" );

   IntfId const bridge = IntfId::declare( "br0.100", IntfKind::vlan, 100 );
   EXPECT_EQ( passed( bridge ), "V" );
   EXPECT_EQ( VlanIntfId::vlanId( bridge ), 100 );
   IntfId::declare( "br0.100", IntfKind::vlan, 200 );
   EXPECT_EQ( VlanIntfId::vlanId( bridge ), 200 );
   IntfId const renamed( "Vlan55" );
   IntfId::declare( "Vlan55", IntfKind::vlan, 56 );
   EXPECT_EQ( VlanIntfId::vlanId( renamed ), 56 );
}

TEST( IntfIdKind, vlanIdHoldsFrom1To4094 ) {
   EXPECT_EQ( VlanIntfId::vlanId( IntfId( "Vlan1" ) ), 1 );
   EXPECT_EQ( VlanIntfId::vlanId( IntfId( "Vlan0004094" ) ), 4094 );
   std::pair<char const *, char const *> const outside[] = { { "Vlan0", "0" },
                                                             { "Vlan4095", "4095" },
                                                             { "Vlan65537", "65537" },
                                                             { "Vlan99999999999999999999", "4294967295" } };
   for( auto const & [name, value] : outside ) {
      IntfId const id( name );
      EXPECT_TRUE( VlanIntfId::isVlanIntfId( id ) );
      try {
         ADD_FAILURE() << name << " has VLAN id " << VlanIntfId::vlanId( id );
      } catch( Kel::RangeError const & error ) {
         EXPECT_EQ( error.what(),
                    std::string( "VlanId::value " ) + value + " less than 1 or greater than 4094 not allowed" );
      }
   }
   EXPECT_DEATH( static_cast<void>( VlanIntfId::vlanId( IntfId( "Ethernet1" ) ) ), "isVlanIntfId" );
}

TEST( IntfIdTable, givesANameOneNumberAndKeepsIt ) {
   EXPECT_EQ( IntfId(), IntfId( "" ) );
   EXPECT_TRUE( IntfId().empty() );
   EXPECT_EQ( IntfId().name(), "" );
   EXPECT_NE( IntfId( "Ethernet1" ), IntfId( "Ethernet01" ) );

   // Text that goes away after interning, and more names than any table starts with room for.
   IntfId const first( std::string( "Ethernet9/1" ) );
   char const * const nameBefore = first.name().data();
   Kel::HashMap<int, IntfId> byId;
   for( int i = 0; i < 5000; ++i ) byId.insert( IntfId( "intf" + std::to_string( i ) ), i );
   EXPECT_EQ( first.name(), "Ethernet9/1" );
   EXPECT_EQ( first.name().data(), nameBefore );
   EXPECT_EQ( passed( first ), "E" );
   for( int i = 0; i < 5000; ++i ) ASSERT_EQ( *byId.find( IntfId( "intf" + std::to_string( i ) ) ), i );
   EXPECT_EQ( byId.find( IntfId( "intf5000" ) ), nullptr );
}

TEST( IntfIdTable, askingForANameDoesNotInternIt ) {
   std::size_t const before = IntfId::names();
   EXPECT_EQ( IntfId::known( "Ethernet4711" ), std::nullopt );
   EXPECT_EQ( Kel::knownKey<IntfId>( "Ethernet4711" ), std::nullopt );
   EXPECT_EQ( IntfId::names(), before );
   IntfId const interned( "Ethernet4711" );
   EXPECT_EQ( IntfId::names(), before + 1 );
   EXPECT_EQ( IntfId::known( "Ethernet4711" ), interned );
   EXPECT_EQ( IntfId::known( "" ), IntfId() );
}

TEST( IntfIdOrder, readsRunsOfDigitsAsNumbers ) {
   // In ascending order. Interned backwards, so that the numbers say nothing.
   std::vector<std::string> names = words(
      "1 2 10 Cpu Ethernet Ethernet2 Ethernet02 Ethernet002 Ethernet2/1 Ethernet2/10 Ethernet2/010 Ethernet10 "
      "Ethernet10.5 Ethernet10/5 Ethernet99999999999999999999 Ethernet100000000000000000000 EthernetA "
      "Port-Channel3 Vlan1 a0 a00 a0b1 a00b1 a0b2 eth \xc3\xa9" );
   names.insert( names.begin(), "" );
   for( auto i = names.rbegin(); i != names.rend(); ++i ) static_cast<void>( IntfId( *i ) );
   for( std::size_t i = 0; i < names.size(); ++i ) {
      for( std::size_t j = 0; j < names.size(); ++j ) {
         EXPECT_EQ( IntfId( names[i] ) <=> IntfId( names[j] ), i <=> j ) << names[i] << " and " << names[j];
      }
   }
}

// The same order by other means: names with all numbers blown up to one width compare as plain text, and then the
// counts of leading zeros.
std::pair<std::string, std::vector<std::size_t>> blownUp( std::string const & name ) {
   std::pair<std::string, std::vector<std::size_t>> blown;
   for( std::size_t at = 0; at < name.size(); ) {
      std::size_t const end = std::min( name.find_first_not_of( "0123456789", at ), name.size() );
      if( end == at ) {
         blown.first += name[at++];
         continue;
      }
      std::size_t const number = std::min( name.find_first_not_of( '0', at ), end );
      blown.first += std::string( 40 - ( end - number ), '0' ) + name.substr( number, end - number );
      blown.second.push_back( number - at );
      at = end;
   }
   return blown;
}

// Names that have much in common, around 16 characters long: two then differ in front of what their keys hold, at the
// end of it, behind it, or in zeros alone.
TEST( IntfIdOrder, isThatOfTheNamesWhereverTheyDiffer ) {
   std::vector<std::string> const pieces = words(
      "Ethernet Ethernet1/ Port-Channel swp e / . : ~ \xff 0 00 1 9 10 012 99 "
      "9999 10000 1234567 12345678 99999999 123456789 100000000000000000000" );
   auto const seed = std::random_device()();
   std::mt19937 random( seed );
   std::vector<std::string> names;
   while( names.size() < 2000 ) {
      std::string name;
      while( random() % 5 != 0 ) name += pieces[random() % pieces.size()];
      if( random() % 20 == 0 ) name += '\0';
      if( name.size() > 10 || random() % 4 == 0 ) names.push_back( name.substr( 0, 30 ) );
   }
   std::vector<IntfId> const ids( names.begin(), names.end() );
   std::vector<decltype( blownUp( "" ) )> plain;
   for( std::string const & name : names ) plain.push_back( blownUp( name ) );
   for( std::size_t i = 0; i < names.size(); ++i ) {
      for( std::size_t j = 0; j < i; ++j ) {
         ASSERT_EQ( ids[i] <=> ids[j], plain[i] <=> plain[j] )
            << "seed " << seed << ": " << names[i] << " and " << names[j];
      }
   }
}

TEST( IntfIdText, isTheName ) {
   IntfId const id( "Port-Channel3" );
   std::ostringstream printed;
   printed << id << ' ' << id.kind();
   EXPECT_EQ( printed.str(), "Port-Channel3 portChannel" );
   EXPECT_EQ( Kel::KeyTraits<IntfId>::fromText( Kel::KeyTraits<IntfId>::toText( id ) ), id );
   EXPECT_EQ( Kel::ValueTraits<IntfId>::fromValue( Kel::ValueTraits<IntfId>::toValue( id ) ), id );
   EXPECT_THROW( static_cast<void>( Kel::ValueTraits<IntfId>::fromValue( Kel::Value() ) ), Kel::AttributeError );
}

}  // namespace

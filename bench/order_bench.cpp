// What the order of interfaces costs (platform/records/NaturalOrder.h): interning names, comparing and sorting ids, and
// looking one up in an ordered map. Beside each the limit: the same with plain numbers.
//
// `Ports` are names of a box, Ethernet1/1 and on, of which the key tells all apart; `Long` have so much in common at
// their beginning that only the names do. Interned names stay, so a case that interns runs a set number of times.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "records/IntfId.h"

namespace {

using Lumo::IntfId;

struct Ports {
   static std::string name( int64_t i ) {
      return "Ethernet" + std::to_string( i / 32 + 1 ) + "/" + std::to_string( i % 32 + 1 );
   }
};
struct Long {
   static std::string name( int64_t i ) { return "TwentyFiveGigEthernet" + Ports::name( i ); }
};

// The numbers from 0 up to `count`, in an order that is the same in every run.
std::vector<uint32_t> shuffled( int64_t count ) {
   std::vector<uint32_t> numbers( static_cast<std::size_t>( count ) );
   for( uint32_t i = 0; auto & n : numbers ) n = i++;
   std::shuffle( numbers.begin(), numbers.end(), std::minstd_rand( 1 ) );
   return numbers;
}

template<class Names>
std::vector<IntfId> ids( int64_t count ) {
   std::vector<IntfId> ids;
   for( uint32_t const i : shuffled( count ) ) ids.emplace_back( Names::name( i ) );
   return ids;
}

// Each with the next one, which is any other.
void compareAll( benchmark::State & state, auto const & keys ) {
   for( auto _ : state ) {
      std::size_t less = 0;
      for( std::size_t i = 1; i < keys.size(); ++i ) less += keys[i - 1] < keys[i];
      benchmark::DoNotOptimize( less );
   }
   state.SetItemsProcessed( state.iterations() * ( state.range() - 1 ) );
}

void sortAll( benchmark::State & state, auto const & keys ) {
   for( auto _ : state ) {
      auto sorted = keys;
      std::sort( sorted.begin(), sorted.end() );
      benchmark::DoNotOptimize( sorted.data() );
   }
   state.SetItemsProcessed( state.iterations() * state.range() );
}

template<class Key>
void findAll( benchmark::State & state, std::vector<Key> const & keys ) {
   std::map<Key, bool> map;
   for( Key const key : keys ) map.emplace( key, true );
   for( auto _ : state ) {
      for( Key const key : keys ) benchmark::DoNotOptimize( map.find( key ) );
   }
   state.SetItemsProcessed( state.iterations() * state.range() );
}

template<class Names>
void compareNames( benchmark::State & state ) {
   compareAll( state, ids<Names>( state.range() ) );
}
void compareNumbers( benchmark::State & state ) { compareAll( state, shuffled( state.range() ) ); }

template<class Names>
void sortNames( benchmark::State & state ) {
   sortAll( state, ids<Names>( state.range() ) );
}
void sortNumbers( benchmark::State & state ) { sortAll( state, shuffled( state.range() ) ); }

template<class Names>
void findNames( benchmark::State & state ) {
   findAll( state, ids<Names>( state.range() ) );
}
void findNumbers( benchmark::State & state ) { findAll( state, shuffled( state.range() ) ); }

enum class Come { inOrder, backwards, atRandom };

template<Come come>
void internNames( benchmark::State & state ) {
   static int run = 0;
   auto order = shuffled( state.range() );
   if( come != Come::atRandom ) std::sort( order.begin(), order.end() );
   if( come == Come::backwards ) std::reverse( order.begin(), order.end() );
   for( auto _ : state ) {
      state.PauseTiming();
      // Three cases have counters of their own, and no two may use the same names.
      std::string const prefix = "c" + std::to_string( 3 * run++ + static_cast<int>( come ) ) + "p";
      std::vector<std::string> names;
      for( uint32_t const i : order ) names.push_back( prefix + std::to_string( i ) );
      state.ResumeTiming();
      for( std::string const & name : names ) benchmark::DoNotOptimize( IntfId( name ) );
   }
   state.SetItemsProcessed( state.iterations() * state.range() );
}

#define RATEMON_ORDER_SIZES ->Arg( 1000 )->Arg( 4000 )->Arg( 100'000 )->Unit( benchmark::kMicrosecond )
BENCHMARK( compareNames<Ports> ) RATEMON_ORDER_SIZES;
BENCHMARK( compareNames<Long> ) RATEMON_ORDER_SIZES;
BENCHMARK( compareNumbers ) RATEMON_ORDER_SIZES;
BENCHMARK( sortNames<Ports> ) RATEMON_ORDER_SIZES;
BENCHMARK( sortNames<Long> ) RATEMON_ORDER_SIZES;
BENCHMARK( sortNumbers ) RATEMON_ORDER_SIZES;
BENCHMARK( findNames<Ports> ) RATEMON_ORDER_SIZES;
BENCHMARK( findNames<Long> ) RATEMON_ORDER_SIZES;
BENCHMARK( findNumbers ) RATEMON_ORDER_SIZES;

#define RATEMON_RUNS RATEMON_ORDER_SIZES->Iterations( 5 )
BENCHMARK( internNames<Come::inOrder> ) RATEMON_RUNS;
BENCHMARK( internNames<Come::backwards> ) RATEMON_RUNS;
BENCHMARK( internNames<Come::atRandom> ) RATEMON_RUNS;

}  // namespace

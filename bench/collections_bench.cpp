// What a keyed collection costs: memory of an entry, and the time to find one and to walk them all, in the many maps of
// one entry that each interface has and in the few that have an entry for each interface. The same with the standard
// library's hash map, which is neither walked in order of arrival nor may change during a walk.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "kel/HashMap.h"

namespace {

constexpr uint32_t entryCount = 65'536;  // in all maps of a case together

struct Stable {
   using Map = Kel::HashMap<void *, uint32_t>;
   static void insert( Map & map, uint32_t key ) { map.insert( key, &map ); }
   static bool has( Map const & map, uint32_t key ) { return map.find( key ); }
   static uint64_t sum( Map const & map ) {
      uint64_t keys = 0;
      for( Map::Cursor i( map ); i; ++i ) keys += i.key();
      return keys;
   }
};

struct Standard {
   using Map = std::unordered_map<uint32_t, void *>;
   static void insert( Map & map, uint32_t key ) { map.emplace( key, &map ); }
   static bool has( Map const & map, uint32_t key ) { return map.contains( key ); }
   static uint64_t sum( Map const & map ) {
      uint64_t keys = 0;
      for( auto const & [key, value] : map ) keys += key;
      return keys;
   }
};

// `size` entries in each of as many maps as it takes.
template<class Kind>
struct Maps {
   explicit Maps( int64_t size ) {
      auto const before = mallinfo2();
      all = std::vector<typename Kind::Map>( entryCount / static_cast<uint32_t>( size ) );
      for( uint32_t key = 0; key < entryCount; ++key ) Kind::insert( all[key % all.size()], key );
      auto const after = mallinfo2();
      // Large blocks are mappings of their own.
      auto const bytes = after.uordblks - before.uordblks + after.hblkhd - before.hblkhd;
      bytesPerEntry = static_cast<double>( bytes ) / entryCount;
   }
   std::vector<typename Kind::Map> all;
   double bytesPerEntry = 0;
};

// In random order, as the caches meet them.
template<class Kind>
void find( benchmark::State & state ) {
   Maps<Kind> const maps( state.range( 0 ) );
   std::mt19937 random( 1 );
   std::vector<uint32_t> keys( 4096 );
   for( uint32_t & key : keys ) key = static_cast<uint32_t>( random() % entryCount );
   std::size_t next = 0;
   for( auto _ : state ) {
      uint32_t const key = keys[next++ % keys.size()];
      if( !Kind::has( maps.all[key % maps.all.size()], key ) ) return state.SkipWithError( "an entry is not found" );
   }
   state.counters["bytes/entry"] = maps.bytesPerEntry;
}

template<class Kind>
void walk( benchmark::State & state ) {
   Maps<Kind> const maps( state.range( 0 ) );
   for( auto _ : state ) {
      uint64_t keys = 0;
      for( auto const & map : maps.all ) keys += Kind::sum( map );
      if( keys != uint64_t{ entryCount } * ( entryCount - 1 ) / 2 ) return state.SkipWithError( "an entry is missing" );
   }
   state.SetItemsProcessed( static_cast<int64_t>( state.iterations() ) * entryCount );
}

void mapSizes( benchmark::internal::Benchmark * bench ) { bench->Arg( 1 )->Arg( 8 )->Arg( 4096 ); }

BENCHMARK_TEMPLATE( find, Stable )->Apply( mapSizes );
BENCHMARK_TEMPLATE( find, Standard )->Apply( mapSizes );
BENCHMARK_TEMPLATE( walk, Stable )->Apply( mapSizes );
BENCHMARK_TEMPLATE( walk, Standard )->Apply( mapSizes );

}  // namespace

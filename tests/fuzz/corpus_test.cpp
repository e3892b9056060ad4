// The fuzzers' inputs, one by one, as ordinary tests: those named bad-* are refused, at least in part, the others are
// taken. The targets themselves see to it that what must hold does.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "Targets.h"

namespace Fuzz {

namespace fs = std::filesystem;

namespace {

std::map<std::string, bool ( * )( Bytes )> const targets = {
   { "config", config }, { "counters", counters }, { "netlink", netlink }, { "store", store }, { "trace", trace },
};

std::vector<fs::path> inputs() {
   std::vector<fs::path> found;
   for( auto const & [name, target] : targets ) {
      for( auto const & entry :
           fs::directory_iterator( fs::path( RATEMON_SOURCE_DIR ) / "tests/fuzz/corpus" / name ) ) {
         found.push_back( entry.path() );
      }
   }
   std::sort( found.begin(), found.end() );
   return found;
}

}  // namespace

class Corpus : public ::testing::TestWithParam<fs::path> {};

TEST_P( Corpus, isTakenAsItsNameSays ) {
   std::ifstream in( GetParam(), std::ios::binary );
   std::string const text{ std::istreambuf_iterator<char>( in ), {} };
   auto const & target = targets.at( GetParam().parent_path().filename() );
   bool const taken = target( { reinterpret_cast<unsigned char const *>( text.data() ), text.size() } );
   EXPECT_EQ( taken, !GetParam().stem().string().starts_with( "bad-" ) );
}

INSTANTIATE_TEST_SUITE_P( Fuzz, Corpus, ::testing::ValuesIn( inputs() ), []( auto const & tested ) {
   std::string name = tested.param.parent_path().filename().string() + "_" + tested.param.stem().string();
   std::replace( name.begin(), name.end(), '-', '_' );
   return name;
} );

}  // namespace Fuzz

// The promise: "ready" means quiet now. Random lives of the service on the virtual clock, and a judge who knows what
// truly flowed. See Oracle.h for what is promised and Generator.h for the lives.
//
// RATEMON_LIVES_SEED chooses the first seed and RATEMON_LIVES how many lives there are. A life that fails is written as
// a scenario, as short as it could be made, to the directory in which the test runs.
#include <gtest/gtest.h>

#include <unistd.h>
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include "Generator.h"

namespace Lives {

namespace fs = std::filesystem;

namespace {

// With optimised libraries a life takes some milliseconds; under sanitizers, or with a debugger's code, twenty times as
// long.
#ifdef RATEMON_OPTIMISED
constexpr unsigned livesWanted = 10'000;
#else
constexpr unsigned livesWanted = 500;
#endif
constexpr unsigned slices = 10;

uint64_t environment( char const * name, uint64_t otherwise ) {
   char const * const text = std::getenv( name );
   return text ? std::strtoull( text, nullptr, 10 ) : otherwise;
}

unsigned lives() { return static_cast<unsigned>( environment( "RATEMON_LIVES", livesWanted ) ) / slices; }
uint64_t firstSeed( unsigned slice ) { return environment( "RATEMON_LIVES_SEED", 1 ) + slice * lives(); }

// An assertion of the product ends the process: whose life it was must be known all the same.
uint64_t volatile seedNow = 0;

void tellSeed( int ) {
   char text[] = "the life with seed 00000000000000000000 ended the process\n";
   char * digit = text + 39;
   for( uint64_t seed = seedNow; seed != 0; seed /= 10 ) *--digit = static_cast<char>( '0' + seed % 10 );
   static_cast<void>( !::write( STDERR_FILENO, text, sizeof text - 1 ) );
   std::signal( SIGABRT, SIG_DFL );
}

std::string kept( uint64_t seed, Lines const & lines, Fault const & fault ) {
   auto const file = fs::absolute( "life-" + std::to_string( seed ) + ".jsonl" );
   Lines const shorter = shrunk( lines, fault.kind, 20 );
   auto const again = live( shorter );
   Lives::write( file, shorter, again.fault ? again.fault->kind + ": " + again.fault->text : fault.text );
   return file.string();
}

// What must have happened in a thousand lives at least so many times, or they are not what they were meant to be.
constexpr char const * perThousand =
   "1000 ready said; 2000 not ready said; 800 became ready; 400 in maintenance; 5 in maintenance by \"continue\"; "
   "10 rolled back; 30 left before it had entered; 150 waits beyond its deadline (line); 100 enter refused; "
   "100 entered without some; 100 stop; 100 crash; 4 missing; 70 unwatched; 500 waiting; 120 loud; 100 quiet; "
   "1000 quiet, settled; 50 down; 300 down, settled; 60 gone; 300 gone, settled; 600 held, settled; "
   "400 left out, settled; 800 due: quiet; 250 due: down; 250 due: gone; 500 due: held; 80 disturbed; "
   "200 link held down; 40 held link raised; 150 reading exactly at the threshold; 200 run broken: link; "
   "150 run broken: monitor; 70 run broken: loud; 50 run broken: start; 40 run broken: profile; "
   "40 run broken: unread; 25 run broken: restart; 20 run broken: members; 4 run broken: no value; "
   "1 run broken: row";

}  // namespace

class RandomLives : public ::testing::TestWithParam<unsigned> {
 protected:
   void SetUp() override { std::signal( SIGABRT, tellSeed ); }
   void TearDown() override { std::signal( SIGABRT, SIG_DFL ); }
};

TEST_P( RandomLives, readyMeansQuietNow ) {
   Tally tally;
   unsigned failed = 0;
   for( uint64_t seed = firstSeed( GetParam() ); seed < firstSeed( GetParam() ) + lives() && failed < 3; ++seed ) {
      seedNow = seed;
      Lines const lines = randomLife( seed );
      if( std::getenv( "RATEMON_LIVES_SHOW" ) ) {
         for( std::string const & line : lines ) std::cout << line << std::endl;
      }
      Outcome const outcome = live( lines );
      for( auto const & [what, often] : outcome.tally ) tally[what] += often;
      if( !outcome.fault ) continue;
      ++failed;
      ADD_FAILURE() << "seed " << seed << ", line " << outcome.line << ": " << outcome.fault->kind << ": "
                    << outcome.fault->text << "\nshortened: " << kept( seed, lines, *outcome.fault );
   }
   std::cout << lives() << " lives from seed " << firstSeed( GetParam() ) << "\n";
   for( auto const & [what, often] : tally ) std::cout << "   " << often << " " << what << "\n";
   if( failed > 0 ) return;
   std::istringstream asked( perThousand );
   unsigned wanted = 0;
   for( std::string what; asked >> wanted >> std::ws && std::getline( asked, what, ';' ); ) {
      // In few lives everything has its ups and downs, and what is rare may not happen at all.
      bool const few = lives() < 500;
      unsigned const least = lives() * wanted / ( few ? 2000 : 1000 );
      if( few && least < 10 ) continue;
      EXPECT_GE( tally[what], least ) << what;
   }
}

// Lives that showed a fault once.
class KeptLives : public ::testing::TestWithParam<fs::path> {};

TEST_P( KeptLives, readyMeansQuietNow ) {
   Outcome const outcome = live( Lives::read( GetParam() ) );
   EXPECT_FALSE( outcome.fault ) << "line " << outcome.line << ": " << outcome.fault->kind << ": "
                                 << outcome.fault->text;
}

namespace {

std::vector<fs::path> keptLives() {
   std::vector<fs::path> files;
   for( auto const & entry : fs::directory_iterator( fs::path( RATEMON_SOURCE_DIR ) / "tests/lives/kept" ) ) {
      files.push_back( entry.path() );
   }
   std::sort( files.begin(), files.end() );
   return files;
}

std::string nameOf( fs::path const & file ) {
   std::string name = file.stem();
   std::replace( name.begin(), name.end(), '-', '_' );
   return name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P( Kept, KeptLives, ::testing::ValuesIn( keptLives() ),
                          []( auto const & tested ) { return nameOf( tested.param ); } );
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST( KeptLives );

// The judge himself. One who is told of twice the traffic, or of half of it, must call a sound service a liar.
class MisledJudge : public ::testing::TestWithParam<double> {
 protected:
   ~MisledJudge() override { Oracle::exaggeration = 1; }
};

TEST_P( MisledJudge, objects ) {
   Oracle::exaggeration = GetParam();
   unsigned objections = 0;
   for( uint64_t seed = 1; seed <= 40; ++seed ) objections += live( randomLife( seed ) ).fault ? 1 : 0;
   EXPECT_GE( objections, 10u );
}
INSTANTIATE_TEST_SUITE_P( Traffic, MisledJudge, ::testing::Values( 2.0, 0.5 ) );

INSTANTIATE_TEST_SUITE_P( Slices, RandomLives, ::testing::Range( 0u, slices ) );

}  // namespace Lives

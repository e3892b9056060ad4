#include "Memory.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace Host {

namespace {

struct Mapping {
   unsigned long from = 0;
   unsigned long to = 0;
   bool readOnlyFile = false;
   bool hasOwnPages = false;  // that no file has, in memory
};

// By the first line of a mapping in smaps; none for any other line (proc_pid_smaps(5)).
std::optional<Mapping> mappingOf( std::string const & line ) {
   Mapping mapping;
   std::array<char, 5> rights{};
   if( std::sscanf( line.c_str(), "%lx-%lx %4s", &mapping.from, &mapping.to, rights.data() ) != 3 ) return std::nullopt;
   mapping.readOnlyFile = rights[0] == 'r' && rights[1] == '-' && rights[3] == 'p' && line.find( " /" ) != line.npos;
   return mapping;
}

// Those of files that nobody writes to, and of which nothing was ever written: relocations and breakpoints make pages
// that no file has, and these may be in memory or swapped out.
std::vector<Mapping> filePages() {
   std::vector<Mapping> found;
   std::ifstream smaps( "/proc/self/smaps" );
   Mapping present;
   unsigned long kibibytes = 0;
   for( std::string line; std::getline( smaps, line ); ) {
      if( auto const mapping = mappingOf( line ) ) {
         present = *mapping;
      } else if( std::sscanf( line.c_str(), "Anonymous: %lu kB", &kibibytes ) == 1 ) {
         present.hasOwnPages = kibibytes != 0;
      } else if( std::sscanf( line.c_str(), "Swap: %lu kB", &kibibytes ) == 1 ) {
         // Comes after the other.
         if( present.readOnlyFile && !present.hasOwnPages && kibibytes == 0 ) found.push_back( present );
      }
   }
   return found;
}

// Bytes of files that are in memory (proc_pid_statm(5)); 0 where the system does not say.
std::size_t residentOfFiles() {
   std::ifstream statm( "/proc/self/statm" );
   std::size_t size = 0;
   std::size_t resident = 0;
   std::size_t ofFiles = 0;
   statm >> size >> resident >> ofFiles;
   return ofFiles * static_cast<std::size_t>( sysconf( _SC_PAGESIZE ) );
}

}  // namespace

// Otherwise the bound from which they are mapped grows with every large piece that was let go of (mallopt(3)).
void limitHeap() { mallopt( M_MMAP_THRESHOLD, 128 * 1024 ); }

void returnMemory() {
   malloc_trim( 0 );
   for( Mapping const & mapping : filePages() ) {
      madvise( reinterpret_cast<void *>( mapping.from ), mapping.to - mapping.from, MADV_DONTNEED );
   }
}

void returnMemoryOfBursts() {
   constexpr std::size_t much = 1 << 20;  // bytes
   constexpr int pause = 30;              // times that this is asked
   // What was given back stays free in the heap's own count, and what of the files is in constant use is soon in memory
   // again; so only what has come beyond that is news.
   static std::size_t knownFree = 0;
   static std::size_t knownOfFiles = 0;
   static int since = pause;
   std::size_t const free = mallinfo2().fordblks;
   std::size_t const ofFiles = residentOfFiles();
   if( ++since == 1 ) knownOfFiles = ofFiles;
   // For the files alone not often: somebody may ask for something great every minute, and has them read in each time.
   if( free > knownFree + much || ( ofFiles > knownOfFiles + much && since > pause ) ) {
      returnMemory();
      since = 0;
   }
   knownFree = free;
}

}  // namespace Host

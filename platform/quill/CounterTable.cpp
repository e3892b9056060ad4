#include "quill/CounterTable.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>

#include "kel/Assert.h"

namespace KelQuill {

struct CounterTable::Header {
   char magic[8];
   uint32_t rowSize;
   uint32_t capacity;
   std::atomic<uint64_t> rows;
   std::atomic<uint32_t> generation;
   std::byte reserved[36];
};

namespace {

using Row = CounterTable::Row;

constexpr char magic[8] = { 'K', 'Q', 'C', 'T', 'R', 'S', '2', '\0' };
constexpr std::size_t versionAt = 6;
constexpr std::size_t headerBytes = 64;
// 64 KiB of rows for each system call.
constexpr uint32_t rowsPerAllocation = 512;

// A writer needs well below a microsecond for a row, unless it loses the processor in the middle. Sleeping adds up to
// one second, after which a writer that has not come back counts as dead.
constexpr int spinsMax = 1000;
constexpr int sleepsMax = 2000;
constexpr std::chrono::microseconds sleepTime{ 500 };

// The layout in the header is a promise to programs that know nothing of this struct.
static_assert( offsetof( Row, inUse ) == 8 && offsetof( Row, inOctets ) == 16 && offsetof( Row, outOctets ) == 24 );
static_assert( offsetof( Row, readTime ) == 32 && offsetof( Row, restarts ) == 40 );
static_assert( offsetof( Row, name ) == 48 && sizeof( Row ) == 128 );
// A lock inside an atomic would belong to one process and mean nothing to another.
static_assert( std::atomic<uint64_t>::is_always_lock_free && std::atomic<double>::is_always_lock_free );

[[noreturn]] void failed( int error, std::string const & doing ) {
   throw TableError( "counter table: " + doing + ": " + std::generic_category().message( error ) );
}
[[noreturn]] void refused( std::string const & path, char const * why ) {
   throw TableError( path + " is no counter table: " + why );
}

void checkMagic( std::string const & path, char const ( &found )[8] ) {
   if( std::memcmp( found, magic, sizeof magic ) == 0 ) return;
   bool const other = std::memcmp( found, magic, versionAt ) == 0 && found[versionAt] >= '0' &&
                      found[versionAt] <= '9' && found[versionAt + 1] == '\0';
   if( !other ) refused( path, "it does not begin as one" );
   throw TableError( path + " is a counter table of version " + found[versionAt] + ", and version " + magic[versionAt] +
                     " is wanted" );
}

std::size_t bytesFor( uint32_t capacity ) { return headerBytes + std::size_t{ capacity } * sizeof( Row ); }

uint64_t word( Brim::MaybeU63 value ) { return value.hasValue() ? value.value() : Row::noValueBit; }

// What `copy` finds in the row while nobody writes it; none when that moment does not come.
template<class Copy>
auto consistent( Row const & row, Copy const & copy ) -> std::optional<decltype( copy() )> {
   for( int attempt = 0; attempt < spinsMax + sleepsMax; ++attempt ) {
      uint64_t const before = row.sequence.load( std::memory_order_acquire );
      auto const found = copy();
      std::atomic_thread_fence( std::memory_order_acquire );
      if( before % 2 == 0 && row.sequence.load( std::memory_order_relaxed ) == before ) return found;
      if( attempt >= spinsMax ) std::this_thread::sleep_for( sleepTime );
   }
   return std::nullopt;
}

using NameWords = std::array<uint64_t, std::size( decltype( Row::name ){} )>;

NameWords nameOf( Row const & row ) {
   NameWords words;
   std::transform( std::begin( row.name ), std::end( row.name ), words.begin(),
                   []( auto const & w ) { return w.load( std::memory_order_relaxed ); } );
   return words;
}

void nameIs( Row & row, std::string_view name ) {
   // Zeros behind the name end it: rowIs has seen to it that one fits.
   NameWords words{};
   std::memcpy( words.data(), name.data(), name.size() );
   for( std::size_t i = 0; i < words.size(); ++i ) row.name[i].store( words[i], std::memory_order_relaxed );
}

}  // namespace

// The open file of a table, for as long as it is needed.
struct CounterTable::File {
   int const fd;
   std::string const path;  // as messages name it

   File( int descriptor, std::string name ) : fd( descriptor ), path( std::move( name ) ) {
      if( fd < 0 ) failed( errno, "opening " + path );
   }
   File( File const & ) = delete;
   File & operator=( File const & ) = delete;
   ~File() { ::close( fd ); }
};

CounterTable::CounterTable( std::unique_ptr<File const> file, std::byte * memory, std::size_t bytes )
   : file_( std::move( file ) ),
     memory_( memory ),
     bytes_( bytes ),
     header_( reinterpret_cast<Header *>( memory ) ),
     rowsBegin_( reinterpret_cast<Row *>( memory + headerBytes ) ) {
   static_assert( offsetof( Header, rows ) == 16 && offsetof( Header, generation ) == 24 );
   static_assert( sizeof( Header ) == headerBytes );
}

CounterTable::~CounterTable() { ::munmap( memory_, bytes_ ); }

std::unique_ptr<CounterTable> CounterTable::mapped( std::unique_ptr<File const> file, std::size_t bytes,
                                                    bool writable ) {
   int const protection = writable ? PROT_READ | PROT_WRITE : PROT_READ;
   // Nothing reserved: at full capacity this is 128 MiB, of which few pages are ever touched.
   void * const memory = ::mmap( nullptr, bytes, protection, MAP_SHARED | MAP_NORESERVE, file->fd, 0 );
   if( memory == MAP_FAILED ) failed( errno, "mapping " + file->path );
   return std::unique_ptr<CounterTable>(
      new CounterTable( std::move( file ), static_cast<std::byte *>( memory ), bytes ) );
}

std::unique_ptr<CounterTable> CounterTable::created( std::unique_ptr<File const> file, uint32_t capacity ) {
   KEL_ASSERT( capacity <= capacityMax );
   if( ::ftruncate( file->fd, static_cast<off_t>( bytesFor( capacity ) ) ) != 0 )
      failed( errno, "sizing " + file->path );
   // Sizing alone takes no room: on a full file system the first store into the header would be a SIGBUS.
   if( int const error = ::posix_fallocate( file->fd, 0, headerBytes ) ) failed( error, "allocating " + file->path );
   auto table = mapped( std::move( file ), bytesFor( capacity ), true );
   table->header_->rowSize = sizeof( Row );
   table->header_->capacity = capacity;
   table->capacity_ = capacity;
   std::memcpy( table->header_->magic, magic, sizeof magic );
   return table;
}

std::unique_ptr<CounterTable> CounterTable::create( std::string const & path, uint32_t capacity ) {
   if( path.empty() ) {
      // A file in memory rather than an anonymous mapping, so that the rest is the same for both.
      std::string const name = "ratemon-counters";
      int const fd = ::memfd_create( name.c_str(), MFD_CLOEXEC );
      return created( std::make_unique<File const>( fd, name ), capacity );
   }
   // Made beside its place and then moved there: whoever opens the path finds a whole table, the old one or the new.
   std::string const made = path + ".new";
   // A start that died in between has left its file. O_EXCL then refuses whatever appears there in the meantime, such
   // as somebody's link to another file.
   ::unlink( made.c_str() );
   int const fd = ::open( made.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644 );
   auto table = created( std::make_unique<File const>( fd, made ), capacity );
   if( std::rename( made.c_str(), path.c_str() ) != 0 ) failed( errno, "moving " + made + " to its place" );
   return table;
}

std::unique_ptr<CounterTable const> CounterTable::openReadOnly( std::string const & path ) {
   // Not blocking: opening a pipe would otherwise wait for its writer, perhaps for ever.
   auto file = std::make_unique<File const>( ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ), path );
   struct stat status {};
   if( ::fstat( file->fd, &status ) != 0 ) failed( errno, "asking for the size of " + path );
   auto const bytes = static_cast<std::size_t>( status.st_size );
   if( !S_ISREG( status.st_mode ) ) refused( path, "it is no file" );
   if( bytes < headerBytes ) refused( path, "it is too short" );
   auto table = mapped( std::move( file ), bytes, false );
   Header const & header = *table->header_;
   checkMagic( path, header.magic );
   if( header.rowSize != sizeof( Row ) ) refused( path, "its rows have another size" );
   // Our own copy is what bounds every later access: the header stays in the hands of the other process.
   table->capacity_ = header.capacity;
   bool const whole = table->capacity_ <= capacityMax && bytes >= bytesFor( table->capacity_ );
   if( !whole ) refused( path, "it is shorter than its header says" );
   if( header.rows > table->capacity_ ) refused( path, "it uses more rows than it has" );
   return table;
}

uint32_t CounterTable::rows() const {
   // Held to what was checked when the table was opened: another process may have written anything since.
   return static_cast<uint32_t>( std::min<uint64_t>( header_->rows.load( std::memory_order_acquire ), capacity_ ) );
}
uint32_t CounterTable::generation() const { return header_->generation.load( std::memory_order_acquire ); }
// One writer, so nothing is lost between load and store.
void CounterTable::generationInc() { header_->generation.store( generation() + 1, std::memory_order_release ); }

std::optional<CounterTable::LastRead> CounterTable::read( Row const & row ) {
   return consistent( row, [&row] { return lastReadOf( row ); } );
}

std::optional<CounterTable::Entry> CounterTable::entry( uint32_t index ) const {
   struct Copy {
      uint64_t inUse;
      NameWords name;
      LastRead counters;
   };
   Row const & from = row( index );
   auto const copy = consistent( from, [&from] {
      return Copy{ from.inUse.load( std::memory_order_relaxed ), nameOf( from ), lastReadOf( from ) };
   } );
   if( !copy || copy->inUse == 0 ) return std::nullopt;
   // Another process's row need not end its name with a zero.
   auto const * const chars = reinterpret_cast<char const *>( copy->name.data() );
   return Entry{ std::string( chars, ::strnlen( chars, nameMax ) ), copy->counters };
}

// Memory for a row that was never used. A full file system must show here: later it would kill the process at a store.
// Rows are taken into use in order, so each stretch is asked for at its first row, and once more where that failed.
void CounterTable::memoryIs( uint32_t index ) {
   if( index % rowsPerAllocation != 0 ) return;
   std::size_t const bytes = std::min<std::size_t>( rowsPerAllocation, capacity_ - index ) * sizeof( Row );
   if( int const error =
          ::posix_fallocate( file_->fd, static_cast<off_t>( bytesFor( index ) ), static_cast<off_t>( bytes ) ) ) {
      failed( error, "allocating rows of " + file_->path );
   }
}

void CounterTable::rowIs( uint32_t index, std::string_view name, uint64_t restarts ) {
   KEL_ASSERT( index <= rows() );
   if( name.size() > nameMax ) throw TableError( "counter table: no row holds a name so long: " + std::string( name ) );
   if( index == capacity_ ) throw TableError( "counter table: no row is left for " + std::string( name ) );
   // All that can fail stands before the first write: a refusal leaves the table as it was.
   bool const isNew = index == rows();
   if( isNew ) memoryIs( index );
   Row & row = rowsBegin_[index];
   KEL_ASSERT( row.inUse == 0 );
   {
      Row::Writing const writing( row );
      nameIs( row, name );
      row.readIs( 0, 0, 0 );
      row.restarts.store( restarts, std::memory_order_relaxed );
      row.inUse.store( 1, std::memory_order_relaxed );
   }
   // Row, then count, then generation: who sees one of them finds what it speaks of.
   if( isNew ) header_->rows.store( index + 1, std::memory_order_release );
   generationInc();
}

void CounterTable::rowDel( uint32_t index ) {
   KEL_ASSERT( index < rows() );
   {
      Row::Writing const writing( rowsBegin_[index] );
      // Name and counters stay, so that a reader which still holds the row gets its last counters and no zeros.
      rowsBegin_[index].inUse.store( 0, std::memory_order_relaxed );
   }
   generationInc();
}

void CounterTable::readIs( uint32_t index, Read const & read, double time ) {
   Row & row = rowsBegin_[index];
   // The first read of a row that came back compares with nothing: the row was marked when it came.
   bool const marks = read.restarted && row.readTime.load( std::memory_order_relaxed ) != 0;
   uint64_t const restarts = row.restarts.load( std::memory_order_relaxed );
   Row::Writing const writing( row );
   row.readIs( word( read.inOctets ), word( read.outOctets ), time );
   if( marks ) row.restarts.store( restarts + 1, std::memory_order_relaxed );
}

}  // namespace KelQuill

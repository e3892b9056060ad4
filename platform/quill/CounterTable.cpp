#include "quill/CounterTable.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "kel/Assert.h"

namespace KelQuill {

struct CounterTable::Header {
   char magic[8];
   uint32_t rowSize;
   uint32_t capacity;
   std::atomic<uint64_t> rows;
};

namespace {

constexpr char magic[8] = { 'K', 'Q', 'C', 'T', 'R', 'S', '1', '\0' };
constexpr std::size_t headerBytes = 64;
constexpr uint64_t noValueBit = uint64_t{ 1 } << 63;

static_assert( sizeof( CounterTable::Row ) == 64 );
static_assert( std::atomic<uint64_t>::is_always_lock_free && std::atomic<double>::is_always_lock_free );

[[noreturn]] void fail( std::string const & what, std::string const & path ) {
   throw TableError( what + " " + path + ": " + std::generic_category().message( errno ) );
}

std::size_t bytesFor( uint32_t capacity ) {
   return headerBytes + std::size_t{ capacity } * sizeof( CounterTable::Row );
}

uint64_t word( Brim::MaybeU63 value ) { return value.hasValue() ? value.value() : noValueBit; }
Brim::MaybeU63 value( uint64_t w ) { return ( w & noValueBit ) != 0 ? Brim::MaybeU63::none() : Brim::MaybeU63( w ); }

// A descriptor that closes itself.
struct File {
   int fd;
   ~File() {
      if( fd >= 0 ) ::close( fd );
   }
};

}  // namespace

CounterTable::CounterTable( std::byte * memory, std::size_t bytes )
   : memory_( memory ),
     bytes_( bytes ),
     header_( reinterpret_cast<Header *>( memory ) ),
     rowsBegin_( reinterpret_cast<Row *>( memory + headerBytes ) ) {}

CounterTable::~CounterTable() { ::munmap( memory_, bytes_ ); }

std::unique_ptr<CounterTable> CounterTable::mapped( int fd, std::size_t bytes, bool writable,
                                                    std::string const & path ) {
   int const protection = writable ? PROT_READ | PROT_WRITE : PROT_READ;
   void * const memory = ::mmap( nullptr, bytes, protection, MAP_SHARED | MAP_NORESERVE, fd, 0 );
   if( memory == MAP_FAILED ) fail( "mapping the counter table", path );
   return std::unique_ptr<CounterTable>( new CounterTable( static_cast<std::byte *>( memory ), bytes ) );
}

std::unique_ptr<CounterTable> CounterTable::create( std::string const & path, uint32_t capacity ) {
   KEL_ASSERT( capacity <= capacityMax );
   if( !path.empty() ) ::unlink( path.c_str() );  // readers of the old table keep it until they let go of it
   File const file{ path.empty() ? ::memfd_create( "ratemon-counters", MFD_CLOEXEC )
                                 : ::open( path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644 ) };
   if( file.fd < 0 ) fail( "making the counter table", path );
   if( ::ftruncate( file.fd, static_cast<off_t>( bytesFor( capacity ) ) ) != 0 )
      fail( "sizing the counter table", path );
   auto table = mapped( file.fd, bytesFor( capacity ), true, path );
   table->header_->rowSize = sizeof( Row );
   table->header_->capacity = capacity;
   std::atomic_thread_fence( std::memory_order_release );
   std::memcpy( table->header_->magic, magic, sizeof magic );
   return table;
}

std::unique_ptr<CounterTable const> CounterTable::openReadOnly( std::string const & path ) {
   File const file{ ::open( path.c_str(), O_RDONLY | O_CLOEXEC ) };
   struct stat info {};
   if( file.fd < 0 || ::fstat( file.fd, &info ) != 0 ) fail( "opening the counter table", path );
   auto const bytes = static_cast<std::size_t>( info.st_size );
   if( bytes < headerBytes ) throw TableError( path + " is no counter table: it is too short" );
   auto table = mapped( file.fd, bytes, false, path );
   Header const & header = *table->header_;
   bool const known = std::memcmp( header.magic, magic, sizeof magic ) == 0 && header.rowSize == sizeof( Row );
   if( !known ) throw TableError( path + " is no counter table: its header is not one" );
   bool const whole =
      header.capacity <= capacityMax && bytes >= bytesFor( header.capacity ) && header.rows <= header.capacity;
   if( !whole ) throw TableError( path + " is no counter table: it is shorter than its header says" );
   return table;
}

uint32_t CounterTable::rows() const { return static_cast<uint32_t>( header_->rows.load( std::memory_order_acquire ) ); }
uint32_t CounterTable::capacity() const { return header_->capacity; }

CounterTable::Counters CounterTable::read( Row const & row ) {
   while( true ) {
      uint64_t const before = row.sequence.load( std::memory_order_acquire );
      uint64_t const in = row.inOctets.load( std::memory_order_relaxed );
      uint64_t const out = row.outOctets.load( std::memory_order_relaxed );
      double const time = row.updateTime.load( std::memory_order_relaxed );
      std::atomic_thread_fence( std::memory_order_acquire );
      if( ( before & 1 ) == 0 && row.sequence.load( std::memory_order_relaxed ) == before ) {
         return { value( in ), value( out ), time };
      }
   }
}

uint32_t CounterTable::rowIs( uint32_t index, std::string_view name ) {
   KEL_ASSERT( name.size() <= nameMax );
   KEL_ASSERT( index < header_->capacity );
   Row & row = rowsBegin_[index];
   std::memset( row.name, 0, sizeof row.name );
   std::memcpy( row.name, name.data(), name.size() );
   countersIs( index, {} );
   row.inUse.store( 1, std::memory_order_release );
   if( index >= rows() ) header_->rows.store( index + 1, std::memory_order_release );
   return index;
}

void CounterTable::rowDel( uint32_t index ) { rowsBegin_[index].inUse.store( 0, std::memory_order_release ); }

void CounterTable::countersIs( uint32_t index, Counters const & counters ) {
   Row & row = rowsBegin_[index];
   uint64_t const sequence = row.sequence.load( std::memory_order_relaxed );
   row.sequence.store( sequence + 1, std::memory_order_relaxed );
   std::atomic_thread_fence( std::memory_order_release );
   row.inOctets.store( word( counters.inOctets ), std::memory_order_relaxed );
   row.outOctets.store( word( counters.outOctets ), std::memory_order_relaxed );
   row.updateTime.store( counters.updateTime, std::memory_order_relaxed );
   row.sequence.store( sequence + 2, std::memory_order_release );
}

}  // namespace KelQuill

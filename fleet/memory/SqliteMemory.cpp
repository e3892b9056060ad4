#include "memory/SqliteMemory.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace Fleet {

namespace {

// "RMfl", so that `file` and we know it from other databases.
constexpr int applicationId = 0x524d666c;
constexpr int layout = 1;
constexpr int patienceMilliseconds = 2000;

// A release that knows of no ledger leaves it alone, so the layout is the same one. An index of what few records have
// leaves out the others.
constexpr char const * ledgerSql =
   "CREATE TABLE IF NOT EXISTS record( number INTEGER PRIMARY KEY AUTOINCREMENT, time REAL NOT NULL, box TEXT NOT NULL,"
   "   unit TEXT NOT NULL, plan TEXT NOT NULL, text TEXT NOT NULL ) STRICT;"
   "CREATE INDEX IF NOT EXISTS record_time ON record( time );"
   "CREATE INDEX IF NOT EXISTS record_box ON record( box ) WHERE box <> '';"
   "CREATE INDEX IF NOT EXISTS record_plan ON record( plan ) WHERE plan <> ''";

// With the mode that it is to have before anything is in it: SQLite gives its log the same.
int opened( std::string const & path ) {
   int const fd = ::open( path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR );
   if( fd < 0 ) throw MemoryFault( path + " cannot be opened: " + std::strerror( errno ) );
   return fd;
}

}  // namespace

SqliteMemory::Claim::Claim( std::string const & path ) : fd_( opened( path ) ) {
   if( ::flock( fd_, LOCK_EX | LOCK_NB ) == 0 ) return;
   ::close( fd_ );
   throw MemoryFault( path + " is in use by another process" );
}

SqliteMemory::Claim::~Claim() { ::close( fd_ ); }

void SqliteMemory::Close::operator()( sqlite3 * db ) const { sqlite3_close_v2( db ); }

class SqliteMemory::Statement {
 public:
   Statement( SqliteMemory const & memory, char const * sql ) : memory_( memory ) {
      if( sqlite3_prepare_v2( memory.db_.get(), sql, -1, &statement_, nullptr ) != SQLITE_OK ) memory.fail( "be read" );
   }
   Statement( Statement const & ) = delete;
   Statement & operator=( Statement const & ) = delete;
   ~Statement() { sqlite3_finalize( statement_ ); }

   // Counted from 1; the text must stay until step().
   void bind( int place, int64_t number ) { sqlite3_bind_int64( statement_, place, number ); }
   void bind( int place, double number ) { sqlite3_bind_double( statement_, place, number ); }
   void bind( int place, std::string const & text ) {
      sqlite3_bind_text64( statement_, place, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8 );
   }
   // True while there is a row.
   [[nodiscard]] bool step( char const * doing ) {
      int const result = sqlite3_step( statement_ );
      if( result != SQLITE_ROW && result != SQLITE_DONE ) memory_.fail( doing );
      return result == SQLITE_ROW;
   }
   void again() { sqlite3_reset( statement_ ); }
   [[nodiscard]] std::string text( int column ) const {
      auto const * const bytes = reinterpret_cast<char const *>( sqlite3_column_text( statement_, column ) );
      return { bytes ? bytes : "", static_cast<std::size_t>( sqlite3_column_bytes( statement_, column ) ) };
   }
   [[nodiscard]] int number( int column ) const { return sqlite3_column_int( statement_, column ); }
   [[nodiscard]] uint64_t whole( int column ) const {
      return static_cast<uint64_t>( sqlite3_column_int64( statement_, column ) );
   }
   [[nodiscard]] double real( int column ) const { return sqlite3_column_double( statement_, column ); }

 private:
   SqliteMemory const & memory_;
   sqlite3_stmt * statement_ = nullptr;
};

void SqliteMemory::fail( std::string const & what ) const {
   std::string const text = path_ + " cannot " + what + ": " + sqlite3_errmsg( db_.get() );
   int const reason = sqlite3_errcode( db_.get() );
   if( reason == SQLITE_NOTADB || reason == SQLITE_CORRUPT ) throw MemoryDamaged( text );
   throw MemoryFault( text );
}

void SqliteMemory::run( char const * sql ) const {
   if( sqlite3_exec( db_.get(), sql, nullptr, nullptr, nullptr ) != SQLITE_OK ) fail( "be written" );
}

int SqliteMemory::number( char const * pragma ) const {
   Statement statement( *this, pragma );
   return statement.step( "be read" ) ? statement.number( 0 ) : 0;
}

SqliteMemory::SqliteMemory( std::string path ) : path_( std::move( path ) ), claim_( path_ ) {
   sqlite3 * db = nullptr;
   int const result = sqlite3_open_v2( path_.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW, nullptr );
   db_.reset( db );
   if( result != SQLITE_OK ) fail( "be opened" );
   // A backup may be reading.
   sqlite3_busy_timeout( db, patienceMilliseconds );
   check();
   run( "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL" );
   run( ledgerSql );
}

SqliteMemory::~SqliteMemory() = default;

// Is it ours, whole, and of a layout that is known? An empty one becomes so.
void SqliteMemory::check() const {
   int const id = number( "PRAGMA application_id" );
   int const found = number( "PRAGMA user_version" );
   if( id == 0 && found == 0 && number( "SELECT count(*) FROM sqlite_schema" ) == 0 ) {
      std::string const sql =
         "BEGIN; CREATE TABLE row( key TEXT PRIMARY KEY, value TEXT NOT NULL ) STRICT, WITHOUT ROWID;"
         "PRAGMA application_id = " +
         std::to_string( applicationId ) + "; PRAGMA user_version = " + std::to_string( layout ) + "; COMMIT";
      return run( sql.c_str() );
   }
   if( id != applicationId ) throw MemoryDamaged( path_ + " is another program's" );
   if( found > layout ) throw MemoryDamaged( path_ + " was written by a newer release" );
   Statement whole( *this, "PRAGMA quick_check( 1 )" );
   if( !whole.step( "be read" ) || whole.text( 0 ) != "ok" )
      throw MemoryDamaged( path_ + " is damaged: " + whole.text( 0 ) );
}

Memory::Rows SqliteMemory::rows() const {
   Rows rows;
   Statement statement( *this, "SELECT key, value FROM row" );
   while( statement.step( "be read" ) ) rows[statement.text( 0 )] = statement.text( 1 );
   return rows;
}

void SqliteMemory::commit( Changes const & changes, Records const & happened ) {
   run( "BEGIN IMMEDIATE" );
   try {
      write( changes );
      write( happened );
      run( "COMMIT" );
   } catch( MemoryFault const & ) {
      // Where the failure has ended the transaction already there is nothing to roll back.
      sqlite3_exec( db_.get(), "ROLLBACK", nullptr, nullptr, nullptr );
      throw;
   }
}

void SqliteMemory::write( Changes const & changes ) const {
   Statement put( *this, "INSERT INTO row VALUES( ?1, ?2 ) ON CONFLICT( key ) DO UPDATE SET value = ?2" );
   Statement drop( *this, "DELETE FROM row WHERE key = ?1" );
   for( auto const & [key, value] : changes ) {
      Statement & statement = value ? put : drop;
      statement.bind( 1, key );
      if( value ) statement.bind( 2, *value );
      static_cast<void>( statement.step( "be written" ) );
      statement.again();
   }
}

void SqliteMemory::write( Records const & happened ) const {
   if( happened.empty() ) return;
   Statement add( *this, "INSERT INTO record( time, box, unit, plan, text ) VALUES( ?1, ?2, ?3, ?4, ?5 )" );
   for( Record const & record : happened ) {
      add.bind( 1, record.time );
      add.bind( 2, record.box );
      add.bind( 3, record.unit );
      add.bind( 4, record.plan );
      add.bind( 5, record.text );
      static_cast<void>( add.step( "be written" ) );
      add.again();
   }
   dropOld( happened.back().time );
}

void SqliteMemory::dropOld( double now ) const {
   for( auto const & [which, limit] : { std::pair( "time < ?1 ORDER BY time", now - secondsKept ),
                                        { "number <= ( SELECT max( number ) FROM record ) - ?1 ORDER BY number",
                                          static_cast<double>( recordsKept ) } } ) {
      std::string const sql =
         "DELETE FROM record WHERE number IN ( SELECT number FROM record WHERE " + std::string( which ) + " LIMIT ?2 )";
      Statement drop( *this, sql.c_str() );
      drop.bind( 1, limit );
      drop.bind( 2, static_cast<int64_t>( droppedAtOnce ) );
      static_cast<void>( drop.step( "be written" ) );
   }
}

Records SqliteMemory::happened( RecordQuery const & query ) const {
   std::string sql = "SELECT number, time, box, unit, plan, text FROM record WHERE number < ?1";
   // The index of times says where to stop, and the order is that of the numbers.
   if( query.since > 0 )
      sql += " AND number >= ( SELECT number FROM record WHERE time >= ?2 ORDER BY time LIMIT 1 ) AND +time >= ?2";
   // Asked for by name only where they are wanted, so that their index is used.
   if( !query.box.empty() ) sql += " AND box = ?3 AND box <> ''";
   if( !query.unit.empty() ) sql += " AND unit = ?4";
   if( !query.plan.empty() ) sql += " AND plan = ?5 AND plan <> ''";
   Statement statement( *this, ( sql + " ORDER BY number DESC LIMIT ?6" ).c_str() );
   statement.bind( 1, static_cast<int64_t>( query.before ) );
   statement.bind( 2, query.since );
   statement.bind( 3, query.box );
   statement.bind( 4, query.unit );
   statement.bind( 5, query.plan );
   statement.bind( 6, static_cast<int64_t>( query.most ) );
   Records found;
   while( statement.step( "be read" ) ) {
      found.push_back( { .number = statement.whole( 0 ),
                         .time = statement.real( 1 ),
                         .box = statement.text( 2 ),
                         .unit = statement.text( 3 ),
                         .plan = statement.text( 4 ),
                         .text = statement.text( 5 ) } );
   }
   return found;
}

}  // namespace Fleet

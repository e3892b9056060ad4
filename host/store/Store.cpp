#include "store/Store.h"

#include <sqlite3.h>

#include <cerrno>
#include <cmath>
#include <string>
#include <system_error>
#include <utility>

#include "store/StoreFile.h"

namespace Host {

namespace {

using Kind = StoreError::Kind;

// Which kind of trouble an error of SQLite's is, with the system's error behind it.
Kind kindOf( int code, int systemError ) {
   bool const noRoom = systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG;
   switch( code ) {
      case SQLITE_IOERR_READ:
      case SQLITE_IOERR_SHORT_READ:
      case SQLITE_IOERR_CORRUPTFS: return Kind::damaged;
      default: break;
   }
   switch( code & 0xff ) {
      case SQLITE_FULL: return Kind::full;
      case SQLITE_BUSY:
      case SQLITE_LOCKED: return Kind::busy;
      // Our statements are right for tables that are as we have made them.
      case SQLITE_ERROR:
      case SQLITE_SCHEMA:
      case SQLITE_MISMATCH:
      case SQLITE_CORRUPT:
      case SQLITE_NOTADB: return Kind::damaged;
      case SQLITE_IOERR:
      case SQLITE_CANTOPEN: return noRoom ? Kind::full : Kind::unwritable;
      default: return Kind::unwritable;
   }
}

char const * sentence( Kind kind ) {
   switch( kind ) {
      case Kind::damaged: return "is damaged";
      case Kind::foreign: return "is no store of maintd";
      case Kind::newer: return "was written by a newer maintd";
      case Kind::unwritable: return "cannot be written";
      case Kind::full: return "has no room";
      case Kind::busy: return "is in use";
   }
   return "";
}

// The system's error behind SQLite's last. It is kept with the file that had it, which may be the log.
int systemErrorOf( sqlite3 * db ) {
   if( int const error = sqlite3_system_errno( db ) ) return error;
   for( int const which : { SQLITE_FCNTL_JOURNAL_POINTER, SQLITE_FCNTL_FILE_POINTER } ) {
      sqlite3_file * file = nullptr;
      int error = 0;
      if( sqlite3_file_control( db, "main", which, &file ) != SQLITE_OK || !file || !file->pMethods ) continue;
      if( file->pMethods->xFileControl( file, SQLITE_FCNTL_LAST_ERRNO, &error ) == SQLITE_OK && error != 0 )
         return error;
   }
   return 0;
}

[[noreturn]] void fail( sqlite3 * db ) {
   int const code = sqlite3_extended_errcode( db ) & 0xff;
   int const systemError = code == SQLITE_IOERR || code == SQLITE_CANTOPEN ? systemErrorOf( db ) : 0;
   Kind const kind = kindOf( sqlite3_extended_errcode( db ), systemError );
   std::string what = sentence( kind ) + ( ": " + std::string( sqlite3_errmsg( db ) ) );
   if( systemError != 0 ) what += " (" + std::generic_category().message( systemError ) + ")";
   throw StoreError( kind, sqlite3_db_filename( db, "main" ), what );
}

void run( sqlite3 * db, char const * sql ) {
   if( sqlite3_exec( db, sql, nullptr, nullptr, nullptr ) != SQLITE_OK ) fail( db );
}

// Rows are found by their path alone, and those below a path stand together, so that what is damaged elsewhere does not
// keep anybody from reading them.
constexpr char const * tables =
   "CREATE TABLE row( path TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL ) STRICT, WITHOUT ROWID;"
   "CREATE TABLE series( path TEXT PRIMARY KEY NOT NULL, bytes BLOB NOT NULL ) STRICT, WITHOUT ROWID;"
   "CREATE TABLE declared( name TEXT PRIMARY KEY NOT NULL, kind INTEGER NOT NULL, vlanId INTEGER NOT NULL )"
   " STRICT, WITHOUT ROWID;"
   "CREATE TABLE moment( id INTEGER PRIMARY KEY CHECK( id = 1 ), boot TEXT NOT NULL, now REAL NOT NULL,"
   " shift REAL NOT NULL, wallTime REAL NOT NULL ) STRICT;";

// What lies below a path begins with it and a slash. After that, bytewise, comes what begins with it and a zero.
std::string below( std::string_view path ) { return std::string( path ) + "/"; }
std::string behind( std::string_view path ) { return std::string( path ) + "0"; }
static_assert( '/' + 1 == '0' );

}  // namespace

class Store::Statement {
 public:
   Statement( sqlite3 * db, char const * sql ) : db_( db ) {
      sqlite3_stmt * made = nullptr;
      if( sqlite3_prepare_v3( db, sql, -1, SQLITE_PREPARE_PERSISTENT, &made, nullptr ) != SQLITE_OK ) fail( db );
      statement_.reset( made );
   }

   void bind( int place, std::string_view text ) {
      // Not copied: it is there until the statement is reset.
      checked( sqlite3_bind_text( get(), place, text.data() ? text.data() : "", static_cast<int>( text.size() ),
                                  SQLITE_STATIC ) );
   }
   struct Bytes {
      std::string_view all;
   };
   void bind( int place, Bytes bytes ) {
      checked(
         sqlite3_bind_blob( get(), place, bytes.all.data(), static_cast<int>( bytes.all.size() ), SQLITE_STATIC ) );
   }
   void bind( int place, int number ) { checked( sqlite3_bind_int( get(), place, number ) ); }
   void bind( int place, double number ) { checked( sqlite3_bind_double( get(), place, number ) ); }

   // Whether there is a row, or one more.
   bool step() {
      int const code = sqlite3_step( get() );
      if( code != SQLITE_ROW && code != SQLITE_DONE ) fail( db_ );
      return code == SQLITE_ROW;
   }
   // With these for its places, for its effect.
   template<class... Values>
   void run( Values const &... values ) {
      Reset const reset( *this );
      int place = 0;
      ( bind( ++place, values ), ... );
      while( step() ) {
      }
   }

   [[nodiscard]] std::string text( int column ) {
      // In this order, as the manual asks for it.
      auto const * const text = reinterpret_cast<char const *>( sqlite3_column_text( get(), column ) );
      return text ? std::string( text, static_cast<std::size_t>( sqlite3_column_bytes( get(), column ) ) ) : "";
   }
   [[nodiscard]] std::string bytes( int column ) {
      auto const * const bytes = static_cast<char const *>( sqlite3_column_blob( get(), column ) );
      return bytes ? std::string( bytes, static_cast<std::size_t>( sqlite3_column_bytes( get(), column ) ) ) : "";
   }
   [[nodiscard]] int64_t integer( int column ) { return sqlite3_column_int64( get(), column ); }
   [[nodiscard]] double real( int column ) { return sqlite3_column_double( get(), column ); }

 private:
   struct Finalize {
      void operator()( sqlite3_stmt * s ) const { sqlite3_finalize( s ); }
   };
   struct Reset {
      explicit Reset( Statement & s ) : statement( s ) {}
      Reset( Reset const & ) = delete;
      Reset & operator=( Reset const & ) = delete;
      ~Reset() {
         sqlite3_reset( statement.get() );
         sqlite3_clear_bindings( statement.get() );
      }
      Statement & statement;
   };

   [[nodiscard]] sqlite3_stmt * get() const { return statement_.get(); }
   void checked( int code ) {
      if( code != SQLITE_OK ) fail( db_ );
   }

   sqlite3 * const db_;
   std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// Those of every commit.
struct Store::Statements {
   explicit Statements( sqlite3 * db )
      : begin( db, "BEGIN IMMEDIATE" ),
        commit( db, "COMMIT" ),
        del( db, "DELETE FROM row WHERE path = ?1 OR path >= ?2 AND path < ?3" ),
        delSeries( db, "DELETE FROM series WHERE path = ?1 OR path >= ?2 AND path < ?3" ),
        put( db, "INSERT INTO row VALUES( ?1, ?2 ) ON CONFLICT DO UPDATE SET value = excluded.value" ),
        putSeries( db, "INSERT OR REPLACE INTO series VALUES( ?1, ?2 )" ),
        declare( db, "INSERT OR REPLACE INTO declared VALUES( ?1, ?2, ?3 )" ),
        moment( db, "INSERT OR REPLACE INTO moment VALUES( 1, ?1, ?2, ?3, ?4 )" ) {}

   Statement begin;
   Statement commit;
   Statement del;
   Statement delSeries;
   Statement put;
   Statement putSeries;
   Statement declare;
   Statement moment;
};

void Store::Close::operator()( sqlite3 * db ) const { sqlite3_close( db ); }

Store::Store( std::string path, Opening opening ) : path_( std::move( path ) ) {
   if( !StoreFile::isThere( path_ ) ) make();
   open();
   try {
      check();
   } catch( StoreError const & error ) {
      if( opening == Opening::whole || error.kind() != Kind::damaged ) throw;
      damage_ = error.what();
      return;
   }
   // What the log holds goes into the file in due course, from here on, and the log does not stay as big as it ever
   // was.
   sqlite3_db_config( db_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr );
   // Nothing in it is secret, so what goes is not overwritten; and it is read once, so few pages are worth memory
   // (KiB): as many as a list of some thousand monitors has, since the list that takes its place looks at all of them.
   run( db_.get(),
        "PRAGMA synchronous = FULL; PRAGMA journal_size_limit = 16777216; PRAGMA secure_delete = OFF;"
        "PRAGMA cache_size = -512" );
   statements_ = std::make_unique<Statements>( db_.get() );
}

Store::~Store() = default;

// Whole before it bears its name.
void Store::make() const {
   std::string const made = StoreFile::begin( path_ );
   {
      sqlite3 * db = nullptr;
      int const code = sqlite3_open_v2( made.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr );
      std::unique_ptr<sqlite3, Close> const close( db );
      if( code != SQLITE_OK ) fail( db );
      std::string const marks = "PRAGMA application_id = " + std::to_string( StoreFile::applicationId ) +
                                "; PRAGMA user_version = " + std::to_string( StoreFile::layout ) + ";";
      run(
         db,
         ( "PRAGMA locking_mode = EXCLUSIVE; PRAGMA synchronous = FULL; BEGIN;" + marks + tables + "COMMIT" ).c_str() );
      Statement log( db, "PRAGMA journal_mode = WAL" );
      if( !log.step() || log.text( 0 ) != "wal" ) {
         throw StoreError( Kind::unwritable, path_, "cannot be made: its file system has no place for its log" );
      }
   }
   StoreFile::finish( path_ );
}

void Store::open() {
   sqlite3 * db = nullptr;
   int const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
   int const code = sqlite3_open_v2( path_.c_str(), &db, flags, nullptr );
   db_.reset( db );
   if( code != SQLITE_OK ) fail( db );
   // Until all is found to be good, closing changes nothing.
   sqlite3_db_config( db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr );
   // What a file that somebody has forged may hold besides tables is of no effect.
   sqlite3_db_config( db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr );
   sqlite3_db_config( db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr );
   sqlite3_db_config( db, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr );  // one in place of a table may have no end
   sqlite3_db_config( db, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr );
   // Whoever had it open last may not quite be gone.
   sqlite3_busy_timeout( db, 500 );
   // Exclusive from the first read on: nobody can make a commit wait, and there is no shared memory beside the file, a
   // page of which a full file system might fail to give.
   run( db, "PRAGMA locking_mode = EXCLUSIVE; PRAGMA temp_store = MEMORY; SELECT count( * ) FROM sqlite_schema" );
   if( sqlite3_db_readonly( db, "main" ) == 1 ) {
      throw StoreError( Kind::unwritable, path_, "cannot be written: it can only be read" );
   }
}

void Store::check() {
   Statement verdict( db_.get(), "PRAGMA quick_check( 1 )" );
   std::string const found = verdict.step() ? verdict.text( 0 ) : "nothing was found";
   if( found != "ok" ) throw StoreError( Kind::damaged, path_, "is damaged: " + found );
   // That each table is as we have made it.
   Statements const all( db_.get() );
}

std::vector<Store::Row> Store::rows( std::string_view at ) const {
   std::string const last = at.empty() ? "" : behind( at );
   Statement select( db_.get(), at.empty() ? "SELECT path, value FROM row ORDER BY path"
                                           : "SELECT path, value FROM row WHERE path = ?1 OR path >= ?2 AND path < ?3"
                                             " ORDER BY path" );
   std::string const first = below( at );
   if( !at.empty() ) {
      select.bind( 1, at );
      select.bind( 2, first );
      select.bind( 3, last );
   }
   std::vector<Row> found;
   while( select.step() ) found.push_back( { select.text( 0 ), select.text( 1 ) } );
   return found;
}

void Store::eachSeries(
   std::function<void( std::string const & path, std::string const & bytes )> const & take ) const {
   Statement select( db_.get(), "SELECT path, bytes FROM series ORDER BY path" );
   while( select.step() ) take( select.text( 0 ), select.bytes( 1 ) );
}

std::vector<Store::Declared> Store::declared() const {
   Statement select( db_.get(), "SELECT name, kind, vlanId FROM declared ORDER BY name" );
   std::vector<Declared> found;
   while( select.step() ) {
      found.push_back( { select.text( 0 ), static_cast<uint8_t>( select.integer( 1 ) ),
                         static_cast<uint16_t>( select.integer( 2 ) ) } );
   }
   return found;
}

Store::Moment Store::moment() const {
   Statement select( db_.get(), "SELECT boot, now, shift, wallTime FROM moment" );
   if( !select.step() ) return {};
   Moment const found{ select.text( 0 ), select.real( 1 ), select.real( 2 ), select.real( 3 ) };
   if( std::isfinite( found.now ) && std::isfinite( found.shift ) && std::isfinite( found.wallTime ) ) return found;
   throw StoreError( Kind::damaged, path_, "is damaged: it does not say when it was written last" );
}

void Store::commit( Changes const & changes ) {
   transact( [&]( Transaction & to ) {
      for( std::string const & path : changes.deleted ) to.del( path );
      for( Row const & row : changes.written ) to.put( row.path, row.value );
      for( Row const & row : changes.series ) to.putSeries( row.path, row.value );
      for( Declared const & declared : changes.declared ) to.declare( declared );
      if( changes.moment ) to.momentIs( *changes.moment );
   } );
}

void Store::transact( std::function<void( Transaction & )> const & write ) {
   if( !damage_.empty() ) throw StoreError( Kind::damaged, path_, "is damaged, and not written any more" );
   int moved = 0;
   // Otherwise it would be written on, and nobody would find it again.
   bool const asked = sqlite3_file_control( db_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved ) == SQLITE_OK;
   if( asked && moved != 0 ) {
      throw StoreError( Kind::unwritable, path_, "cannot be written: it was moved or deleted while maintd runs" );
   }
   try {
      statements_->begin.run();
      if( !inLayout_ ) run( db_.get(), ( "PRAGMA user_version = " + std::to_string( StoreFile::layout ) ).c_str() );
      Transaction transaction( *statements_ );
      write( transaction );
      statements_->commit.run();
      inLayout_ = true;
   } catch( ... ) {
      // Some errors have ended the transaction already.
      if( sqlite3_get_autocommit( db_.get() ) == 0 ) sqlite3_exec( db_.get(), "ROLLBACK", nullptr, nullptr, nullptr );
      throw;
   }
}

void Store::Transaction::del( std::string const & path ) {
   all_.del.run( path, below( path ), behind( path ) );
   all_.delSeries.run( path, below( path ), behind( path ) );
}

void Store::Transaction::put( std::string const & path, std::string const & value ) { all_.put.run( path, value ); }

void Store::Transaction::putSeries( std::string const & path, std::string_view bytes ) {
   all_.putSeries.run( path, Statement::Bytes{ bytes } );
}

void Store::Transaction::declare( Declared const & declared ) {
   all_.declare.run( declared.name, int{ declared.kind }, int{ declared.vlanId } );
}

void Store::Transaction::momentIs( Moment const & moment ) {
   all_.moment.run( moment.boot, moment.now, moment.shift, moment.wallTime );
}

}  // namespace Host

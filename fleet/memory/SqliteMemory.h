// A memory, and a ledger, in a SQLite file.
//
// Write-ahead log, synchronous commits: what commit() has returned from is there after a loss of power. Claimed for as
// long as it is open (flock(2)), so that an owner, or an agent, has no second beside it; whoever only reads it, as a
// backup does, may. The file is made with mode 0600; one that is another program's, damaged, or of a newer release is
// refused and never changed.
#pragma once

#include <memory>
#include <string>

#include "memory/Ledger.h"

struct sqlite3;

namespace Fleet {

class SqliteMemory final : public Ledger {
 public:
   // Opens or makes the file, not its directory. Throws MemoryFault.
   explicit SqliteMemory( std::string path );
   ~SqliteMemory() override;

   [[nodiscard]] Rows rows() const override;
   using Ledger::commit;
   void commit( Changes const & changes, Records const & happened ) override;
   [[nodiscard]] Records happened( RecordQuery const & query ) const override;

 private:
   struct Close {
      void operator()( sqlite3 * db ) const;
   };
   class Statement;
   // A descriptor of the file. To close one gives up SQLite's own locks (fcntl(2)), so it goes after the database.
   class Claim {
    public:
      explicit Claim( std::string const & path );
      ~Claim();
      Claim( Claim const & ) = delete;
      Claim & operator=( Claim const & ) = delete;

    private:
      int const fd_;
   };

   [[noreturn]] void fail( std::string const & what ) const;
   void run( char const * sql ) const;
   [[nodiscard]] int number( char const * pragma ) const;
   void check() const;
   void write( Changes const & changes ) const;
   void write( Records const & happened ) const;
   void dropOld( double now ) const;

   std::string const path_;
   Claim const claim_;
   std::unique_ptr<sqlite3, Close> db_;
};

}  // namespace Fleet

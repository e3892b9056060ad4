// The store: a SQLite file that holds what must outlive maintd.
//
// Knows texts, not records: a row has a path in the state database, and its value as JSON. Series of numbers, of which
// there are many more than of all else, are bytes of their own, beside the rows. Owned by the agent, or by
// the release of links, which reads it while no agent runs. Write-ahead log, synchronous commits: what commit() or
// transact() has returned from is there after a loss of power. Nobody but the one who made the lock of the network
// namespace opens it, and while it is open SQLite's own lock keeps everybody else out.
//
// A file that is no store, is another program's, is damaged, or was written by a newer maintd is never changed: opening
// it throws, and the error says what to do. So is one that is reached by a symbolic link.
//
// The layout has a number, which is counted up when rows come to mean something else, or lose an attribute. For one
// that is added it stays: rows of an earlier maintd leave it as a new record has it. An earlier maintd that finds it
// refuses the row (Keeper.h). A store in an earlier layout is read, and has the present one once something was written.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/StoreError.h"

struct sqlite3;

namespace Host {

// Of the store in the state directory.
inline constexpr char const * storeFileName = "maintd.db";

class Store {
 public:
   struct Row {
      std::string path;   // of an entity in the state database, without the prefix of the first cell (store/Records.h)
      std::string value;  // its attributes as a JSON object, children left out

      bool operator==( Row const & ) const = default;
   };
   // An interface's name and the kind that it has, which its name need not tell.
   struct Declared {
      std::string name;
      uint8_t kind = 0;  // Lumo::IntfKind
      uint16_t vlanId = 0;

      bool operator==( Declared const & ) const = default;
   };
   // When and in which boot of the machine something was last kept; all empty in a new store.
   struct Moment {
      std::string boot;
      double now = 0;       // s, on the agent's clock
      double shift = 0;     // s, what that clock was ahead of the kernel's CLOCK_BOOTTIME
      double wallTime = 0;  // s, Unix time
   };

   enum class Opening {
      whole,    // every page is looked at; what is damaged is refused
      salvage,  // a damaged file is opened to read what can be read of it, and never written
   };

   // The store's file in a directory that is for what outlives maintd.
   [[nodiscard]] static std::string in( std::string const & directory ) { return directory + "/maintd.db"; }

   // Opens or makes the file, with mode 0640; its directory is made too, with mode 0750. Throws StoreError.
   explicit Store( std::string path, Opening opening = Opening::whole );
   ~Store();
   Store( Store const & ) = delete;
   Store & operator=( Store const & ) = delete;

   [[nodiscard]] std::string const & path() const { return path_; }
   // What is wrong with a file that was opened all the same; empty when it is whole.
   [[nodiscard]] std::string const & damage() const { return damage_; }

   // At or below a path, all by default, in the order of paths, so that what contains comes before what is contained.
   // These throw StoreError.
   [[nodiscard]] std::vector<Row> rows( std::string_view at = {} ) const;
   // Each by the path of its entity, in that order.
   void eachSeries( std::function<void( std::string const & path, std::string const & bytes )> const & take ) const;
   [[nodiscard]] std::vector<Declared> declared() const;
   [[nodiscard]] Moment moment() const;

   // One transaction; all of it or nothing. Deletes first, so that what is deleted and written anew is there.
   struct Changes {
      std::vector<std::string> deleted;  // each with all that is below it, series too
      std::vector<Row> written;
      std::vector<Declared> declared;
      std::optional<Moment> moment = {};  // none: it stays what it was
      std::vector<Row> series = {};       // their values are bytes
   };
   // Throws StoreError, after which another may be tried.
   void commit( Changes const & changes );

   class Transaction;
   // The same for what `write` writes, which is never in memory as a whole: the rows of thousands of interfaces that
   // enter at once are made one by one. Whatever `write` throws comes out of here, and the store stays as it was.
   void transact( std::function<void( Transaction & )> const & write );

 private:
   class Statement;
   struct Statements;
   struct Close {
      void operator()( sqlite3 * db ) const;
   };

   void make() const;
   void open();
   void check();

   std::string const path_;
   std::unique_ptr<sqlite3, Close> db_;
   std::unique_ptr<Statements> statements_;  // they go before their database
   std::string damage_;
   bool inLayout_ = false;  // the present one
};

// What transact() hands out, for as long as it runs. Each throws StoreError.
class Store::Transaction {
 public:
   explicit Transaction( Statements & statements ) : all_( statements ) {}

   void del( std::string const & path );  // with all that is below it, series too
   void put( std::string const & path, std::string const & value );
   void putSeries( std::string const & path, std::string_view bytes );
   void declare( Declared const & declared );
   void momentIs( Moment const & moment );

 private:
   Statements & all_;
};

}  // namespace Host

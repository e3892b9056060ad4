// Fills a counter table: rows come and go with interfaces, counters are written as they are read from their source.
// Nothing but a read moves a row's time, which is that of the turn and not the source's to say.
//
// Owned by the host. Publishes in the writer status directory one record, whose generation changes whenever a row comes
// or goes, so that readers know to look for rows anew.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "kel/Attributes.h"
#include "kel/Dir.h"
#include "quill/CounterTable.h"
#include "quill/EntityManager.h"
#include "records/IntfId.h"

namespace KelQuill {

class WriterStatus final : public Kel::Entity {
   KEL_ENTITY( WriterStatus, "KelQuill::WriterStatus", Kel::Name, writerName )
   KEL_ATTR( Kel::String8, path )                         // of the table's file; empty: anonymous memory
   KEL_ATTR( uint32_t, changedRow )                       // the one row that came or went with this generation
   KEL_ATTR_NOTIFY( uint32_t, generation, onGeneration )  // the table's own
   KEL_ENTITY_END
};

class CounterWriter {
 public:
   // The name of the status record of the Ethernet interfaces' counter writer.
   static constexpr char const * statusName = "ethIntfCounter";

   // Makes the table, in a file at `path` or, where that is empty, in memory of this process, and its status record.
   CounterWriter( Kel::Ptr<Kel::Dir> const & writerStatusDir, std::string const & path );

   [[nodiscard]] CounterTable const & table() const { return *table_; }

   // An interface has a row from rowIs on, its counters at 0 and never read, until rowDel. A second rowIs changes
   // nothing. One that comes back after rowDel has restarted. Throws TableError when the table takes no further row.
   void rowIs( Lumo::IntfId intf );
   void rowDel( Lumo::IntfId intf );
   [[nodiscard]] bool hasRow( Lumo::IntfId intf ) const { return rows_.contains( intf ); }
   // What its row says as it stands; none without a row.
   [[nodiscard]] std::optional<CounterTable::LastRead> lastRead( Lumo::IntfId intf ) const;

   // What its counters said when they were read last, also by a row that was given up since; zeros when never.
   [[nodiscard]] CounterTable::Counters lastCounters( Lumo::IntfId intf ) const;

   // For an interface that has a row: its counters were read in this turn, and this is what they said.
   void readIs( Lumo::IntfId intf, CounterTable::Read const & read );
   // Whether a refresh of these rows is to read the interface: it has a row, and that is among them.
   [[nodiscard]] bool wants( Lumo::IntfId intf, Rows rows ) const;

   // For whoever writes all rows at a time, and keeps which is whose. It is another, or none, once the table's
   // generation has moved.
   [[nodiscard]] std::optional<uint32_t> row( Lumo::IntfId intf ) const;
   // As readIs, for octets that have grown since another read; false, and nothing written, for any other.
   bool grewTo( uint32_t row, uint64_t inOctets, uint64_t outOctets ) {
      return table_->grewTo( row, inOctets, outOctets, Kel::now() );
   }

 private:
   void handleRow( uint32_t index );
   [[nodiscard]] CounterTable::LastRead lastRead( uint32_t index ) const;

   std::unique_ptr<CounterTable> const table_;
   Kel::Ptr<WriterStatus> const status_;
   std::unordered_map<Lumo::IntfId, uint32_t> rows_;
   std::vector<uint32_t> freeRows_;
   // Of interfaces whose row was given up: its restarts, and the last counters that were read.
   std::unordered_map<Lumo::IntfId, CounterTable::LastRead> former_;
};

}  // namespace KelQuill

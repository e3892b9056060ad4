// Turns the counter writer's table into the directory of per-interface counters that plug-ins read.
//
// Owned by the plug-in's loader. Watches the writer's generation and keeps one entry per row in use; an interface
// without a row has no entry. A row that comes or goes costs the same however many there are.
#pragma once

#include <memory>
#include <vector>

#include "kel/Dir.h"
#include "quill/CounterWriter.h"
#include "quill/IntfCounters.h"

namespace Interface {

class EthIntfCounterReaderSm final : public Kel::Entity {
   KEL_MACHINE( EthIntfCounterReaderSm, "Interface::EthIntfCounterReaderSm", Kel::Name, readerName )
   KEL_ATTR( bool, legacyShmemManSupport )
   KEL_ATTR( bool, initialized )
   KEL_ENTITY_END

   EthIntfCounterReaderSm( Kel::Ptr<KelQuill::EntityManager> const & tables,
                           Kel::Ptr<Kel::Dir const> const & writerStatusDir );
   ~EthIntfCounterReaderSm() override;

   // Asks for the table by the path in the writer's status rather than by handle. Only recorded: writer and reader
   // share the manager that they were given, so both ways lead to the same table.
   void enableLegacyShmemManSupport() { legacyShmemManSupportIs( true ); }
   // Once: fills the directory and follows the writer from then on. Without a writer in this process the directory
   // stays as it was filled.
   void handleInitialized();
   void handleGeneration();
   void prepareToDie() override;

   [[nodiscard]] Kel::Ptr<IntfCounterMasquerade::AllEthIntfCounterPtrDir> const & allEthIntfCounterPtrDir() const {
      return counters_;
   }

 private:
   class KelWriterStatus;

   void followRow( uint32_t index );
   void followAllRows();
   [[nodiscard]] bool entryReads( Lumo::IntfId intf, uint32_t index ) const;

   Kel::Ptr<KelQuill::EntityManager> const tables_;
   Kel::Ptr<Kel::Dir const> const writerStatusDir_;
   Kel::Ptr<IntfCounterMasquerade::AllEthIntfCounterPtrDir> const counters_;
   std::vector<Lumo::IntfId> intfs_;  // by row; empty where the row is not in use
   uint32_t generation_ = 0;          // up to which the directory is
   std::unique_ptr<KelWriterStatus> writerStatus_;
};

}  // namespace Interface

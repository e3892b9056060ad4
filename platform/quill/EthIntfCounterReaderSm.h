// Turns the counter writer's table into the directory of per-interface counters that plug-ins read.
//
// Owned by the plug-in's loader. Watches the writer's generation and keeps one entry per row in use; an interface without a
// row has no entry.
#pragma once

#include <memory>

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

   // Asks for the table by the path in the writer's status rather than by handle. Recorded: here writer and reader share the
   // manager that they were given, and both ways lead to the same table.
   void enableLegacyShmemManSupport() { legacyShmemManSupportIs( true ); }
   // Once: fills the directory and follows the writer from then on.
   void handleInitialized();
   void handleGeneration();
   void prepareToDie() override;

   [[nodiscard]] Kel::Ptr<IntfCounterMasquerade::AllEthIntfCounterPtrDir> const & allEthIntfCounterPtrDir() const {
      return counters_;
   }

 private:
   class KelWriterStatus;

   Kel::Ptr<KelQuill::EntityManager> const tables_;
   Kel::Ptr<Kel::Dir const> const writerStatusDir_;
   Kel::Ptr<IntfCounterMasquerade::AllEthIntfCounterPtrDir> const counters_;
   std::unique_ptr<KelWriterStatus> writerStatus_;
};

}  // namespace Interface

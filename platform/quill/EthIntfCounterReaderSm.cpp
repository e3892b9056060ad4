#include "quill/EthIntfCounterReaderSm.h"

#include <unordered_set>

namespace Interface {

using IntfCounterMasquerade::AllEthIntfCounterPtrDir;
using IntfCounterMasquerade::IntfCounter;
using IntfCounterMasquerade::IntfCounterDir;

class EthIntfCounterReaderSm::KelWriterStatus final : public KelQuill::WriterStatus::NotifieeConst {
 public:
   KelWriterStatus( EthIntfCounterReaderSm & owner, Kel::Ptr<KelQuill::WriterStatus const> const & status )
      : Reactor( owner ), owner_( owner ) {
      notifierIs( status );
   }
   void onGeneration() override { owner_.handleGeneration(); }

 private:
   EthIntfCounterReaderSm & owner_;
};

EthIntfCounterReaderSm::EthIntfCounterReaderSm( Kel::Ptr<KelQuill::EntityManager> const & tables,
                                                Kel::Ptr<Kel::Dir const> const & writerStatusDir )
   : readerName_( "ethIntfCounterReader" ),
     tables_( tables ),
     writerStatusDir_( writerStatusDir ),
     counters_( new AllEthIntfCounterPtrDir( "counters" ) ) {}

EthIntfCounterReaderSm::~EthIntfCounterReaderSm() = default;

void EthIntfCounterReaderSm::prepareToDie() { writerStatus_.reset(); }

void EthIntfCounterReaderSm::handleInitialized() {
   KEL_ASSERT( !initialized() );
   for( auto [name, entity] : writerStatusDir_->entityIteratorConst() ) {
      auto const status = Kel::dynamicPtrCast<KelQuill::WriterStatus const>( entity );
      if( status ) writerStatus_ = std::make_unique<KelWriterStatus>( *this, status );
   }
   handleGeneration();
   initializedIs( true );
}

// An entry reads the row that it was made for; a row that changed hands gets a new entry.
void EthIntfCounterReaderSm::handleGeneration() {
   auto const & table = tables_->table();
   static Kel::Name const current( "current" );
   std::unordered_set<Lumo::IntfId> present;
   for( uint32_t i = 0; i < table.rows(); ++i ) {
      auto const & row = table.row( i );
      if( row.inUse.load( std::memory_order_acquire ) == 0 ) continue;
      Lumo::IntfId const intf( row.name );
      present.insert( intf );
      auto const known = counters_->currentStatistics( intf );
      if( known && known->reads( row ) ) continue;
      counters_->intfCounterDirIs( intf )->intfCounterIs(
         Kel::Ptr<IntfCounter>( new IntfCounter( current, tables_, i ) ) );
   }
   for( auto [intf, sets] : counters_->intfCounterDirIterator() ) {
      if( !present.contains( intf ) ) counters_->intfCounterDirDel( intf );
   }
}

}  // namespace Interface

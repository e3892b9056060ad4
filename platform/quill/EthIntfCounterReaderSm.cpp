#include "quill/EthIntfCounterReaderSm.h"

#include <utility>

KEL_TYPE( Interface::EthIntfCounterReaderSm )

namespace Interface {

using IntfCounterMasquerade::AllEthIntfCounterPtrDir;
using IntfCounterMasquerade::currentName;
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
     counters_( new AllEthIntfCounterPtrDir( "counters", tables ) ) {}

EthIntfCounterReaderSm::~EthIntfCounterReaderSm() = default;

void EthIntfCounterReaderSm::prepareToDie() {
   kelDoZombieReactors( true );
   // Whoever still holds this must not keep the writer's record alive through it.
   if( writerStatus_ ) writerStatus_->notifierIs( nullptr );
}

void EthIntfCounterReaderSm::handleInitialized() {
   KEL_ASSERT( !initialized() );
   initializedIs( true );
   auto const status = Kel::dynamicPtrCast<KelQuill::WriterStatus const>(
      writerStatusDir_->entityRef( KelQuill::CounterWriter::statusName ) );
   if( status ) {
      // Attached before the rows are walked: what the first entries cause in the table is then heard of and not missed.
      generation_ = status->generation();
      writerStatus_ = std::make_unique<KelWriterStatus>( *this, status );
   }
   followAllRows();
}

void EthIntfCounterReaderSm::handleGeneration() {
   auto const & status = *writerStatus_->notifier();
   uint32_t const generation = status.generation();
   // Unsigned, so that it is right across the wrap as well.
   uint32_t const steps = generation - std::exchange( generation_, generation );
   // An outer delivery whose change has been followed already, with the one nested in it.
   if( steps == 0 ) return;
   if( steps == 1 ) return followRow( status.changedRow() );
   // A reactor ahead of this one answered a change with another, which arrives first. The record names only the later
   // row.
   followAllRows();
}

void EthIntfCounterReaderSm::followAllRows() {
   // Asked for each row: an entry that comes or goes runs handlers, which may take this down or add rows.
   for( uint32_t i = 0; inService() && i < tables_->table().rows(); ++i ) followRow( i );
}

// Makes the entry of the row's former interface go and that of its present one come.
void EthIntfCounterReaderSm::followRow( uint32_t index ) {
   if( index >= intfs_.size() ) intfs_.resize( index + 1 );
   auto const row = tables_->table().entry( index );
   Lumo::IntfId const intf = row ? Lumo::IntfId( row->name ) : Lumo::IntfId();
   // Our own list is right before the first write below: handlers may come back here for the same row.
   Lumo::IntfId const former = std::exchange( intfs_[index], intf );
   if( former != intf && entryReads( former, index ) ) {
      // Moved on first: who samples in answer to the removal must not use an entry that it kept.
      counters_->generationIs( counters_->generation() + 1 );
      counters_->intfCounterDirDel( former );
   }
   bool const overtaken = !inService() || intfs_[index] != intf;  // by what the removal caused
   // An entry that reads this row already stays: replacing it would notify of a change that is none.
   if( intf.empty() || overtaken || entryReads( intf, index ) ) return;
   Kel::Ptr<IntfCounterDir> const sets( new IntfCounterDir( intf ) );
   sets->intfCounterIs( Kel::Ptr<IntfCounter>( new IntfCounter( currentName(), tables_, index ) ) );
   counters_->generationIs( counters_->generation() + 1 );
   counters_->intfCounterDirIs( sets );
}

// Asked in place of "has an entry": the interface may have moved to another row by now, whose entry must stay.
bool EthIntfCounterReaderSm::entryReads( Lumo::IntfId intf, uint32_t index ) const {
   auto const known = counters_->currentStatistics( intf );
   return known && known->reads( tables_->table().row( index ) );
}

}  // namespace Interface

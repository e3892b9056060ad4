#include "events/SequenceNumbers.h"

#include "kel/Assert.h"

KEL_TYPE( Service::SequenceBlock )
KEL_TYPE( Service::SequenceDir )

namespace Service {

namespace {

Kel::Ptr<SequenceBlock> sequenceBlock( Dovra::EntityManager & database, std::string_view kind ) {
   auto const dir = sequenceDir( database );
   Kel::Name const name{ std::string( kind ) };
   if( auto const kept = dir->block( name ) ) return kept;
   Kel::Ptr<SequenceBlock> const made( new SequenceBlock( name ) );
   dir->blockIs( made );
   return made;
}

}  // namespace

Kel::Ptr<SequenceDir> sequenceDir( Dovra::EntityManager & database ) {
   if( auto const present = database.getEntity<SequenceDir>( sequencePath ) ) return present;
   return database.create<SequenceDir>( sequencePath );
}

SequenceNumbers::SequenceNumbers( Dovra::EntityManager & database, std::string_view kind, uint64_t block )
   : record_( sequenceBlock( database, kind ) ),
     block_( block ),
     last_( record_->reserved() ),
     reserved_( record_->reserved() ) {
   KEL_ASSERT( block >= 2 );
}

uint64_t SequenceNumbers::next() {
   if( reserved_ - last_ <= block_ / 2 ) {
      reserved_ = reserved_ + block_;
      // Whoever follows this record may ask for a number meanwhile.
      record_->reservedIs( reserved_ );
   }
   return ++last_;
}

}  // namespace Service

#include "quill/CounterWriter.h"

namespace KelQuill {

CounterWriter::CounterWriter( Kel::Ptr<Kel::Dir> const & writerStatusDir, std::string const & path )
   : table_( CounterTable::create( path ) ), status_( new WriterStatus( "ethIntfCounter" ) ) {
   status_->pathIs( path );
   writerStatusDir->entityIs( Kel::Ptr<Kel::Entity>( status_ ) );
}

void CounterWriter::rowIs( Lumo::IntfId intf ) {
   if( hasRow( intf ) ) return;
   uint32_t index = table_->rows();
   if( !freeRows_.empty() ) {
      index = freeRows_.back();
      freeRows_.pop_back();
   }
   if( index == table_->capacity() ) throw TableError( "the counter table has no row left for another interface" );
   rows_.emplace( intf, table_->rowIs( index, intf.name() ) );
   status_->generationIs( status_->generation() + 1 );
}

void CounterWriter::rowDel( Lumo::IntfId intf ) {
   auto const found = rows_.find( intf );
   if( found == rows_.end() ) return;
   table_->rowDel( found->second );
   freeRows_.push_back( found->second );
   rows_.erase( found );
   status_->generationIs( status_->generation() + 1 );
}

void CounterWriter::countersIs( Lumo::IntfId intf, CounterTable::Counters const & counters ) {
   auto const found = rows_.find( intf );
   KEL_ASSERT( found != rows_.end() );
   table_->countersIs( found->second, counters );
}

}  // namespace KelQuill

#include "quill/CounterWriter.h"

KEL_TYPE( KelQuill::WriterStatus )

namespace KelQuill {

CounterWriter::CounterWriter( Kel::Ptr<Kel::Dir> const & writerStatusDir, std::string const & path )
   : table_( CounterTable::create( path ) ), status_( new WriterStatus( statusName ) ) {
   // Before the record is in its directory: whoever hears of it may open the path at once.
   status_->pathIs( path );
   writerStatusDir->entityIs( Kel::Ptr<Kel::Entity>( status_ ) );
}

void CounterWriter::rowIs( Lumo::IntfId intf ) {
   if( hasRow( intf ) ) return;
   // Given-up rows first, so that a box whose links come and go does not fill the table.
   uint32_t const index = freeRows_.empty() ? table_->rows() : freeRows_.back();
   auto const former = former_.find( intf );
   table_->rowIs( index, intf.name(), former == former_.end() ? 0 : former->second.restarts + 1 );
   // Only now: the table may have thrown, and the row would be lost.
   if( !freeRows_.empty() ) freeRows_.pop_back();
   rows_.emplace( intf, index );
   handleRow( index );
}

void CounterWriter::rowDel( Lumo::IntfId intf ) {
   auto const found = rows_.find( intf );
   if( found == rows_.end() ) return;
   uint32_t const index = found->second;
   auto const last = lastRead( index );
   auto & former = former_[intf];
   // A row that was never read knows less than the one before it.
   if( last.readTime != 0 ) former = last;
   former.restarts = last.restarts;
   table_->rowDel( index );
   freeRows_.push_back( index );
   rows_.erase( found );
   // Last: it notifies, and a reader may answer with another row.
   handleRow( index );
}

void CounterWriter::readIs( Lumo::IntfId intf, CounterTable::Read const & read ) {
   auto const found = rows_.find( intf );
   KEL_ASSERT( found != rows_.end() );
   table_->readIs( found->second, read, Kel::now() );
}

bool CounterWriter::wants( Lumo::IntfId intf, Rows rows ) const {
   auto const found = rows_.find( intf );
   return found != rows_.end() && ( rows == Rows::all || lastRead( found->second ).readTime == 0 );
}

std::optional<CounterTable::LastRead> CounterWriter::lastRead( Lumo::IntfId intf ) const {
   auto const found = rows_.find( intf );
   return found == rows_.end() ? std::nullopt : std::optional( lastRead( found->second ) );
}

CounterTable::Counters CounterWriter::lastCounters( Lumo::IntfId intf ) const {
   if( auto const last = lastRead( intf ); last && last->readTime != 0 ) return *last;
   auto const former = former_.find( intf );
   if( former == former_.end() ) return {};
   return former->second;
}

std::optional<uint32_t> CounterWriter::row( Lumo::IntfId intf ) const {
   auto const found = rows_.find( intf );
   return found == rows_.end() ? std::nullopt : std::optional( found->second );
}

CounterTable::LastRead CounterWriter::lastRead( uint32_t index ) const {
   auto const found = CounterTable::read( table_->row( index ) );
   KEL_ASSERT( found );  // nobody else writes
   return *found;
}

void CounterWriter::handleRow( uint32_t index ) {
   // Quietly first: the generation notifies, and its readers ask for the row then.
   status_->changedRowIs( index );
   status_->generationIs( table_->generation() );
}

}  // namespace KelQuill

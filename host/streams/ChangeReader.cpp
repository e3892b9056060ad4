#include "streams/ChangeReader.h"

#include <algorithm>

#include "kel/Assert.h"
#include "streams/LineText.h"

namespace Host {

using Dovra::StateComponents;

namespace {

std::string textOf( StateComponents const & path ) {
   std::string text;
   LineText::appendPath( text, path );
   return text;
}

// Whether the one is the other, or that and more behind it.
bool isAtOrBelow( std::string_view path, std::string_view top ) {
   return path.starts_with( top ) && ( path.size() == top.size() || path[top.size()] == ',' );
}

}  // namespace

ChangeReader::ChangeReader( ChangeHistory & history, StateComponents const & path )
   : history_( history ),
     path_( path.empty() ? path : Dovra::Watches::reported( history.database_, path ) ),
     text_( textOf( path_ ) ),
     mounted_( path.empty() ? history.database_.paths()
                            : std::vector{ Dovra::statePlace( history.database_, path ).components.front() } ),
     place_( 0 ) {
   for( std::string const & mounted : mounted_ ) history_.follow( mounted );
   place_ = history_.last();
   history_.readers_.push_back( this );
}

ChangeReader::~ChangeReader() {
   std::erase( history_.waiting_, this );
   std::erase( history_.readers_, this );
   for( std::string const & mounted : mounted_ ) history_.leave( mounted );
}

uint64_t ChangeReader::oldest() const {
   uint64_t missing = history_.forgotten_;
   for( std::string const & mounted : mounted_ ) missing = std::max( missing, history_.followed_.at( mounted ).since );
   return missing + 1;
}

bool ChangeReader::placeIs( uint64_t number ) {
   if( number + 1 < oldest() || number > history_.last() ) return false;
   place_ = number;
   return true;
}

uint64_t ChangeReader::place() const { return waiting_ ? history_.last() : place_; }

bool ChangeReader::lost() const { return !waiting_ && place_ < history_.forgotten_; }

std::shared_ptr<ChangeHistory::Snapshot const> ChangeReader::snapshot() { return history_.snapshot( path_ ); }

std::string ChangeReader::next( std::size_t bytes ) {
   std::string lines;
   if( waiting_ ) return lines;
   KEL_ASSERT( !lost() );
   auto const & blocks = history_.blocks_;
   auto const behind = [&]( ChangeHistory::Block const & block ) { return block.end() <= place_ + 1; };
   for( auto block = std::ranges::partition_point( blocks, behind ); block != blocks.end() && lines.size() < bytes;
        ++block ) {
      take( history_.written( *block ), bytes, lines );
   }
   if( !lines.empty() ) return lines;
   waiting_ = true;
   history_.waiting_.push_back( this );
   return lines;
}

// What of the block is behind the place, and moves that.
void ChangeReader::take( Written const & block, std::size_t bytes, std::string & lines ) {
   auto const beginOf = [&]( std::size_t i ) {
      return i < block.lines.size() ? block.lines[i].begin : block.text.size();
   };
   std::size_t i = place_ + 1 - block.first;
   std::size_t begin = beginOf( i );  // of those that are taken in one go
   for( ; i < block.lines.size(); ++i, ++place_ ) {
      if( concerns( block.path( block.lines[i] ) ) ) {
         if( lines.size() + beginOf( i ) - begin >= bytes ) break;
      } else {
         lines.append( block.text, begin, beginOf( i ) - begin );
         begin = beginOf( i + 1 );
      }
   }
   lines.append( block.text, begin, beginOf( i ) - begin );
}

void ChangeReader::wake() {
   if( std::exchange( waiting_, false ) ) std::erase( history_.waiting_, this );
   if( more_ ) more_();
}

bool ChangeReader::concerns( std::string_view path ) const {
   return text_.empty() || isAtOrBelow( path, text_ ) || isAtOrBelow( text_, path );
}

}  // namespace Host

#include "Box.h"

#include <stdexcept>

namespace Host {

Box::Box( std::string const & counterTable, Tell const & tell, OnLink onLink )
   : database_( new Dovra::EntityManager ),
     state_( *database_ ),
     counterWriter_( state_.counterWriterStatus, counterTable ),
     linkRecords_( state_ ),
     linkFeed_( linkRecords_, counterWriter_, tell, std::move( onLink ) ),
     linkWatch_( linkFeed_, tell ),
     counterFeed_( linkFeed_, counterWriter_, tell ),
     counters_( new KelQuill::EntityManager( counterWriter_.table() ) ) {
   counters_->refresherIs( [this]( auto rows ) {
      counterFeed_.refresh( rows );
      if( onRead_ ) onRead_();
   } );
}

void Box::findLinks() {
   // Links that change all the time can spoil many a dump.
   constexpr int attempts = 20;
   auto & monitor = linkMonitor();
   for( int attempt = 0; attempt < attempts && !monitor.table().known(); ++attempt ) monitor.start();
   if( !monitor.table().known() ) throw std::runtime_error( "the kernel does not tell which links there are" );
}

}  // namespace Host

#include "records/MonIntfStatus.h"

#include "kel/InBlocks.h"

KEL_TYPE( Maintenance::MonIntfStatus )
KEL_TYPE( Maintenance::MonIntfStatusDir )

namespace Maintenance {

void * MonIntfStatus::operator new( std::size_t bytes ) { return Kel::InBlocks<MonIntfStatus>::operator new( bytes ); }
void MonIntfStatus::operator delete( void * object ) { Kel::InBlocks<MonIntfStatus>::operator delete( object ); }

}  // namespace Maintenance

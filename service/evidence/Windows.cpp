#include "evidence/Windows.h"

#include "records/Names.h"

KEL_TYPE( Evidence::WindowIntf )
KEL_TYPE( Evidence::Window )
KEL_TYPE( Evidence::WindowDir )

namespace Evidence {

void WindowIntf::ratesIs( RateCells const & cells ) {
   settled();
   rates_.cellsIs( cells );
}

void WindowIntf::packedRatesIs( std::string_view text ) {
   settled();
   rates_.packedIs( text );
}

Kel::Ptr<WindowDir> windowDir( Dovra::EntityManager & database ) {
   if( auto const present = database.getEntity<WindowDir>( Maintenance::Path::windows ) ) return present;
   return database.create<WindowDir>( Maintenance::Path::windows );
}

}  // namespace Evidence

#include "links/HeldLinks.h"

KEL_TYPE( Service::HeldLink )
KEL_TYPE( Service::HeldLinkDir )

namespace Service {

Kel::Ptr<HeldLinkDir> heldLinkDir( Dovra::EntityManager & database ) {
   if( auto const present = database.getEntity<HeldLinkDir>( heldLinksPath ) ) return present;
   return database.create<HeldLinkDir>( heldLinksPath );
}

}  // namespace Service

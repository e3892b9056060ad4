#include "evidence/Accounts.h"

#include "records/Names.h"

KEL_TYPE( Evidence::Account )
KEL_TYPE( Evidence::UnitAccounts )
KEL_TYPE( Evidence::UnitAccountsDir )

namespace Evidence {

Kel::Ptr<UnitAccountsDir> unitAccountsDir( Dovra::EntityManager & database ) {
   if( auto const present = database.getEntity<UnitAccountsDir>( Maintenance::Path::accounts ) ) return present;
   return database.create<UnitAccountsDir>( Maintenance::Path::accounts );
}

}  // namespace Evidence

#include "evidence/Accounts.h"

KEL_TYPE( Evidence::Account )
KEL_TYPE( Evidence::UnitAccounts )
KEL_TYPE( Evidence::UnitAccountsDir )

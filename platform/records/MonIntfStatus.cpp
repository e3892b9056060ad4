#include "records/MonIntfStatus.h"

KEL_TYPE( Maintenance::MonIntfStatus )
KEL_TYPE( Maintenance::MonIntfStatusDir )

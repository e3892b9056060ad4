#include "records/Bridging.h"

KEL_TYPE( Bridging::VlanStatus )
KEL_TYPE( Bridging::VlanStatusDir )

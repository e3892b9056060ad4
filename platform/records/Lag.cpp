#include "records/Lag.h"

KEL_TYPE( Lag::PhyIntf )
KEL_TYPE( Lag::Config )

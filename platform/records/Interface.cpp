#include "records/Interface.h"

KEL_TYPE( Interface::IntfStatus )
KEL_TYPE( Interface::AllIntfStatusDir )
KEL_TYPE( Interface::EthLagIntfConfigDir )

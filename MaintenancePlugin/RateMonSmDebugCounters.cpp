#include "RateMonSmDebugCounters.h"

KEL_TYPE( MaintenanceMode::RateMonSmDebugCounters )

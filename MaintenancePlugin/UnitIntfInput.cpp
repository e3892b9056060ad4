#include "UnitIntfInput.h"

KEL_TYPE( MaintenanceMode::UnitIntfInput )
KEL_TYPE( MaintenanceMode::UnitIntfInputDir )

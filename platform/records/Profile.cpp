#include "records/Profile.h"

KEL_TYPE( IntfMaintenanceProfile::Config )
KEL_TYPE( IntfMaintenanceProfile::ConfigDir )
KEL_TYPE( Maintenance::Profile::DefaultProfile )

#include "records/Errdisable.h"

KEL_TYPE( Errdisable::CauseStatus )

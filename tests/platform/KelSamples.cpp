#include "KelSamples.h"

KEL_TYPE( Sample::Record )
KEL_TYPE( Sample::Directory )

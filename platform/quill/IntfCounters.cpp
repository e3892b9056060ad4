#include "quill/IntfCounters.h"

KEL_TYPE( Interface::IntfCounterMasquerade::IntfCounter )
KEL_TYPE( Interface::IntfCounterMasquerade::IntfCounterDir )
KEL_TYPE( Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir )

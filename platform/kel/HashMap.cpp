#include "kel/HashMap.h"

namespace Kel {

constinit MapWalk * MapWalk::newest_ = nullptr;

}  // namespace Kel

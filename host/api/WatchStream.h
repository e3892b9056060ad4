// GET /v1/watch and /v1/watch/{path}: what is there, and then each change of it, a line each.
#pragma once

#include "http/Http.h"
#include "http/Target.h"
#include "streams/ChangeHistory.h"

namespace Host {

// A path that is empty stands for everything. With "after=N" there is no snapshot: the changes after that number come,
// or status 410 where they are not all kept any more.
[[nodiscard]] HttpAnswer watchAnswer( ChangeHistory & history, Target::Path const & path,
                                      Target::Parameters const & parameters );

}  // namespace Host

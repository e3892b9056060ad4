// GET /metrics: the fleet in the text format of those who scrape.
//
// One series a group, one a plan that is not over, one a state; none a box: of those there may be ten thousand.
#pragma once

#include "controller/Views.h"
#include "http/Http.h"

namespace Fleet {

[[nodiscard]] Host::HttpAnswer metricsAnswer( Dispatcher const & dispatcher, Survey const & survey,
                                              Surroundings const & surroundings );

}  // namespace Fleet

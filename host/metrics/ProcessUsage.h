// What the process uses of the machine, by the names that programs which scrape know from everywhere.
#pragma once

#include <prometheus/metric_family.h>

#include <vector>

namespace Host {

// What the kernel does not tell, as where /proc is not mounted, is left out.
[[nodiscard]] std::vector<prometheus::MetricFamily> processUsage();

}  // namespace Host

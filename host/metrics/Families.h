// The metrics that are read from a snapshot: one declaration each, with its name, what it means, and how its series are
// made.
//
// Names are in base units: seconds and bytes, so a rate is in bytes per second. Labels are units and interfaces of the
// configuration, and words of a few that are fixed. A series is there only while what it tells of is known.
#pragma once

#include <prometheus/metric_family.h>

#include <span>
#include <string>
#include <string_view>

#include "metrics/Snapshot.h"

namespace Host {

struct FamilyOf {
   char const * name;
   prometheus::MetricType type;
   char const * help;
   void ( *fill )( Snapshot const &, prometheus::MetricFamily & );

   [[nodiscard]] prometheus::MetricFamily collected( Snapshot const & snapshot ) const;
};

[[nodiscard]] std::span<FamilyOf const> families();

// What the text format takes for a label: a byte that is no UTF-8 becomes "\xff", so that two names stay two, as one
// series that is told twice costs the whole scrape.
[[nodiscard]] std::string labelText( std::string_view text );

}  // namespace Host

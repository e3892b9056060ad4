// Windows as they happen, invented: answers such as the service gives, for the page that is made of them.
//
// Each begins at 1000 s, which is 2026-11-21 21:04:10 UTC. Sampled every 10 s, quiet below 100 kbps for 60 s.
#pragma once

#include <functional>
#include <string>

#include "kel/Json.h"
#include "views/WindowAnswer.h"

namespace Test {

constexpr double begin = 1000;                   // s
constexpr double offset = 1795295050.0 - begin;  // s, to Unix time

// Two links drain, one after the other; both stay in maintenance for an hour. In it traffic comes back on eth1 once.
// A third one is shut down when it has drained.
[[nodiscard]] Service::WindowAnswer completed();
// The same without trouble.
[[nodiscard]] Service::WindowAnswer smooth();
// One link never drains; `ratemon` runs out of time and the unit is brought back.
[[nodiscard]] Service::WindowAnswer rolledBack();
// `verify` ran out of time, and the configuration says to go on. Still in maintenance.
[[nodiscard]] Service::WindowAnswer continued();
// Just asked for, on a virtual clock: no stage has ended, one link is measured.
[[nodiscard]] Service::WindowAnswer entering();
// One of three links was left out; of another nothing was ever measured.
[[nodiscard]] Service::WindowAnswer leftOut();
// So many links over eight hours, with 600 cells each. Some are bad.
[[nodiscard]] Service::WindowAnswer many( int links );
// All that there is a member for, once.
[[nodiscard]] Service::WindowAnswer everyMember();

[[nodiscard]] Service::WindowInterfaceAnswer & intf( Service::WindowAnswer & window, std::string const & name );
[[nodiscard]] std::string page( Service::WindowAnswer const & window );

}  // namespace Test

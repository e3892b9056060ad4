// The process between maintd and a hook, without which what a hook has started could get away.
//
//    maintd --fork--> warden --fork, exec--> hook --> whatever it starts, in sessions of its own or not
//
// Whoever loses its parent below the warden becomes the warden's child (PR_SET_CHILD_SUBREAPER), so nothing that
// descends from the hook is left once the warden has no child any more, whatever it has done to its session, its
// environment and its descriptors. When the hook has ended, or SIGTERM tells the warden to end it, or maintd has died,
// the warden ends all of that: first with SIGTERM, after two seconds with SIGKILL. Then it reports and ends itself. It
// only ever signals its own children and, while the hook is not reaped, the hook's process group: a number of a process
// that somebody else has got meanwhile is never hit.
//
// It runs as a copy of maintd, without its descriptors and signal handlers; nothing of maintd's runs in it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Host {

struct Command {
   std::string path;  // what is executed
   std::vector<std::string> arguments;
   std::vector<std::string> environment;
};

struct Warden {
   pid_t pid = 0;    // a child, for its maker to reap
   int pidFd = -1;   // readable when it has ended; like the others for its maker to close, and closed on exec
   int output = -1;  // what the hook writes; does not block
   int report = -1;  // WardenReport, when it has ended; does not block
};

struct WardenReport {
   enum Kind : std::uint8_t { startFailed, exited, signalled };
   Kind kind;
   int value;                // errno, exit status, signal
   std::uint32_t leftovers;  // processes that the hook had left running when it ended, and that were ended
};

// Throws std::system_error where there are no processes or descriptors to be had.
[[nodiscard]] Warden startWarden( Command const & command );

}  // namespace Host

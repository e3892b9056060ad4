// What can go wrong when the kernel is asked for all links or for their counters, made to happen.
//
// A program that this is compiled into sends its netlink messages through it on their way to libmnl. Nothing but these
// requests and the answers to them is touched, and what does not fail is the kernel's own answer, less what it counts
// where a test says that.
// No part of the product knows of it: what fails is what would fail on a box whose kernel fails.
#pragma once

#include <cstdint>
#include <functional>

namespace Faults {

struct StatsFaults {
   std::function<bool()> requestFails;  // asked at each request; empty: none does
   int failingPart = 0;                 // the datagram of each answer that cannot be received, from 1; 0: none
   int interruptedAnswers = 0;          // so many from now on are called interrupted by links that came or went
   int passedBy = 0;                    // index of the link that is missing in those; 0: none
   // What a link has counted, in place of the kernel's word; empty: nothing is changed.
   std::function<void( int index, std::uint64_t & in, std::uint64_t & out )> counts;
   int linkRequestError = 0;  // errno with which asking for all links fails; below 0: the kernel refuses by it
};

[[nodiscard]] StatsFaults & statsFaults();

}  // namespace Faults

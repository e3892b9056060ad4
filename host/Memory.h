// What this process need not keep in memory.
//
// Most of its life there is nothing to do but to wait for a link to change, while its start has read a configuration
// and all links, and has run through a good part of the program and of its libraries.
#pragma once

namespace Host {

// Large pieces of the heap are mapped one by one from now on, and go back to the system when they are let go of.
void limitHeap();

// Gives back what the heap has free between what is to stay, and lets go of the pages of program and libraries: those
// that are needed are found again in the system's cache of their files, without a look at a disk as a rule. After
// something great that does not come often.
void returnMemory();

// The same where much has come free in the heap since this was asked last, or much of program and libraries has come
// into memory since it was given back: a request that concerns thousands of links leaves megabytes of either behind it.
// To be asked every ten seconds.
void returnMemoryOfBursts();

}  // namespace Host

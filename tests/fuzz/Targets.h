// What is fed with any bytes, by libFuzzer and by the test that runs the fuzzers' corpora. Each is a source of its own,
// <name>_fuzz.cpp, with the entry that libFuzzer calls.
//
// A target ends the process where something does not hold that has to hold for whatever bytes come. It answers whether
// they were taken for good, or refused with a reason or in part.
#pragma once

#include <cstddef>
#include <span>

namespace Fuzz {

using Bytes = std::span<unsigned char const>;

bool config( Bytes input );    // a configuration file
bool counters( Bytes input );  // a counter table
bool netlink( Bytes input );   // rtnetlink messages, one after the other
bool store( Bytes input );     // a store's file, or the text of rows; store_fuzz.cpp says how
bool trace( Bytes input );     // a ring trace's file; trace_fuzz.cpp says what of it is left out

}  // namespace Fuzz

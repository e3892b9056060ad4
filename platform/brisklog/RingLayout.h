// The ring file as it lies on disk or in memory, and how one message of it becomes text. Shared by the writer, which
// trusts it, and the reader, which does not.
//
//    FileHeader | format table (append-only) | ring of records
//
// Positions in the ring are 64-bit byte counts that only grow; a position's place is its remainder by the ring's size,
// a power of two. The ring is made of equal blocks, and no record crosses the end of one: what is left of a block is
// filled by a filler. Everything from `tail`, the beginning of a block, to `head` is whole records, oldest first. A
// record is committed by moving `head`, and `tail` moves on to the next block before the first byte of its own block is
// overwritten: at whatever instruction the writer is killed, the range between the two holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "brisklog/Arg.h"

namespace Brisklog {

inline constexpr uint64_t ringMagic = 0x676f6c6b73697262;  // reads "brisklog" in a little-endian file
inline constexpr uint32_t ringVersion = 1;
inline constexpr uint64_t formatAreaBytes = 64 * 1024;
inline constexpr uint64_t ringBlocks = 16;
inline constexpr uint64_t ringBytesMin = 32 * 1024;
inline constexpr uint64_t ringBytesMax = uint64_t( 1 ) << 30;

struct FileHeader {
   uint64_t magic;
   uint32_t version;
   uint32_t reserved;
   uint64_t formatAreaBytes;
   uint64_t ringBytes;
   uint64_t head;         // end of the newest record
   uint64_t tail;         // beginning of the oldest block
   uint64_t formatBytes;  // of the table in use
   uint64_t boot;         // in which the file was made, 0 when that is not known
};

// Followed by the argument types, then the text, then zeros to a multiple of 8.
struct FormatHeader {
   uint16_t bytes;  // of the whole entry
   uint16_t textBytes;
   uint32_t argCount;
};

// Followed by the arguments, each a multiple of 8 bytes. A filler has only the first 8 bytes of this.
struct RecordHeader {
   static constexpr uint16_t fillerFormat = 0xffff;

   uint32_t bytes;   // of the whole record, a multiple of 8
   uint16_t format;  // index in the format table
   uint16_t level;
   uint64_t sequence;  // counts the ring's messages from 0
   double time;        // s
};
inline constexpr uint64_t fillerBytes = 8;
inline constexpr uint64_t recordBytesMax = sizeof( RecordHeader ) + argCountMax * ( 1 + textBytesMax );
static_assert( recordBytesMax <= ringBytesMin / ringBlocks, "every record fits into a block" );

// A number for the machine's present boot, 0 when the kernel does not tell.
[[nodiscard]] uint64_t presentBoot();

// A format as the table has it.
struct Format {
   std::span<ArgType const> types;
   std::string_view text;
};

// The format with the values put in for its {}; none where the bytes do not hold the arguments.
[[nodiscard]] std::optional<std::string> messageText( Format const & format, std::span<std::byte const> args );

}  // namespace Brisklog

// What reaches a terminal of text that somebody else has chosen.
#include "tables/Printable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Cli {
namespace {

TEST( Printable, leavesNothingThatATerminalActsOn ) {
   struct {
      std::string_view text, shown;
   } const cases[] = {
      { "", "" },
      { "eth0 ~ \\n", "eth0 ~ \\n" },
      { "\u00e9\u4e2d\U0001f600", "\u00e9\u4e2d\U0001f600" },
      { "a\x1b[2Jb", "a\\u001b[2Jb" },
      { { "a\0b", 3 }, "a\\u0000b" },
      { "\n\r\t", "\\n\\r\\t" },
      { "\x7f", "\\u007f" },
      // C1: U+0080, CSI and the last one; U+00A0 is a blank.
      { "\u0080\u009b\u009f\u00a0", "\\u0080\\u009b\\u009f\u00a0" },
      // The same as bytes are no UTF-8.
      { "\x9b[2J", "\\x9b[2J" },
      // Both ends of each range.
      { "\u2027\u2028\u202e\u202f", "\u2027\\u2028\\u202e\u202f" },
      { "\u2065\u2066\u2069\u206a", "\u2065\\u2066\\u2069\u206a" },
      // Cut short; longer than need be, which would hide an ESC; a surrogate.
      { "\xe2\x80", "\\xe2\\x80" },
      { "\xc0\x9b", "\\xc0\\x9b" },
      { "\xed\xa0\x80", "\\xed\\xa0\\x80" },
      { "\xff"
        "e",
        "\\xffe" },
   };
   for( auto const & [text, shown] : cases ) {
      EXPECT_EQ( printable( text ), shown );
      EXPECT_EQ( printable( printable( text ) ), shown ) << "unchanged the second time";
   }
   EXPECT_EQ( printableLines( "a\n\tb\r\x1b" ), "a\n\tb\\r\\u001b" );
}

}  // namespace
}  // namespace Cli

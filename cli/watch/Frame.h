// What a terminal shows: lines of text in columns, each piece with the way in which it is to be read.
//
// A picture is made of answers by functions, without a terminal; whoever has one paints it (watch/Screen.h). Nothing is
// said by a style alone: without any of them the text says the same.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Cli::Watch {

enum class Style : uint8_t {
   plain,
   faint,    // headings, units, and all of a picture that is out of date
   strong,   // names, and what is asked for first
   loud,     // traffic that should not be there
   unknown,  // nobody can tell
   settled,  // proven
   alarm,    // the unit is disturbed, or maintd has gone
   bar,      // the title, and where the cursor is
};

// What the terminal can show.
struct Look {
   bool unicode = true;  // its character set is UTF-8
};

struct Size {
   int columns = 80;
   int rows = 24;
};

struct Span {
   std::string text;  // printable
   Style style = Style::plain;
};

struct Line {
   std::vector<Span> spans;

   void add( std::string_view text, Style style = Style::plain );
   [[nodiscard]] int columns() const;
   [[nodiscard]] std::string text() const;  // without blanks at its end
   // Cut or filled to so many columns.
   void fitTo( int columns, Look look );
};

struct Frame {
   std::vector<Line> lines;
   std::optional<int> cursor;  // column in the last line where somebody types; none: nobody does
};

// One line with one text at the left and one at the right; where both have no room the right one is dropped.
[[nodiscard]] Line between( Line left, Line const & right, int columns, Look look );

// --- text in columns -------------------------------------------------------------------------------------------------

// Of text that has been through fit().
[[nodiscard]] int columnsOf( std::string_view text );
// Printable text (tables/Printable.h) as this terminal can show it: what it has no character for, or what has no width
// that is known, is written as the numbers of its bytes, "\xe4".
[[nodiscard]] std::string fit( std::string_view text, Look look );
// Cut at its end, or in its middle where both ends tell names apart, with a mark where something is missing.
[[nodiscard]] std::string cut( std::string const & text, int columns, Look look );
[[nodiscard]] std::string cutMiddle( std::string const & text, int columns, Look look );
[[nodiscard]] std::string padded( std::string text, int columns );
[[nodiscard]] std::string paddedLeft( std::string const & text, int columns );
// A horizontal bar, `share` of it filled. Empty where there are no columns.
void addBar( Line & line, double share, int columns, Style filled, Look look );

}  // namespace Cli::Watch

// Tables for people, declared as lists of columns: heading, member of the answer, and how it is shown.
//
// A column that shows something new is one line here and one in the declaration of the answer; tests hold the two
// against each other. What is not known is "-".
#pragma once

#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "tables/Members.h"

namespace Cli {

// The clocks of an answer. Times in it count on the service's, which nobody else has: how long ago something was can
// only be told from the time at which the answer was given.
struct Clocks {
   double now = 0;
   std::optional<double> wallClockOffset;  // s to add to a time for Unix time; absent: nobody knows
};

// How one member of a row's object is shown; others may be looked at besides.
using Cell = std::string ( * )( Object const & row, char const * member, Clocks const & clocks );

struct Column {
   char const * heading;
   char const * member;
   Cell shown;
};
using Columns = std::span<Column const>;

// Lines are not longer than this from now on where that can be had by breaking their last cell; 0, as at first: as long
// as they are.
void tableWidthIs( std::size_t columns );

// One line a row, columns as wide as their widest cell, two blanks apart; the last one is not padded.
void printTable( std::ostream & out, Columns columns, std::vector<Object const *> const & rows, Clocks const & clocks,
                 std::string const & indent = "" );
void printTable( std::ostream & out, Columns columns, boost::json::array const & rows, Clocks const & clocks,
                 std::string const & indent = "" );
// One line a column, for a single row that has much to say.
void printRow( std::ostream & out, Columns columns, Object const & row, Clocks const & clocks,
               std::string const & indent = "" );

// Spans as people take them in: whole seconds, and no less than 0. `neededText` rounds up, so that a wait never reads
// as over before it is.
[[nodiscard]] std::string spanText( double seconds );
[[nodiscard]] std::string neededText( double seconds );
// "2026-03-01 14:05:09" in local time; where nobody knows, seconds on the service's clock.
[[nodiscard]] std::string clockText( double time, Clocks const & clocks );

// Ways to show a member.
[[nodiscard]] std::string plainCell( Object const & row, char const * member, Clocks const & );
[[nodiscard]] std::string yesCell( Object const & row, char const * member, Clocks const & );    // "yes" or "-"
[[nodiscard]] std::string yesNoCell( Object const & row, char const * member, Clocks const & );  // "yes", "no" or "-"
[[nodiscard]] std::string namesCell( Object const & row, char const * member, Clocks const & );  // of a list
[[nodiscard]] std::string rateCell( Object const & row, char const * member, Clocks const & );
[[nodiscard]] std::string spanCell( Object const & row, char const * member, Clocks const & );  // of seconds
[[nodiscard]] std::string agoCell( Object const & row, char const * member, Clocks const & clocks );
[[nodiscard]] std::string clockCell( Object const & row, char const * member, Clocks const & clocks );

}  // namespace Cli

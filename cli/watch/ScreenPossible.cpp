// By itself, because the names of terminal capabilities are macros: columns, tab, and many more.
#include "watch/Screen.h"

#include <unistd.h>

// After all others.
#include <curses.h>
#include <term.h>

namespace Cli::Watch {

bool Screen::possible() {
   if( !::isatty( STDIN_FILENO ) || !::isatty( STDOUT_FILENO ) ) return false;
   int found = 0;
   if( ::setupterm( nullptr, STDOUT_FILENO, &found ) != OK ) return false;
   // Without a cursor that can be placed there are only lines.
   char const * const place = ::tigetstr( "cup" );
   bool const placed = place && place != reinterpret_cast<char const *>( -1 );
   ::del_curterm( ::cur_term );
   return placed;
}

}  // namespace Cli::Watch

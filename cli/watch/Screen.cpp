#include "watch/Screen.h"

// Its macros would take the names of others.
#define NCURSES_NOMACROS
#include <curses.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace Cli::Watch {

namespace {

constexpr int escapeDelayMs = 25;  // for the rest of a key that begins as Esc does
constexpr wint_t controlL = 'L' - '@';
constexpr wint_t escape = 27;
constexpr wint_t deleteCharacter = 127;

// https://no-color.org: any value but the empty one.
bool wantsColour() {
   char const * const noColour = std::getenv( "NO_COLOR" );
   return !noColour || !*noColour;
}

// Of the palette, in which these three are legible on light and on dark.
enum Pair : short { red = 1, green = 2, magenta = 3 };

std::optional<Key> keyOf( wint_t code ) {
   switch( code ) {
      case KEY_UP: return Key::up;
      case KEY_DOWN: return Key::down;
      case KEY_PPAGE: return Key::pageUp;
      case KEY_NPAGE: return Key::pageDown;
      case KEY_HOME: return Key::home;
      case KEY_END: return Key::end;
      case KEY_ENTER: return Key::enter;
      case KEY_BACKSPACE: return Key::backspace;
      case KEY_BTAB: return Key::backTab;
      default: return std::nullopt;
   }
}

std::optional<Press> pressOf( wint_t character ) {
   switch( character ) {
      case '\n':
      case '\r': return Press{ Key::enter, "" };
      case '\t': return Press{ Key::tab, "" };
      case '\b':
      case deleteCharacter: return Press{ Key::backspace, "" };
      case escape: return Press{ Key::escape, "" };
      default: break;
   }
   if( character < ' ' || ::wcwidth( static_cast<wchar_t>( character ) ) < 0 ) return std::nullopt;
   std::array<char, 16> bytes{};
   std::mbstate_t state{};
   std::size_t const length = std::wcrtomb( bytes.data(), static_cast<wchar_t>( character ), &state );
   if( length > bytes.size() ) return std::nullopt;
   return Press{ Key::text, std::string( bytes.data(), length ) };
}

}  // namespace

struct Screen::Terminal {
   SCREEN * screen;
   bool colours = false;

   [[nodiscard]] attr_t attributesOf( Style style ) const {
      auto const coloured = [&]( short pair ) {
         return colours ? static_cast<attr_t>( COLOR_PAIR( pair ) ) : A_NORMAL;
      };
      switch( style ) {
         case Style::plain: return A_NORMAL;
         case Style::faint: return A_DIM;
         case Style::strong: return A_BOLD;
         case Style::loud: return A_BOLD | coloured( red );
         case Style::unknown: return coloured( magenta );
         case Style::settled: return coloured( green );
         case Style::alarm: return A_BOLD | A_REVERSE | coloured( red );
         case Style::bar: return A_REVERSE;
      }
      return A_NORMAL;
   }
};

Screen::Screen() : terminal_( std::make_unique<Terminal>( Terminal{ ::newterm( nullptr, stdout, stdin ) } ) ) {
   if( !usable() ) return;
   ::set_escdelay( escapeDelayMs );
   ::cbreak();
   ::noecho();
   ::keypad( ::stdscr, true );
   ::nodelay( ::stdscr, true );
   ::curs_set( 0 );
   if( !wantsColour() || !::has_colors() || ::start_color() != OK || ::use_default_colors() != OK ) return;
   terminal_->colours = true;
   ::init_pair( red, COLOR_RED, -1 );
   ::init_pair( green, COLOR_GREEN, -1 );
   ::init_pair( magenta, COLOR_MAGENTA, -1 );
}

Screen::~Screen() {
   if( !usable() ) return;
   ::curs_set( 1 );
   ::endwin();
   ::delscreen( terminal_->screen );
}

bool Screen::usable() const { return terminal_->screen != nullptr; }

Size Screen::size() const { return { std::max( getmaxx( ::stdscr ), 1 ), std::max( getmaxy( ::stdscr ), 1 ) }; }

void Screen::resized() {
   winsize now{};
   if( ::ioctl( STDOUT_FILENO, TIOCGWINSZ, &now ) == 0 && now.ws_row > 0 && now.ws_col > 0 )
      ::resizeterm( now.ws_row, now.ws_col );
   // What a terminal does to what is on it when it becomes another size is its own business.
   ::clearok( ::stdscr, true );
}

void Screen::paint( Frame const & frame ) {
   ::werase( ::stdscr );
   int row = 0;
   for( Line const & line : frame.lines ) {
      ::wmove( ::stdscr, row++, 0 );
      for( Span const & span : line.spans ) {
         ::wattrset( ::stdscr, static_cast<int>( terminal_->attributesOf( span.style ) ) );
         ::waddnstr( ::stdscr, span.text.data(), static_cast<int>( span.text.size() ) );
      }
   }
   ::wattrset( ::stdscr, A_NORMAL );
   ::curs_set( frame.cursor ? 1 : 0 );
   if( frame.cursor ) ::wmove( ::stdscr, row - 1, *frame.cursor );
   ::wrefresh( ::stdscr );
}

std::optional<Press> Screen::pressed() {
   while( true ) {
      wint_t code = 0;
      int const kind = ::wget_wch( ::stdscr, &code );
      if( kind == ERR ) return std::nullopt;
      if( kind == KEY_CODE_YES ) {
         if( auto const key = keyOf( code ) ) return Press{ *key, "" };
      } else if( code == controlL ) {
         ::clearok( ::stdscr, true );
      } else if( auto press = pressOf( code ) ) {
         return press;
      }
   }
}

Look lookOfLocale() { return { std::strcmp( ::nl_langinfo( CODESET ), "UTF-8" ) == 0 }; }

}  // namespace Cli::Watch

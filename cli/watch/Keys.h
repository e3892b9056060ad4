// What somebody has pressed, whatever the terminal sends for it.
#pragma once

#include <cstdint>
#include <string>

namespace Cli::Watch {

enum class Key : uint8_t {
   text,
   up,
   down,
   pageUp,
   pageDown,
   home,
   end,
   enter,
   escape,
   backspace,
   tab,
   backTab,
};

struct Press {
   Key key = Key::text;
   std::string text;  // of Key::text: one character
};

}  // namespace Cli::Watch

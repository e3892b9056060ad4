// The terminal: paints pictures, reads keys. As it was again when this goes.
//
// Colours are those of the terminal's own palette, on its own background: nothing is said about light and dark.
#pragma once

#include <memory>

#include "watch/Frame.h"
#include "watch/Keys.h"

namespace Cli::Watch {

class Screen {
 public:
   // Whether standard input and output are a terminal on which a picture can be painted.
   [[nodiscard]] static bool possible();

   Screen();
   ~Screen();
   Screen( Screen const & ) = delete;
   Screen & operator=( Screen const & ) = delete;

   // False when the terminal cannot be used after all.
   [[nodiscard]] bool usable() const;
   [[nodiscard]] Size size() const;
   // After the terminal has become another size.
   void resized();
   void paint( Frame const & frame );
   // The next key; none when there is none now.
   [[nodiscard]] std::optional<Press> pressed();

 private:
   struct Terminal;
   std::unique_ptr<Terminal> terminal_;
};

// The terminal's character set, as the locale says.
[[nodiscard]] Look lookOfLocale();

}  // namespace Cli::Watch

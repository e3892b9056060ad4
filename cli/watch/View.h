// The live view as a whole: the list, the history of one interface, the help, and between title and keys what stands in
// the middle. Driven by answers and keys, shown as pictures; knows neither terminal nor daemon.
#pragma once

#include "watch/ListView.h"
#include "watch/Story.h"

namespace Cli::Watch {

// What is true of the picture as a whole.
struct Circumstances {
   std::string unit;  // the only one that is watched; empty: all
   std::string time;  // of day, as the caller's clock has it
   double intervalSeconds = 1;
   std::string trouble;       // why there was no answer to the last request; empty: there was one
   double silentSeconds = 0;  // since the last answer
};

class View {
 public:
   View( Scene const & scene, Look look ) : scene_( scene ), look_( look ), list_( scene, look ) {}

   void pressed( Press const & press );
   [[nodiscard]] bool left() const { return left_; }
   // Whose history is open, by the keys of unit and interface.
   [[nodiscard]] std::optional<ListView::Place> historyOf() const;

   // A window with what historyOf() says, or why there is none.
   void windowIs( Object const & window );
   void noWindowIs( std::string const & why );

   [[nodiscard]] Frame frame( Size size, Circumstances const & now );

 private:
   void pressedInPattern( Press const & press );
   void open();
   [[nodiscard]] std::vector<Line> middle( Size size );
   [[nodiscard]] Line title( int columns, Circumstances const & now ) const;
   [[nodiscard]] Line keys( int columns ) const;
   [[nodiscard]] Line pattern( int columns, Frame & frame ) const;

   Scene const & scene_;
   Look const look_;
   ListView list_;
   std::optional<Story> story_;
   bool helps_ = false;
   std::size_t helpTop_ = 0;
   bool asksPattern_ = false;
   std::string patternBefore_;
   bool left_ = false;
};

}  // namespace Cli::Watch

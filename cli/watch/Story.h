// The history of one interface in the present or last stay of its unit, as its window has it: its rates as a chart with
// the threshold, what broke its proof, and what else happened to it.
#pragma once

#include "watch/Keys.h"
#include "watch/Scene.h"

namespace Cli::Watch {

// A window, of which only one interface is wanted, or only the last seconds of all; in the shape in which it came.
[[nodiscard]] Object onlyInterface( Object const & window, std::string const & intf );
[[nodiscard]] Object onlyRecent( Object const & window, double seconds );

class Story {
 public:
   Story( std::string unit, std::string intf, Look look )
      : unit_( std::move( unit ) ), intf_( std::move( intf ) ), look_( look ) {}

   [[nodiscard]] std::string const & unit() const { return unit_; }
   [[nodiscard]] std::string const & intf() const { return intf_; }

   // A window with this interface alone.
   void windowIs( Object const & window );
   // There is none, and why.
   void absentIs( std::string const & why ) { absent_ = why; }
   void pressed( Press const & press );
   // Exactly so many rows. `live` is the interface as it is now, null when it has gone from its unit.
   [[nodiscard]] std::vector<Line> lines( Size size, Intf const * live, double now );

 private:
   struct Happening {
      double time;
      std::string kind;
      std::string text;
   };

   void addHead( std::vector<Line> & lines, Intf const * live, double now, int columns ) const;
   void addCharts( std::vector<Line> & lines, std::vector<Cell> const & cells, Ticks const & ticks, int rows ) const;
   void addAxis( std::vector<Line> & lines, Ticks const & ticks ) const;
   void addHappenings( std::vector<Line> & lines, Size size );
   [[nodiscard]] Line marks( Ticks const & ticks ) const;
   [[nodiscard]] std::vector<Cell> cells( Intf const * live ) const;
   [[nodiscard]] double spanSeconds( double now, std::vector<Cell> const & cells ) const;
   [[nodiscard]] std::string timeText( double time ) const;

   std::string const unit_;
   std::string const intf_;
   Look const look_;
   bool known_ = false;  // a window has come
   std::string absent_;
   std::optional<double> wallClockOffset_;
   std::optional<double> threshold_;
   std::string profile_;
   double requested_ = 0;
   std::vector<Cell> past_;
   std::vector<Happening> happenings_;  // in the order of time
   double totalHappenings_ = 0;
   std::size_t span_ = 0;    // 0: the whole stay
   std::size_t scroll_ = 0;  // happenings that are passed over, from the latest
};

}  // namespace Cli::Watch

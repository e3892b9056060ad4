#include "watch/Columns.h"

#include <algorithm>
#include <cmath>

#include "kel/QuantityText.h"

namespace Cli::Watch {

// In this order as long as there is room for all columns of a need.
enum class Need : uint8_t { always, rates, spark, since, gauge, sparks, why, breaks };

// Declared as the tables are: a heading, its room, and how an interface is shown in it.
struct Column {
   char const * heading;
   int least;
   int most;  // that it can make use of
   Need need;
   void ( *add )( Line & line, Intf const & intf, int columns, Cells const & cells );
};

namespace {

// A shape for each standing, beside its colour.
char const * mark( Standing standing, Look look ) {
   switch( standing ) {
      case Standing::loud: return look.unicode ? "\u25b2" : "!";
      case Standing::unknown: return "?";
      case Standing::proving: return look.unicode ? "\u25cb" : "o";
      case Standing::settled: return look.unicode ? "\u25cf" : "*";
      case Standing::none: return " ";
   }
   return " ";
}

std::string rateText( std::optional<double> rate ) { return rate ? Kel::rateText( *rate ) : "-"; }

bool over( Intf const & intf, std::optional<double> rate ) {
   return rate && intf.threshold && *rate >= *intf.threshold;
}

void addMark( Line & line, Intf const & intf, int, Cells const & cells ) {
   line.add( mark( intf.standing, cells.look ), styleOf( intf.standing ) );
}

void addName( Line & line, Intf const & intf, int columns, Cells const & cells ) {
   line.add( padded( cutMiddle( intf.name, columns, cells.look ), columns ),
             cells.selected ? Style::bar : Style::strong );
}

void addVerdict( Line & line, Intf const & intf, int columns, Cells const & cells ) {
   line.add( padded( cut( intf.verdict, columns, cells.look ), columns ), styleOf( intf.standing ) );
}

void addSince( Line & line, Intf const & intf, int columns, Cells const & cells ) {
   std::string const text = intf.since ? ageText( std::max( cells.now - *intf.since, 0.0 ) ) : "-";
   line.add( paddedLeft( text, columns ), Style::faint );
}

void addRate( Line & line, Intf const & intf, std::optional<double> rate, int columns ) {
   line.add( paddedLeft( rateText( rate ), columns ), over( intf, rate ) ? Style::loud : Style::plain );
}
void addRateIn( Line & line, Intf const & intf, int columns, Cells const & ) {
   addRate( line, intf, intf.in, columns );
}
void addRateOut( Line & line, Intf const & intf, int columns, Cells const & ) {
   addRate( line, intf, intf.out, columns );
}

template<Direction direction>
void addHistory( Line & line, Intf const & intf, int columns, Cells const & cells ) {
   Ticks const ticks = lastColumns( cells.now, cells.sparkSeconds, columns );
   addSpark( line, highest( intf.series->cells(), direction, ticks ), intf.threshold, cells.look );
}

void addDistance( Line & line, Intf const & intf, int columns, Cells const & ) {
   bool const loud = intf.distance().value_or( 0 ) >= 1;
   line.add( paddedLeft( distanceText( intf ), columns ), loud ? Style::loud : Style::plain );
}

void addGauge( Line & line, Intf const & intf, int columns, Cells const & cells ) {
   auto const distance = intf.distance();
   if( !distance ) {
      line.add( std::string( static_cast<std::size_t>( columns ), ' ' ) );
      return;
   }
   addBar( line, *distance, columns, *distance >= 1 ? Style::loud : Style::plain, cells.look );
}

void addNeeded( Line & line, Intf const & intf, int columns, Cells const & ) {
   line.add( paddedLeft( needsText( intf ), columns ), styleOf( intf.standing ) );
}

void addCount( Line & line, double count, int columns ) {
   line.add( paddedLeft( count > 0 ? Kel::numberText( count, 0 ) : "-", columns ), Style::faint );
}
void addBreaks( Line & line, Intf const & intf, int columns, Cells const & ) { addCount( line, intf.breaks, columns ); }

void addWhy( Line & line, Intf const & intf, int columns, Cells const & cells ) {
   line.add( padded( cut( intf.why, columns, cells.look ), columns ), Style::faint );
}

// As they stand from the left. The spark lines of the two directions take the place of the one for both.
constexpr Column table[] = {
   { "", 1, 1, Need::always, addMark },
   { "INTERFACE", 9, 40, Need::always, addName },
   { "VERDICT", 9, 9, Need::always, addVerdict },
   { "FOR", 6, 6, Need::since, addSince },
   { "THRESHOLD", 9, 9, Need::always, addDistance },
   { "", 10, 10, Need::gauge, addGauge },
   { "NEEDS", 7, 7, Need::always, addNeeded },
   { "IN", 9, 9, Need::rates, addRateIn },
   { "", 14, 40, Need::sparks, addHistory<Direction::in> },
   { "OUT", 9, 9, Need::rates, addRateOut },
   { "", 14, 40, Need::sparks, addHistory<Direction::out> },
   { "", 10, 60, Need::spark, addHistory<Direction::either> },
   { "BREAKS", 6, 6, Need::breaks, addBreaks },
   { "WHY", 34, 48, Need::why, addWhy },
};

bool isSpark( Column const & column ) { return column.need == Need::spark || column.need == Need::sparks; }

template<class Round>
std::string spanIn( double seconds, Round const & round ) {
   struct Scale {
      double from;
      double seconds;
      char const * name;
   };
   static constexpr Scale scales[] = {
      { 0, 1, " s" }, { 100, 60, " min" }, { 5940, 3600, " h" }, { 172800, 86400, " d" } };
   Scale const * scale = scales;
   for( Scale const & each : scales ) scale = seconds >= each.from ? &each : scale;
   return Kel::numberText( std::min( round( seconds / scale->seconds ), 999.0 ), 0 ) + scale->name;
}

bool isLeft( Column const & column ) {
   return column.add == addName || column.add == addVerdict || column.add == addWhy || isSpark( column );
}

}  // namespace

Columns::Columns( int columns, int longestName, double sparkSeconds, Look look )
   : columns_( columns ), gap_( columns < 60 ? 1 : 2 ), cells_{ 0, sparkSeconds, false, look } {
   for( Column const & column : table ) placed_.push_back( { &column, 0 } );
   for( int need = 0; need <= static_cast<int>( Need::breaks ); ++need ) take( static_cast<Need>( need ) );
   grow( [&]( Column const & column ) { return column.add == addName ? longestName : 0; } );
   grow( []( Column const & column ) { return column.add == addWhy || isSpark( column ) ? column.most : 0; } );
}

int Columns::used() const {
   int sum = 0;
   for( Placed const & placed : placed_ ) sum += placed.columns > 0 ? gapBefore( placed ) + placed.columns : 0;
   return sum;
}

int Columns::gapBefore( Placed const & placed ) const {
   if( placed.column->add == addMark ) return 0;
   // Behind the mark one blank is enough.
   return placed.column->add == addName ? 1 : gap_;
}

void Columns::take( Need need ) {
   auto const before = placed_;
   for( Placed & placed : placed_ ) {
      if( placed.column->need == need ) placed.columns = placed.column->least;
      if( placed.column->need == Need::spark && need == Need::sparks ) placed.columns = 0;
   }
   // What must be in every row is cut where there is no room even for that.
   if( need != Need::always && used() > columns_ ) placed_ = before;
}

// Gives what room is left to the columns that want it, one column of the terminal to each in turn.
template<class Wanted>
void Columns::grow( Wanted const & wanted ) {
   int room = columns_ - used();
   for( bool grown = true; grown; ) {
      grown = false;
      for( Placed & placed : placed_ ) {
         int const most = std::min( wanted( *placed.column ), placed.column->most );
         if( room <= 0 || placed.columns == 0 || placed.columns >= most ) continue;
         ++placed.columns;
         --room;
         grown = true;
      }
   }
}

std::string Columns::headingOf( Placed const & placed ) const {
   // Over its first column only, which is that of the rate where each direction has one.
   if( isSpark( *placed.column ) ) return cut( "LAST " + waitText( cells_.sparkSeconds ), placed.columns, cells_.look );
   return placed.column->heading;
}

Line Columns::heading() const {
   Line line;
   for( Placed const & placed : placed_ ) {
      if( placed.columns == 0 ) continue;
      std::string const text = headingOf( placed );
      addGap( line, placed );
      line.add( isLeft( *placed.column ) ? padded( text, placed.columns ) : paddedLeft( text, placed.columns ),
                Style::faint );
   }
   line.fitTo( columns_, cells_.look );
   return line;
}

void Columns::addGap( Line & line, Placed const & placed ) const {
   line.add( std::string( static_cast<std::size_t>( gapBefore( placed ) ), ' ' ) );
}

Line Columns::row( Intf const & intf, double now, bool selected ) const {
   Cells cells = cells_;
   cells.now = now;
   cells.selected = selected;
   Line line;
   for( Placed const & placed : placed_ ) {
      if( placed.columns == 0 ) continue;
      addGap( line, placed );
      placed.column->add( line, intf, placed.columns, cells );
   }
   line.fitTo( columns_, cells_.look );
   return line;
}

std::string distanceText( Intf const & intf ) {
   auto const distance = intf.distance();
   if( !distance ) return "-";
   if( *distance > 999 ) return ">999x";
   if( *distance >= 1 ) return Kel::numberText( *distance, *distance < 9.95 ? 1 : 0 ) + "x over";
   // What flows does not read as nothing, nor what is below as all of it.
   if( *distance > 0 && *distance < 0.005 ) return "<1 %";
   return Kel::numberText( std::min( *distance * 100, 99.0 ), 0 ) + " %";
}

std::string needsText( Intf const & intf ) {
   if( intf.standing == Standing::settled ) return "-";
   // As long as it is loud, the time from when it is quiet says little.
   if( intf.standing == Standing::loud && intf.quietIn ) return "~" + waitText( *intf.quietIn );
   if( intf.standing == Standing::loud && !intf.pace.empty() ) return intf.pace;
   return intf.neededSeconds ? waitText( *intf.neededSeconds ) : "-";
}

std::string waitText( double seconds ) {
   return spanIn( seconds, []( double count ) { return std::ceil( count ); } );
}
std::string ageText( double seconds ) {
   return spanIn( seconds, []( double count ) { return std::floor( count ); } );
}

Style styleOf( Standing standing ) {
   switch( standing ) {
      case Standing::loud: return Style::loud;
      case Standing::unknown: return Style::unknown;
      case Standing::settled: return Style::settled;
      case Standing::proving:
      case Standing::none: return Style::plain;
   }
   return Style::plain;
}

}  // namespace Cli::Watch

#include "watch/Story.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "kel/QuantityText.h"
#include "tables/Table.h"
#include "watch/Chart.h"
#include "watch/Columns.h"

namespace Cli::Watch {

namespace json = boost::json;

namespace {

constexpr std::array<double, 4> spans{ 0, 1800, 600, 120 };  // s; the first stands for the whole stay

// Under the chart, where it happened.
struct Mark {
   char const * kind;
   char const * sign;
   Style style;
};
constexpr Mark knownMarks[] = { { "break", "b", Style::unknown },
                                { "spike", "S", Style::loud },
                                { "link", "L", Style::strong },
                                { "shutdown", "D", Style::strong } };

Mark const * markOf( std::string const & kind ) {
   auto const * const found = std::find_if( std::begin( knownMarks ), std::end( knownMarks ),
                                            [&]( Mark const & mark ) { return kind == mark.kind; } );
   return found == std::end( knownMarks ) ? nullptr : found;
}

// What is left of its interfaces goes through `kept`, which leaves out those of which it returns nothing.
template<class Kept>
Object reduced( Object const & window, Kept const & kept ) {
   Object copy;
   for( auto const & [member, value] : window ) {
      if( member != "interfaces" ) copy[member] = value;
   }
   json::array interfaces;
   for( auto const & each : list( window, "interfaces" ) ) {
      if( auto intf = kept( object( each ) ) ) interfaces.push_back( std::move( *intf ) );
   }
   copy["interfaces"] = std::move( interfaces );
   return copy;
}

}  // namespace

Object onlyInterface( Object const & window, std::string const & intf ) {
   return reduced( window, [&]( Object const & each ) {
      auto const * const name = each.if_contains( "interface" );
      bool const wanted = name && name->is_string() && name->get_string() == intf;
      return wanted ? std::optional<Object>( each ) : std::nullopt;
   } );
}

Object onlyRecent( Object const & window, double seconds ) {
   double const begin = number( window, "asOf" ).value_or( 0 ) - seconds;
   return reduced( window, [&]( Object const & each ) {
      json::array rates;
      for( auto const & cell : list( each, "rates" ) ) {
         if( number( object( cell ), "to" ).value_or( 0 ) > begin ) rates.push_back( cell );
      }
      Object intf;
      if( auto const * const name = each.if_contains( "interface" ) ) intf["interface"] = *name;
      intf["rates"] = std::move( rates );
      return std::optional<Object>( std::move( intf ) );
   } );
}

void Story::windowIs( Object const & window ) {
   auto const & interfaces = list( window, "interfaces" );
   if( interfaces.empty() ) return absentIs( "the last stay of its unit in maintenance was without it" );
   Object const & intf = object( interfaces.front() );
   std::vector<Happening> happenings;
   for( auto const & each : list( intf, "events" ) ) {
      Object const & event = object( each );
      happenings.push_back( { number( event, "time" ).value_or( 0 ), fit( text( event, "kind" ), look_ ),
                              fit( text( event, "text" ), look_ ) } );
   }
   past_ = cellsOf( intf, "inHigh", "outHigh" );
   wallClockOffset_ = number( window, "wallClockOffset" );
   requested_ = number( window, "requested" ).value_or( 0 );
   if( Object const * const profile = inner( intf, "profile" ) ) {
      threshold_ = number( *profile, "thresholdBitsRate" );
      profile_ = fit( text( *profile, "profile" ), look_ );
   }
   happenings_ = std::move( happenings );
   totalHappenings_ = number( intf, "totalEvents" ).value_or( 0 );
   known_ = true;
   absent_.clear();
}

void Story::pressed( Press const & press ) {
   bool const up = press.key == Key::up || press.text == "k";
   bool const down = press.key == Key::down || press.text == "j";
   std::size_t const step = press.key == Key::pageUp || press.key == Key::pageDown ? 10 : 1;
   if( up || press.key == Key::pageUp ) scroll_ -= std::min( scroll_, step );
   if( down || press.key == Key::pageDown ) scroll_ += step;
   if( press.key == Key::home ) scroll_ = 0;
   if( press.key == Key::end ) scroll_ = happenings_.size();
   if( press.text == "-" ) span_ = std::min( span_ + 1, spans.size() - 1 );
   if( press.text == "+" ) span_ = span_ > 0 ? span_ - 1 : 0;
}

std::string Story::timeText( double time ) const {
   std::string const text = clockText( time, { time, wallClockOffset_ } );
   // The date is that of the stay, which everybody in front of it knows.
   return wallClockOffset_ ? text.substr( std::min<std::size_t>( text.size(), 11 ) ) : text;
}

std::vector<Cell> Story::cells( Intf const * live ) const {
   std::vector<Cell> all = past_;
   if( !live ) return all;
   for( Cell cell : live->series->cells() ) {
      if( !all.empty() ) cell.from = std::max( cell.from, all.back().to );
      if( cell.to > cell.from ) all.push_back( cell );
   }
   return all;
}

double Story::spanSeconds( double now, std::vector<Cell> const & cells ) const {
   double const begin = known_ ? requested_ : cells.empty() ? now : cells.front().from;
   double const whole = std::max( now - begin, 60.0 );
   return span_ > 0 ? std::min( spans.at( span_ ), whole ) : whole;
}

std::vector<Line> Story::lines( Size size, Intf const * live, double now ) {
   std::vector<Line> lines;
   addHead( lines, live, now, size.columns );
   auto const measured = cells( live );
   int const columns = std::max( size.columns - scaleColumns - 1, 1 );
   Ticks const ticks = lastColumns( now, spanSeconds( now, measured ), columns );
   // A third for what happened, at least one line of it.
   int const left = size.rows - static_cast<int>( lines.size() );
   int const happened = std::clamp( std::min( left / 3, static_cast<int>( happenings_.size() ) ), 1, 12 );
   addCharts( lines, measured, ticks, left - happened - 3 );
   addAxis( lines, ticks );
   addHappenings( lines, size );
   for( Line & line : lines ) line.fitTo( size.columns, look_ );
   lines.resize( static_cast<std::size_t>( std::max( size.rows, 0 ) ) );
   return lines;
}

void Story::addHead( std::vector<Line> & lines, Intf const * live, double now, int columns ) const {
   Line first;
   first.add( live ? live->name : fit( intf_, look_ ), Style::strong );
   if( live && live->standing != Standing::none ) {
      first.add( "  " + live->verdict, styleOf( live->standing ) );
      if( live->since ) first.add( " for " + spanText( now - *live->since ) );
      if( live->distance() ) first.add( "  " + distanceText( *live ), styleOf( live->standing ) );
   }
   Line right;
   if( threshold_ ) right.add( "threshold " + Kel::rateText( *threshold_ ) + ", profile " + profile_, Style::faint );
   lines.push_back( between( first, right, columns, look_ ) );
   if( live && !live->why.empty() ) lines.emplace_back().add( live->why, Style::faint );
   if( !absent_.empty() ) lines.emplace_back().add( absent_, Style::unknown );
}

void Story::addCharts( std::vector<Line> & lines, std::vector<Cell> const & cells, Ticks const & ticks,
                       int rows ) const {
   struct Part {
      Direction direction;
      char const * name;
   };
   std::vector<Part> parts{ { Direction::in, "in" }, { Direction::out, "out" } };
   // One for both where two would be too flat to be read.
   if( rows < 10 ) parts = { { Direction::either, "in or out, the higher" } };
   double top = 0;
   for( auto const & rate : highest( cells, Direction::either, ticks ) ) top = std::max( top, rate.value_or( 0 ) );
   for( auto const & [direction, name] : parts ) {
      auto const rates = highest( cells, direction, ticks );
      Line title;
      title.add( std::string( scaleColumns, ' ' ) );
      title.add( name, Style::strong );
      auto const last = std::find_if( rates.rbegin(), rates.rend(), []( auto const & rate ) { return rate; } );
      if( last != rates.rend() ) title.add( "  " + Kel::rateText( **last ), Style::faint );
      lines.push_back( title );
      int const each = rows / static_cast<int>( parts.size() ) - 1;
      for( Line & line : chart( { rates, threshold_, top, std::max( each, 2 ), look_ } ) ) {
         lines.push_back( std::move( line ) );
      }
   }
}

Line Story::marks( Ticks const & ticks ) const {
   std::vector<Mark const *> at( static_cast<std::size_t>( ticks.columns ), nullptr );
   for( Happening const & happening : happenings_ ) {
      double const column = std::floor( ( happening.time - ticks.from ) / ticks.step );
      Mark const * const mark = markOf( happening.kind );
      if( mark && column >= 0 && column < ticks.columns ) at[static_cast<std::size_t>( column )] = mark;
   }
   Line line;
   line.add( std::string( scaleColumns - 1, ' ' ) + ( look_.unicode ? "\u2514" : "+" ), Style::faint );
   char const * const base = look_.unicode ? "\u2500" : "-";
   for( Mark const * const mark : at ) line.add( mark ? mark->sign : base, mark ? mark->style : Style::faint );
   return line;
}

void Story::addAxis( std::vector<Line> & lines, Ticks const & ticks ) const {
   lines.push_back( marks( ticks ) );
   double const end = ticks.from + ticks.step * ticks.columns;
   Line times;
   times.add( std::string( scaleColumns, ' ' ) + timeText( ticks.from ), Style::faint );
   Line right;
   right.add( timeText( end ) + " ", Style::faint );
   if( ticks.columns > 40 ) {
      std::string const middle = timeText( ticks.from + ticks.step * ( ticks.columns / 2 ) );
      int const gap = scaleColumns + ticks.columns / 2 - columnsOf( middle ) / 2 - times.columns();
      times.add( std::string( static_cast<std::size_t>( std::max( gap, 1 ) ), ' ' ) + middle, Style::faint );
   }
   lines.push_back( between( times, right, scaleColumns + ticks.columns + 1, look_ ) );
}

// The latest first.
void Story::addHappenings( std::vector<Line> & lines, Size size ) {
   if( happenings_.empty() ) {
      if( known_ ) lines.emplace_back().add( "nothing has happened to it in this stay", Style::faint );
      return;
   }
   int const room = std::max( size.rows - static_cast<int>( lines.size() ), 1 );
   std::size_t const surplus = happenings_.size() - std::min( happenings_.size(), static_cast<std::size_t>( room ) );
   scroll_ = std::min( scroll_, surplus );
   for( auto each = happenings_.rbegin() + static_cast<std::ptrdiff_t>( scroll_ ); each != happenings_.rend();
        ++each ) {
      Mark const * const mark = markOf( each->kind );
      Line & line = lines.emplace_back();
      line.add( timeText( each->time ) + "  ", Style::faint );
      line.add( padded( mark ? mark->sign : "", 3 ), mark ? mark->style : Style::plain );
      line.add( padded( each->kind, 9 ), mark ? mark->style : Style::plain );
      line.add( " " + each->text );
   }
   auto const kept = static_cast<double>( happenings_.size() );
   if( totalHappenings_ > kept ) {
      lines.emplace_back().add( Kel::numberText( kept, 0 ) + " of " + Kel::numberText( totalHappenings_, 0 ) +
                                   " events are kept: the first and the last",
                                Style::faint );
   }
}

}  // namespace Cli::Watch

#include "watch/Order.h"

#include <algorithm>
#include <cctype>

namespace Cli::Watch {

namespace {

constexpr Order lastOrder = Order::changed;
constexpr Show lastShow = Show::settled;

bool isDigit( char c ) { return c >= '0' && c <= '9'; }

std::string lower( std::string text ) {
   // Bytes of a character that is not ASCII stay.
   for( char & c : text ) c = c >= 'A' && c <= 'Z' ? static_cast<char>( c - 'A' + 'a' ) : c;
   return text;
}

// The number at the front, without zeros before it.
std::string_view numberAt( std::string_view text ) {
   auto const end = std::find_if_not( text.begin(), text.end(), isDigit );
   std::string_view number = text.substr( 0, static_cast<std::size_t>( end - text.begin() ) );
   number.remove_prefix( std::min( number.find_first_not_of( '0' ), number.size() ) );
   return number;
}

double rate( Intf const & intf ) { return std::max( intf.in.value_or( -1 ), intf.out.value_or( -1 ) ); }

// What comes first has the lower number; NaN cannot come about.
double holdingKey( Intf const & intf ) {
   switch( intf.standing ) {
      case Standing::loud: return -intf.distance().value_or( 0 );
      case Standing::proving: return -intf.neededSeconds.value_or( 0 );
      // What was left out says nothing of the network, so it stands behind.
      case Standing::settled: return intf.verdict == "left out" ? 1 : 0;
      case Standing::unknown:
      case Standing::none: return 0;
   }
   return 0;
}

double key( Intf const & intf, Order order ) {
   switch( order ) {
      case Order::holding: return holdingKey( intf );
      case Order::name: return 0;
      case Order::rate: return -rate( intf );
      case Order::needed: return -intf.neededSeconds.value_or( intf.standing == Standing::settled ? 0 : 1e15 );
      case Order::changed: return -intf.since.value_or( 0 );
   }
   return 0;
}

}  // namespace

char const * orderName( Order order ) {
   switch( order ) {
      case Order::holding: return "what holds it up";
      case Order::name: return "name";
      case Order::rate: return "rate";
      case Order::needed: return "still needed";
      case Order::changed: return "last change";
   }
   return "";
}

Order nextOrder( Order order ) {
   return order == lastOrder ? Order::holding : static_cast<Order>( static_cast<int>( order ) + 1 );
}

char const * showName( Show show ) {
   switch( show ) {
      case Show::all: return "all";
      case Show::unsettled: return "not settled";
      case Show::loud: return "loud";
      case Show::unknown: return "not known";
      case Show::proving: return "being proven";
      case Show::settled: return "settled";
   }
   return "";
}

Show nextShow( Show show ) { return show == lastShow ? Show::all : static_cast<Show>( static_cast<int>( show ) + 1 ); }

bool Selection::admits( Intf const & intf ) const {
   auto const among = [&] {
      switch( show ) {
         case Show::all: return true;
         case Show::unsettled: return intf.standing != Standing::settled;
         case Show::loud: return intf.standing == Standing::loud;
         case Show::unknown: return intf.standing == Standing::unknown;
         case Show::proving: return intf.standing == Standing::proving;
         case Show::settled: return intf.standing == Standing::settled;
      }
      return true;
   };
   if( !among() ) return false;
   std::string const wanted = lower( pattern );
   return lower( intf.name ).find( wanted ) != std::string::npos || intf.verdict.starts_with( wanted );
}

std::vector<Intf const *> selected( Unit const & unit, Selection const & selection ) {
   std::vector<Intf const *> chosen;
   for( Intf const & intf : unit.intfs ) {
      if( intf.standing != Standing::none && selection.admits( intf ) ) chosen.push_back( &intf );
   }
   auto const before = [&]( Intf const * a, Intf const * b ) {
      if( selection.order == Order::holding && a->standing != b->standing ) return a->standing < b->standing;
      double const keyA = key( *a, selection.order );
      double const keyB = key( *b, selection.order );
      return keyA != keyB ? keyA < keyB : nameBefore( a->name, b->name );
   };
   std::sort( chosen.begin(), chosen.end(), before );
   if( selection.reversed ) std::reverse( chosen.begin(), chosen.end() );
   return chosen;
}

bool nameBefore( std::string const & a, std::string const & b ) {
   std::string_view restA = a;
   std::string_view restB = b;
   while( !restA.empty() && !restB.empty() ) {
      if( isDigit( restA.front() ) && isDigit( restB.front() ) ) {
         std::string_view const numberA = numberAt( restA );
         std::string_view const numberB = numberAt( restB );
         if( numberA.size() != numberB.size() ) return numberA.size() < numberB.size();
         if( numberA != numberB ) return numberA < numberB;
         restA.remove_prefix( std::min( restA.find_first_not_of( "0123456789" ), restA.size() ) );
         restB.remove_prefix( std::min( restB.find_first_not_of( "0123456789" ), restB.size() ) );
      } else {
         // As bytes, so that what is not ASCII stands behind what is.
         if( restA.front() != restB.front() ) return restA.substr( 0, 1 ) < restB.substr( 0, 1 );
         restA.remove_prefix( 1 );
         restB.remove_prefix( 1 );
      }
   }
   // "eth01" and "eth1" are two names.
   return restA.empty() && restB.empty() ? a < b : restA.empty();
}

}  // namespace Cli::Watch

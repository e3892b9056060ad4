// What the judge says to the answers of requests and questions.
#include <algorithm>
#include <cmath>

#include "Oracle.h"

namespace Lives {

namespace json = boost::json;

namespace {

bool null( json::object const & said, char const * name ) { return said.at( name ).is_null(); }
double number( json::object const & said, char const * name ) { return said.at( name ).to_number<double>(); }

// Equal but for the last digits, as rates that were added up in another order.
bool same( double a, double b ) { return std::abs( a - b ) <= 1e-9 * std::max( std::abs( a ), std::abs( b ) ); }

}  // namespace

// Requests

void Oracle::enter( json::object const & line, bool alone ) {
   auto const u = unit( line.at( "enter" ).as_string() );
   if( !u ) return;
   Stay & stay = stays_[*u];
   Request request{ *u, stay.leftOut, "" };
   std::set<size_t> without;
   bool known = true;
   auto const & ports = told_.units()[*u].ports;
   if( auto const * const names = line.if_contains( "without" ) ) {
      for( json::value const & intf : names->as_array() ) {
         size_t const p = told_.port( intf.as_string() );
         known = known && std::find( ports.begin(), ports.end(), p ) != ports.end();
         without.insert( p );
      }
   }
   bool const refused = !known || std::any_of( ports.begin(), ports.end(), [&]( size_t p ) {
      return !without.contains( p ) && ( told_.ports()[p].said == Said::gone || told_.odd( p ) );
   } );
   if( alone && stay.state == State::active ) request.expected = refused ? "refused" : "started";
   if( alone && onTheWay( *u ) && known ) request.expected = "already";
   // At once, as the answers that come with it are given without them.
   if( stay.state == State::active ) stay.leftOut = without;
   if( onTheWay( *u ) && known ) stay.leftOut.insert( without.begin(), without.end() );
   requests_.push_back( request );
   reselect();
}

void Oracle::requested( json::object const & answer ) {
   if( requests_.empty() ) return expect( false, "answer", { "to nothing" } );
   Request const request = requests_.front();
   requests_.erase( requests_.begin() );
   std::string const result( answer.at( "result" ).as_string() );
   std::string const verb( answer.at( "request" ).as_string() );
   count( verb + " " + result );
   expect( request.expected.empty() || result == request.expected, "request" );
   expect( ( result == "refused" ) == null( answer, "generation" ), "request" );
   if( result == "refused" ) stays_[request.unit].leftOut = request.leftOutBefore;
   if( !stays_[request.unit].leftOut.empty() && result == "started" ) count( "entered without some" );
}

// Answers

void Oracle::answer( json::object const & answer ) {
   answer_ = &answer;
   judge( answer );
   answer_ = nullptr;
}

void Oracle::judge( json::object const & answer ) {
   if( answer.contains( "request" ) ) return requested( answer );
   if( answer.contains( "status" ) ) return status( answer.at( "status" ).as_object() );
   auto const * const ready = answer.if_contains( "ready" );
   if( !ready ) return;
   if( asked_.empty() ) return expect( false, "answer", { "to nothing" } );
   size_t const u = asked_.front();
   asked_.erase( asked_.begin() );
   count( ready->as_bool() ? "ready said" : "not ready said" );
   if( ready->as_bool() ) expectProven( u, "is ready" );
   expectDue( u, ready->as_bool() );
   expect( ready->as_bool() || !answer.at( "why" ).as_array().empty() || !onTheWay( u ), "no reason" );
}

void Oracle::status( json::object const & said ) {
   auto const u = unit( said.at( "unit" ).as_string() );
   if( !u ) return expect( false, "status", { "no such unit" } );
   auto const & ports = told_.units()[*u].ports;
   auto const & intfs = said.at( "interfaces" ).as_array();
   expect( intfs.size() == ports.size(), "status", { "interfaces" } );
   if( fault_ ) return;
   bool const under = onTheWay( *u ) || stays_[*u].state == State::leaving;
   bool settled = true;
   double provenUntil = HUGE_VAL;
   for( size_t i = 0; i < ports.size() && !fault_; ++i ) {
      auto const & one = intfs[i].as_object();
      expect( one.at( "interface" ).as_string() == name( ports[i] ), "status", { "order" } );
      if( !under ) continue;
      account( *u, ports[i], one );
      settled = settled && one.at( "settled" ).as_bool();
      if( one.at( "verdict" ) == "quiet" ) provenUntil = std::min( provenUntil, known_[ports[i]].lastReading );
   }
   bool const ready = said.at( "ready" ).as_bool();
   expect( ready == ( onTheWay( *u ) && settled ), "status", { "ready" } );
   expect( null( said, "provenUntil" ) == ( !ready || provenUntil == HUGE_VAL ), "status", { "provenUntil" } );
   if( !null( said, "provenUntil" ) ) {
      expect( std::abs( number( said, "provenUntil" ) - provenUntil ) < rounding, "status", { "provenUntil" } );
   }
   expect( said.at( "disturbed" ).as_bool() == stays_[*u].disturbed, "status", { "disturbed" } );
   if( ready ) expectProven( *u, "is ready" );
   expectDue( *u, ready );
}

void Oracle::account( size_t unit, size_t port, json::object const & said ) {
   Known const & k = known_[port];
   std::string const verdict( said.at( "verdict" ).as_string() );
   bool const settled = said.at( "settled" ).as_bool();
   count( verdict + ( settled ? ", settled" : "" ) );
   std::string const why = proven( unit, port );
   expect( !settled || why.empty(), "false settled", { name( port ), ": ", why } );
   if( onTheWay( unit ) && due( unit, port ) ) {
      count( "due: " + verdict );
      expect( settled, "false unsettled", { name( port ), " is long due" } );
   }
   expect( ( verdict == "left out" ) == stays_[unit].leftOut.contains( port ), "verdict", { name( port ) } );
   std::set<std::string> possible{ "left out" };
   if( k.published == Published::gone ) possible.insert( { "gone", "missing" } );
   if( k.published == Published::down ) possible.insert( { "down", k.entry ? "held" : "down" } );
   if( k.published == Published::up ) possible.insert( { "unwatched", "waiting", "quiet", "loud" } );
   expect( possible.contains( verdict ), "verdict", { name( port ) } );
   bool const rated = verdict == "quiet" || verdict == "loud";
   // What is left out may be shown with what it carries, and a run that waits for its next reading with its last.
   bool const shown = !null( said, "inBitsRate" );
   bool const mayBeShown = rated || verdict == "left out" || k.quietSince;
   expect( shown == !null( said, "outBitsRate" ) && ( shown || !rated ) && ( !shown || mayBeShown ), "rates",
           { name( port ) } );
   expect( null( said, "quietSince" ) == ( verdict != "quiet" ), "quietSince", { name( port ) } );
   if( settled ) expect( number( said, "stillNeededSeconds" ) == 0, "stillNeededSeconds", { name( port ) } );
   if( verdict == "loud" ) expect( k.loud, "false loud", { name( port ) } );
   if( rated && !fault_ ) reading( port, verdict == "quiet", said );
}

// A reading is shown as it truly was.
void Oracle::reading( size_t port, bool quiet, json::object const & said ) {
   Known const & k = known_[port];
   expect(
      same( number( said, "inBitsRate" ), k.rates.way[in] ) && same( number( said, "outBitsRate" ), k.rates.way[out] ),
      "rates",
      { name( port ), " truly: ", std::to_string( k.rates.way[in] ), ", ", std::to_string( k.rates.way[out] ) } );
   if( quiet ) {
      expect( k.quietSince.has_value(), "false quiet", { name( port ) } );
      if( k.quietSince )
         expect( number( said, "quietSince" ) >= *k.quietSince - rounding, "false quiet", { name( port ) } );
      expect( number( said, "quietSince" ) < k.lastReading, "false quiet", { name( port ) } );
   }
   expect( same( number( said, "thresholdBitsRate" ), k.profile->thresholdBitsRate ), "threshold", { name( port ) } );
   expect( number( said, "loadIntervalSeconds" ) == k.profile->loadInterval, "load interval", { name( port ) } );
}

}  // namespace Lives

// What the judge asks: whether an answer is justified, and whether another one was due.
#include <algorithm>
#include <cmath>
#include <utility>

#include "Oracle.h"
#include "records/Names.h"

namespace Lives {

namespace {

std::string secondsText( double seconds ) { return std::to_string( seconds ) + " s"; }

}  // namespace

bool Oracle::onTheWay( size_t unit ) const {
   return stays_[unit].state == State::entering || stays_[unit].state == State::inMaintenance;
}

// Since the request; for what has joined the unit since then only if it was there when it joined, or came later.
bool Oracle::seen( size_t unit, size_t port, bool joined ) const {
   Port const & p = told_.ports()[port];
   if( p.said != Said::gone ) return true;
   double const since = joined ? joined_.at( { told_.units()[unit].name, port } ) : 0;
   return p.presentAt >= stays_[unit].requested && ( !joined || p.presentAt > since );
}

// Is "settled" justified?

std::string Oracle::proven( size_t unit, size_t port ) const {
   Known const & k = known_[port];
   if( stays_[unit].leftOut.contains( port ) ) return {};
   if( k.published == Published::up ) return k.entry ? "it is up although it is to be held down" : provenQuiet( port );
   if( !seen( unit, port, false ) ) return "there has been no such link since the request";
   if( k.entry && k.published == Published::down ) return {};
   double const since = std::max( { k.notUpSince, k.entryTaken, startedAt_ } );
   if( now() - since >= k.profile->loadInterval - rounding ) return {};
   return "it is down or gone for " + secondsText( now() - since ) + " only";
}

std::string Oracle::provenQuiet( size_t port ) const {
   Known const & k = known_[port];
   if( !k.monitored ) return "nobody samples it";
   if( !k.quietSince ) return "its last reading was not quiet, or does not count any more";
   double const quiet = k.lastReading - *k.quietSince;
   if( quiet < k.profile->loadInterval - rounding )
      return "it is known to be quiet for " + secondsText( quiet ) + " only";
   double const interval = ( k.passive ? 2 : 1 ) * k.profile->sampleInterval;
   if( now() - k.lastReading > 2 * interval + 1 + rounding ) {
      return "its last reading is " + secondsText( now() - k.lastReading ) + " old";
   }
   return provenInOctets( port );
}

// Without a look at samples: what flowed in the load interval must be below the threshold as a whole. All that flowed
// in a sample of which only the end lies in that time may have flowed in that end.
std::string Oracle::provenInOctets( size_t port ) const {
   Known const & k = known_[port];
   double const span = k.profile->loadInterval;
   if( span == 0 ) return {};
   Rates const flowed = told_.combined( port, [&]( size_t ethernet ) {
      Rates const to = told_.octetsAt( ethernet, k.lastReading );
      Rates const from = told_.octetsAt( ethernet, k.lastReading - span );
      return Rates{ { exaggeration * ( to.way[in] - from.way[in] ), exaggeration * ( to.way[out] - from.way[out] ) } };
   } );
   double const most = k.profile->thresholdBitsRate * ( span + k.longestSpan ) / 8 + 1;
   return flowed.most() < most ? "" : std::to_string( flowed.most() ) + " octets flowed in the load interval";
}

void Oracle::expectProven( size_t unit, std::string const & said ) {
   expect( onTheWay( unit ), "ready outside", { told_.units()[unit].name, " ", said, " while it is not on its way" } );
   for( size_t const p : told_.units()[unit].ports ) {
      std::string const why = proven( unit, p );
      expect( why.empty(), "false ready", { told_.units()[unit].name, " ", said, ", but ", name( p ), ": ", why } );
   }
}

// Is it due?

bool Oracle::due( size_t unit, size_t port ) const {
   Known const & k = known_[port];
   if( stays_[unit].leftOut.contains( port ) ) return true;
   if( !seen( unit, port, true ) ) return false;
   if( k.published == Published::up ) return dueQuiet( port );
   if( k.entry ) return k.published == Published::down;
   double const since = std::max( { k.eventAt, startedAt_, stays_[unit].requested } );
   return now() - since > k.profile->loadInterval + rounding;
}

bool Oracle::dueQuiet( size_t port ) const {
   Known const & k = known_[port];
   if( k.entry || !k.monitored || k.stopped || told_.odd( port ) || !told_.complete( port ) ) return false;
   auto const rows = told_.rows( port );
   bool const readable = std::all_of( rows.begin(), rows.end(), [this]( size_t row ) {
      Port const & p = told_.ports()[row];
      return p.row && !p.unread && !p.valueless[in] && !p.valueless[out];
   } );
   if( rows.empty() || !readable ) return false;
   // A timer fires on the first whole second, counted from the start of the agent, at which it is due.
   double const passive = std::ceil( 2 * k.profile->sampleInterval );
   double const since = std::max( { k.calmSince, k.eventAt, k.monitoredSince, startedAt_ } );
   return now() - since > k.profile->loadInterval + 2 * passive + 1;
}

void Oracle::expectDue( size_t unit, bool ready ) {
   if( ready || !onTheWay( unit ) ) return;
   auto const & ports = told_.units()[unit].ports;
   bool const all = std::all_of( ports.begin(), ports.end(), [&]( size_t p ) { return due( unit, p ); } );
   expect( !all, "false wait",
           { told_.units()[unit].name, " is not ready, and all its interfaces are quiet for long" } );
}

// A stage that ends by "continue" promises nothing.
void Oracle::entered( size_t unit ) {
   Stay const & stay = stays_[unit];
   auto const verify = told_.enterStages().find( std::string( Maintenance::verifyStage ) );
   bool const late = verify != told_.enterStages().end() && verify->second.onTimeout == OnTimeout::proceed &&
                     verify->second.timeout && stay.verifyBegan &&
                     now() - *stay.verifyBegan >= *verify->second.timeout - rounding;
   count( late ? "in maintenance by \"continue\"" : "in maintenance" );
   if( !late ) expectProven( unit, "is in maintenance" );
}

void Oracle::becameDisturbed( size_t unit ) {
   count( "disturbed" );
   expect( stays_[unit].state == State::inMaintenance, "disturbed outside", { told_.units()[unit].name } );
   expect( anyLoud( unit ), "false alarm",
           { told_.units()[unit].name, " is disturbed, and no last reading was loud" } );
}

bool Oracle::anyLoud( size_t unit ) const {
   auto const & ports = told_.units()[unit].ports;
   return std::any_of( ports.begin(), ports.end(),
                       [&]( size_t p ) { return known_[p].loud && !stays_[unit].leftOut.contains( p ); } );
}

// Between lines

void Oracle::noteCalm() {
   for( size_t p = 0; p < known_.size(); ++p ) {
      Known & k = known_[p];
      if( !k.profile ) continue;
      // Octets are counted whole: each counter may bring one more than the rate says, in a sample of a second.
      double const octets = 8 * static_cast<double>( told_.rows( p ).size() ) + 1;
      bool const calm = exaggeration * told_.flow( p ).most() + octets < k.profile->thresholdBitsRate;
      if( !calm ) {
         k.calmSince = HUGE_VAL;
      } else if( k.calmSince == HUGE_VAL ) {
         k.calmSince = now();
      }
   }
}

char const * Oracle::publishedText( Published published ) {
   static char const * const texts[] = { "gone", "down", "up" };
   return texts[static_cast<size_t>( published )];
}

// Links are as the lines say, but for those that are held down, and these are down until a line raises them.
void Oracle::checkLinks() {
   for( size_t p = 0; p < known_.size(); ++p ) {
      Known const & k = known_[p];
      Said const said = told_.ports()[p].said;
      Published expected = said == Said::gone ? Published::gone : said == Said::up ? Published::up : Published::down;
      if( k.entry && said == Said::up && !k.raised ) expected = Published::down;
      expect(
         k.published == expected, "link state",
         { name( p ), " is published as ", publishedText( k.published ), ", not as ", publishedText( expected ) } );
   }
}

void Oracle::checkProfiles() {
   for( size_t p = 0; p < known_.size(); ++p ) {
      Known const & k = known_[p];
      if( !k.monitored || k.stopped || !k.profile ) continue;
      bool const byDefault = k.monitorProfile == "#DEFAULTPROFILE" && k.profile->name == told_.defaultProfile();
      expect( byDefault || k.monitorProfile == k.profile->name, "profile in force",
              { name( p ), " is monitored by ", k.monitorProfile, ", not by ", k.profile->name } );
   }
}

// "rollback" lets nobody wait for longer. What a stage has waited before a restart is not told here.
void Oracle::checkDeadlines() {
   auto const verify = told_.enterStages().find( std::string( Maintenance::verifyStage ) );
   if( verify == told_.enterStages().end() || !verify->second.timeout ) return;
   for( size_t u = 0; u < stays_.size(); ++u ) {
      Stay const & stay = stays_[u];
      if( stay.state != State::entering || !stay.verifyBegan || stay.restartedSince ) continue;
      bool const over = now() > *stay.verifyBegan + *verify->second.timeout + rounding;
      if( verify->second.onTimeout == OnTimeout::hold ) {
         if( over ) count( "waits beyond its deadline (line)" );
         continue;
      }
      expect( !over, "deadline", { told_.units()[u].name, " still enters after the deadline of its verify" } );
   }
}

// Traffic that is back must be said, once it has been measured and nothing has happened since.
void Oracle::checkDisturbed() {
   for( size_t u = 0; u < stays_.size(); ++u ) {
      if( stays_[u].state != State::inMaintenance || stays_[u].disturbed ) continue;
      for( size_t const p : told_.units()[u].ports ) {
         Known const & k = known_[p];
         bool const certain =
            k.loud && k.certain && told_.complete( p ) && k.eventAt < k.readingFrom && k.published == Published::up;
         expect( !certain || stays_[u].leftOut.contains( p ), "false calm",
                 { told_.units()[u].name, " is not disturbed, and the last reading of ", name( p ), " was loud" } );
      }
   }
}

// What could be watched is watched, soon after whatever happened to it last: without that all else would be met by
// waiting for ever. The rate monitor may have reason to have stopped sampling; then it still says so.
void Oracle::checkMonitors() {
   constexpr double soon = 1;  // s
   for( size_t u = 0; u < stays_.size(); ++u ) {
      if( !onTheWay( u ) ) continue;
      for( size_t const p : told_.units()[u].ports ) {
         Known const & k = known_[p];
         bool const can = k.published == Published::up && !k.entry && !told_.odd( p );
         double const since = std::max( { k.eventAt, startedAt_, stays_[u].requested, stays_[u].stateSince } );
         if( !can || stays_[u].leftOut.contains( p ) || now() - since <= soon ) continue;
         expect( k.monitored, "not monitored", { name( p ), " of ", told_.units()[u].name } );
      }
   }
}

}  // namespace Lives

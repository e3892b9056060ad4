#include "evidence/Watched.h"

#include <algorithm>
#include <cmath>

#include "kel/ActivityLoop.h"
#include "kel/FetchAhead.h"

namespace Evidence {

using Interface::IntfOperStatus;
using Maintenance::MonIntfState;

namespace {

// Times are sums of doubles: what was meant to be a whole load interval may lack less than this, in seconds. A span
// that is short by a microsecond is short.
constexpr double rounding = 0.5e-6;

bool fills( double span, double interval ) { return span >= interval - rounding; }

// The kind of readings that no trend is made of; of others it is the load interval of theirs, in seconds.
constexpr uint32_t noTrend = std::numeric_limits<uint32_t>::max();

// A reading that is older no longer says what is now. Two samples may be lost without harm, and the wheel may be late.
double stalesAfter( double sampleInterval ) { return 2 * sampleInterval + 1; }

}  // namespace

Watched::Watched( Lumo::IntfId intf, Sources const & sources ) : sources_( sources ), intf_( intf ) {
   // What nobody has watched before counts from now; a link that has been down for longer is known to have been.
   lookUpRecords();
   if( !link_ ) awaySince_ = Kel::now();
   if( auto const since = sources_.awaySince( intf ) ) awaySince_ = *since;
   entered_ = sources_.entered( intf );
}

double Watched::sampleInterval() const {
   if( !monitor_ || !profile_ ) return 0;
   bool const passive = monitor_->state() == MonIntfState::passiveMonitoring;
   return passive ? 2 * profile_->sampleInterval() : profile_->sampleInterval();
}

void Watched::fetchSources() const {
   readings_.fetchNext();
   if( monitor_ ) {
      Kel::fetch( monitor_->curRates() );
      Kel::fetch( monitor_->totalSamples() );
   }
   for( auto const * const row : counters_ ) Kel::fetch( row->sequence );
}

void Watched::handleLink( LinkChange change ) {
   recordsMoved_ = true;
   lookAtLink();
   switch( change ) {
      case LinkChange::away: {
         if( awaySince_ == never ) awaySince_ = Kel::now();
         char const * const text = sources_.link( intf_ ) ? "its link went down" : "its link vanished";
         onIntfEvent( "link", text );
         return interrupt( text );
      }
      case LinkChange::up:
         if( awaySince_ != never ) onIntfEvent( "link", "its link came up" );
         awaySince_ = never;
         return interrupt( "its link changed" );
      case LinkChange::madeAgain:
         // Whether the new one is up is told next.
         onIntfEvent( "link", "its link was made again" );
         return interrupt( "its link was made again" );
   }
}

void Watched::handleMonitor( MonitorChange change ) {
   recordsMoved_ = true;
   switch( change ) {
      case MonitorChange::touched: return;  // apply() looks for itself
      case MonitorChange::began:
         sampleTime_ = 0;
         samples_ = 0;
         return interrupt( "its monitoring has just begun" );
      case MonitorChange::ended: return interrupt( "its monitoring ended" );
   }
}

void Watched::handleEntry() {
   bool const entered = sources_.entered( intf_ );
   if( entered == entered_ ) return;
   entered_ = entered;
   recordsMoved_ = true;
   onIntfEvent( "shutdown", entered ? "shut down by its profile" : "no longer shut down" );
}

void Watched::interrupt( char const * cause ) { tellOf( run_.interruptIs( cause ) ); }

void Watched::tellOf( Run::Step const & step ) {
   // Before anybody hears of it.
   if( step.loudEnded ) {
      settle();
      trend_.reset();
   }
   if( step.reading ) keep( step );
   if( step.broke ) onBreak( step );
   if( step.reading && ( step.loud || readingsTold_ ) ) onReading( step );
}

void Watched::keep( Run::Step const & step ) {
   uint32_t const kind = step.loud && profile_ ? profile_->rateMonLoadInterval() : noTrend;
   if( readings_.add( step.from, step.to, step.rates, kind ) ) return;
   settle();
   bool const added = readings_.add( step.from, step.to, step.rates, kind );
   KEL_ASSERT( added );
}

void Watched::settle() {
   readings_.takeAll( [this]( double from, double to, Interface::IntfRates const & rates ) {
      uint32_t const interval = readings_.kind();
      if( interval != noTrend && !trend_ ) trend_ = std::make_unique<Trend>();
      if( interval != noTrend ) trend_->readingIs( from, to, rates, interval );
      onSettled( from, to, rates );
   } );
}

void Watched::lookUpRecords() {
   link_ = sources_.link( intf_ );
   monitor_ = sources_.monitor( intf_ );
   profile_ = sources_.profile( intf_ );
   lookAtLink();
}

void Watched::lookAtLink() {
   up_ = link_ && link_->operStatus() == IntfOperStatus::up;
   down_ = link_ && link_->operStatus() == IntfOperStatus::down;
}

bool Watched::apply( uint32_t counterGeneration ) {
   bool const moved = recordsMoved_;
   recordsMoved_ = false;
   if( moved ) lookUpRecords();
   // The threshold before the sample: the rates are judged by what is in force when they are published.
   applyProfile();
   bool const membersMoved = membersMoved_;
   membersMoved_ = false;
   if( membersMoved ) applyMembers();
   if( !countersKnown_ || countersAt_ != counterGeneration ) lookUpRows();
   if( moved || !plainKnown_ ) plain_ = isPlain();
   plainKnown_ = true;
   applySample();
   return moved;
}

// What most interfaces are at most samples: there is nothing to ask and no text to make.
bool Watched::isPlain() const { return intf_.kind() == Lumo::IntfKind::ethernet && unwatched().empty(); }

void Watched::applyProfile() {
   if( !profile_ ) return;
   double const threshold = profile_->thresholdBitsRate();
   if( judgeable_ && threshold_ != threshold ) tellOf( run_.breakIs( "its threshold changed" ) );
   threshold_ = threshold;
   judgeable_ = true;
}

void Watched::applyMembers() {
   auto const rows = sources_.rowsOf( intf_ );
   if( std::ranges::equal( rows, rows_ ) ) return;
   // The first look at an interface changes nothing that anybody relied on.
   bool const first = !countersKnown_;
   rows_.assign( rows.begin(), rows.end() );
   lookUpRows();
   if( !first ) interrupt( "its members changed" );
}

void Watched::applySample() {
   if( !monitor_ || monitor_->lastSampleTime() == sampleTime_ ) return;
   bool const first = monitor_->totalSamples() == samples_;
   sampleTime_ = monitor_->lastSampleTime();
   samples_ = monitor_->totalSamples();
   uint64_t restarts = 0;
   bool const fresh = freshAt( sampleTime_, restarts );
   // A sampler's first sample is published and not counted. That of a record which an earlier agent left looks like one
   // more of its samples otherwise, and would cover the time in which nobody watched.
   if( first ) {
      interrupt( "its monitoring has just begun" );
      return run_.firstSampleIs( sampleTime_, fresh, restarts );
   }
   // The plug-in may go on sampling a link that is down; what it counts then is of no link that carries traffic.
   if( !up_ || !judgeable_ ) return run_.firstSampleIs( sampleTime_, false, restarts );
   tellOf( run_.sampleIs( { sampleTime_, monitor_->curRates(), fresh, restarts }, threshold_ ) );
}

void Watched::lookUpRows() {
   countersAt_ = sources_.counterGeneration();
   countersKnown_ = true;
   plainKnown_ = false;
   bool const had = complete_;
   counters_.clear();
   for( Lumo::IntfId const row : rows_ ) {
      if( auto const counter = sources_.counter( row ) ) counters_.add( &counter->row() );
   }
   complete_ = !rows_.empty() && counters_.size() == rows_.size();
   if( had && !complete_ ) interrupt( "its counters are gone" );
}

bool Watched::freshAt( double time, uint64_t & restarts ) {
   bool fresh = complete_;
   for( auto const * const row : counters_ ) {
      auto const read = Sources::Counter::lastRead( *row );
      // Exactly in the sample's turn: a later read would hide a restart in between, an earlier one is not of now.
      if( !read || read->readTime != time || !read->inOctets.hasValue() || !read->outOctets.hasValue() ) fresh = false;
      // Of one set of rows each count only grows, so their sum tells whether any did.
      if( read ) restarts += read->restarts;
   }
   return fresh;
}

std::optional<double> Watched::awayFrom() const {
   if( awaySince_ == never ) return std::nullopt;
   // Until our entry went it was down on our account; from then on it has to be down by itself.
   return std::max( awaySince_, sources_.letGo( intf_ ).value_or( awaySince_ ) );
}

std::string Watched::unwatched() const {
   if( entered_ ) return "it is up although it was shut down: nobody samples it";
   if( link_ && link_->operStatus() == IntfOperStatus::unknown ) return "whether its link is up is not known";
   // Asked for what is made of others only: an Ethernet interface is sampled whatever hangs on it.
   if( intf_.kind() != Lumo::IntfKind::ethernet ) {
      if( std::string const reason = sources_.neverWatched( intf_ ); !reason.empty() ) return reason;
   }
   if( !monitor_ ) return "the rate monitor does not sample it yet";
   switch( monitor_->state() ) {
      case MonIntfState::thresholdMonitoring:
      case MonIntfState::passiveMonitoring: break;
      case MonIntfState::notMonitoring: return "the rate monitor does not sample it yet";
      case MonIntfState::monitoringStopped: return "the rate monitor has stopped sampling it";
   }
   bool const own = Lumo::EthIntfId::isEthIntfId( intf_ );
   if( own && !complete_ ) return "it has no counters";
   return profile_ ? "" : "its profile is gone";
}

Outlook Watched::judge( bool seen ) const {
   if( down_ && entered_ ) return { { .verdict = Verdict::held, .settled = true } };
   if( !link_ && !seen ) return { { .verdict = Verdict::missing } };
   if( link_ && !down_ ) return judgeUp();
   // Away: passing between down and gone restarts nothing, so both count from the same moment.
   Outlook found{ { .verdict = link_ ? Verdict::down : Verdict::gone, .countsFrom = awayFrom() } };
   auto & [verdict, settled, countsFrom] = found.judgement;
   if( !profile_ || !countsFrom ) return found;
   settled = fills( Kel::now() - *countsFrom, profile_->rateMonLoadInterval() );
   if( !settled ) found.changes = *countsFrom + profile_->rateMonLoadInterval();
   return found;
}

Outlook Watched::judgeUp() const {
   if( !plain_ && !unwatched().empty() ) return { { .verdict = Verdict::unwatched } };
   if( run_.loud() ) return { { .verdict = Verdict::loud } };
   auto const found = quiet();
   if( !found ) return { { .verdict = Verdict::waiting } };
   return { { .verdict = Verdict::quiet, .settled = found->settled }, changesAfter( found->stale ) };
}

std::optional<Watched::Quiet> Watched::quiet() const {
   if( !run_.quietSince() ) return std::nullopt;
   double const stale = *run_.lastReading() + stalesAfter( sampleInterval() );
   if( Kel::now() > stale ) return std::nullopt;
   return Quiet{ fills( run_.quietSeconds(), profile_->rateMonLoadInterval() ), stale };
}

// The first moment that is later: at `stale` itself the reading still counts.
double Watched::changesAfter( double stale ) { return std::nextafter( stale, never ); }

Pace Watched::pace() {
   if( !run_.loud() || !profile_ || !judgeable_ ) return {};
   // What has not been heard of for long may be anywhere.
   if( Kel::now() > *run_.lastReading() + stalesAfter( sampleInterval() ) ) return {};
   settle();
   return trend_ ? trend_->pace( Kel::now(), threshold_, profile_->rateMonLoadInterval() ) : Pace();
}

double Watched::lacks( Judgement const & judgement ) const {
   double const interval = profile_ ? profile_->rateMonLoadInterval() : 0;
   double const had = judgement.verdict == Verdict::quiet ? run_.quietSeconds()
                                                          : Kel::now() - judgement.countsFrom.value_or( Kel::now() );
   return judgement.settled ? 0 : std::max( 0.0, interval - had );
}

}  // namespace Evidence

// What the judge takes note of: lines, records, and what they mean for each interface.
#include "Oracle.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "evidence/Accounts.h"
#include "records/Errdisable.h"
#include "records/Names.h"

namespace Lives {

namespace json = boost::json;

namespace {

constexpr double endless = std::numeric_limits<double>::infinity();

std::string unitOf( std::string const & instance ) { return instance.substr( 0, instance.find( '#' ) ); }

}  // namespace

double Oracle::exaggeration = 1;

Oracle::Oracle( Sim::World & world )
   : world_( world ), told_( [this]( size_t port, Cause cause ) { handleTold( port, cause ); } ) {
   using Handler = void ( Oracle::* )( Kel::Entity const *, Kel::AttributeInfo const *, std::string const & );
   auto const follow = [this]( Kel::Ptr<Kel::Entity const> const & of, Handler handler ) {
      follows_.push_back( std::make_unique<Follow>(
         of, [this, handler]( auto const * record, auto const * attribute, std::string const & key ) {
            ( this->*handler )( record, attribute, key );
         } ) );
   };
   auto const & state = world.state();
   follow( state.intfStatus, &Oracle::handleLink );
   follow( state.monIntfStatus, &Oracle::handleMonitor );
   follow( state.unitStatus, &Oracle::handleUnit );
   follow( state.enter.progress, &Oracle::handleProgress );
   follow( state.errdisableCauses, &Oracle::handleEntries );
}

// They are made with the first configuration, and anew by each service.
void Oracle::followAccounts() {
   Kel::Ptr<Kel::Entity const> const present =
      world_.database()->getEntity( std::string( Maintenance::Path::accounts ) );
   if( present == accounts_ ) return;
   accounts_ = present;
   accountsFollow_.reset();
   if( !present ) return;
   accountsFollow_ = std::make_unique<Follow>(
      present, [this]( auto const * record, auto const * attribute, std::string const & key ) {
         handleAccounts( record, attribute, key );
      } );
}

Oracle::~Oracle() = default;

Oracle::Known & Oracle::known( size_t port ) {
   while( known_.size() <= port ) {
      known_.emplace_back();
      known_.back().calmSince = endless;
   }
   return known_[port];
}

std::optional<size_t> Oracle::unit( std::string_view name ) const {
   for( size_t u = 0; u < told_.units().size(); ++u ) {
      if( told_.units()[u].name == name ) return u;
   }
   return std::nullopt;
}

void Oracle::expect( bool holds, char const * kind, std::initializer_list<std::string_view> text ) {
   if( holds || fault_ ) return;
   fault_ = Fault{ kind, "t " + std::to_string( now() ) + ": " };
   for( std::string_view const part : text ) fault_->text += part;
   if( answer_ ) fault_->text += ": " + json::serialize( *answer_ );
}

// Lines

void Oracle::before( json::object const & line ) {
   told_.line( line, now() );
   handleVerb( line, true );
   // Here and not at the end: whoever changes with the line must find the interfaces as the line leaves them.
   for( size_t p = 0; p < told_.ports().size(); ++p ) static_cast<void>( known( p ) );
}

void Oracle::handleVerb( json::object const & line, bool alone ) {
   auto const & [verb, argument] = *line.begin();
   if( verb == "batch" ) {
      for( json::value const & each : argument.as_array() ) handleVerb( each.as_object(), false );
   } else if( verb == "config" ) {
      handleConfig();
   } else if( verb == "start" ) {
      handleStart();
   } else if( verb == "stop" || verb == "crash" ) {
      running_ = false;
      away_ = true;
      count( std::string( verb ) );
   } else if( verb == "link" ) {
      raise( argument.as_object() );
   } else if( verb == "enter" ) {
      enter( line, alone );
   } else if( verb == "ready" ) {
      asked_.push_back( unit( argument.as_string() ).value_or( 0 ) );
   } else if( verb == "exit" ) {
      if( auto const u = unit( argument.as_string() ) ) requests_.push_back( { *u, stays_[*u].leftOut, "" } );
   }
}

void Oracle::after( json::object const & line ) {
   followAccounts();
   for( size_t p = 0; p < known_.size(); ++p ) {
      known_[p].made = told_.ports()[p].said == Said::gone;
      known_[p].raised = known_[p].raised && known_[p].entry;
   }
   if( line.begin()->key() == "start" ) takeUpMonitors();
   noteCalm();
   if( !running_ ) return;
   checkLinks();
   checkProfiles();
   checkDeadlines();
   checkDisturbed();
   checkMonitors();
}

void Oracle::raise( json::object const & links ) {
   for( auto const & [name, said] : links ) {
      Known & k = known( told_.port( name ) );
      bool const up = said.is_object() ? said.at( "state" ) == "up" : said == "up";
      k.made = k.made || said.is_null();
      // One that is raised while nobody is there is taken down again by the start.
      k.raised = up && k.entry && running_ && !k.made;
      if( k.raised ) count( "held link raised" );
   }
}

void Oracle::handleConfig() {
   if( stays_.empty() ) startedAt_ = now();
   stays_.resize( told_.units().size() );
   // What becomes of an interface that joins or leaves a unit is told by its accounts at once, by its monitor later.
   std::map<std::pair<std::string, size_t>, double> joined;
   for( Unit const & unit : told_.units() ) {
      for( size_t const p : unit.ports ) {
         auto const before = joined_.find( { unit.name, p } );
         joined[{ unit.name, p }] = before == joined_.end() ? now() : before->second;
         if( before == joined_.end() ) happened( p );
      }
   }
   joined_ = joined;
   reselect();
}

void Oracle::handleStart() {
   running_ = true;
   // The service itself is there from the first configuration on.
   if( stays_.empty() || away_ ) startedAt_ = now();
   away_ = false;
   for( Stay & stay : stays_ ) stay.restartedSince = true;
   for( size_t p = 0; p < known_.size(); ++p ) {
      breakRun( p, Cause::start );
      known_[p].sample.reset();
      known_[p].raised = false;  // the start takes down what is to be held
      happened( p );
   }
}

// A monitor that is there when the service starts has its first sample in the moment of the start. Where that is the
// moment of its last sample before, too, nobody heard of it.
void Oracle::takeUpMonitors() {
   for( size_t p = 0; p < known_.size(); ++p ) {
      auto const record = world_.state().monIntfStatus->monIntfStatus( Lumo::IntfId( name( p ) ) );
      if( !record || known_[p].sample || record->lastSampleTime() != now() ) continue;
      known_[p].sample = sampleNow( p );
      known_[p].spoiled.reset();
   }
}

void Oracle::handleTold( size_t port, Cause cause ) {
   Known & k = known( port );
   happened( port );
   switch( cause ) {
      case Cause::link:
      case Cause::members:
         breakRun( port, cause );
         k.spoiled = cause;
         return;
      case Cause::row:
      case Cause::valueless: k.spoiled = cause; return;
      case Cause::memberLink:
      case Cause::unread:
      case Cause::restart:
      case Cause::profile:
      case Cause::monitor:
      case Cause::start:
      case Cause::loud: return;
   }
}

// `settles`: so many seconds later it is over.
void Oracle::happened( size_t port, double settles ) {
   Known & k = known( port );
   k.eventAt = std::max( k.eventAt, now() + settles );
}

// Records

void Oracle::handleLink( Kel::Entity const * record, Kel::AttributeInfo const * attribute, std::string const & key ) {
   std::string const intf = attribute ? record->name() : key;
   size_t const port = told_.port( intf );
   Known & k = known( port );
   auto const * const status = static_cast<Interface::IntfStatus const *>( record );
   Published const published = !status                                                 ? Published::gone
                               : status->operStatus() == Interface::IntfOperStatus::up ? Published::up
                                                                                       : Published::down;
   if( published == k.published ) return;
   if( published == Published::up || k.published == Published::up ) {
      k.notUpSince = now();
      breakRun( port, Cause::link );
      k.spoiled = Cause::link;
   }
   k.published = published;
   happened( port );
}

void Oracle::handleMonitor( Kel::Entity const * record, Kel::AttributeInfo const * attribute,
                            std::string const & key ) {
   // Also heard of for the directory's sets, which are no records.
   size_t const port = told_.port( attribute ? record->name() : key );
   Known & k = known( port );
   auto const * const status = static_cast<Maintenance::MonIntfStatus const *>( record );
   if( !attribute ) {
      breakRun( port, Cause::monitor );
      k.sample.reset();
      k.monitored = status != nullptr;
      k.monitoredSince = now();
      happened( port );
   } else if( attribute->name() == "lastSampleTime" ) {
      handleSample( port );
   }
   k.passive = status && status->state() == Maintenance::MonIntfState::passiveMonitoring;
   bool const stopped = status && status->state() == Maintenance::MonIntfState::monitoringStopped;
   if( std::exchange( k.stopped, stopped ) != stopped ) happened( port );
   k.monitorProfile = status ? status->profileName().str() : "";
}

void Oracle::handleEntries( Kel::Entity const * record, Kel::AttributeInfo const * attribute,
                            std::string const & key ) {
   if( !attribute || record->name() != Maintenance::shutdownCause ) return;
   auto const & cause = *static_cast<Errdisable::CauseStatus const *>( record );
   size_t const port = told_.port( key );
   Known & k = known( port );
   bool const entry = cause.intfStatus( Lumo::IntfId( key ) ) != nullptr;
   happened( port );
   if( entry == k.entry ) return;
   // One that is made again in the same turn is the same to the links.
   uint64_t const turn = world_.loop().turnNumber();
   if( entry && turn != k.entryTakenIn ) k.raised = false;
   if( !entry ) k.entryTakenIn = turn;
   k.entry = entry;
   if( !entry ) k.entryTaken = now();
   if( entry ) count( "link held down" );
}

void Oracle::handleUnit( Kel::Entity const * record, Kel::AttributeInfo const * attribute, std::string const & ) {
   if( !record || ( attribute && attribute->name() != "state" ) ) return;
   auto const & status = *static_cast<Maintenance::Unit::Status const *>( record );
   if( auto const u = unit( status.name() ) ) unitStateIs( *u, static_cast<State>( status.state() ) );
}

void Oracle::unitStateIs( size_t unit, State state ) {
   Stay & stay = stays_[unit];
   if( stay.state == state ) return;
   State const before = std::exchange( stay.state, state );
   stay.stateSince = now();
   if( state == State::entering ) {
      stay.requested = now();
      stay.restartedSince = false;
      stay.verifyBegan.reset();
   }
   if( state == State::inMaintenance ) entered( unit );
   if( state == State::leaving && before == State::entering ) {
      count( requests_.empty() ? "rolled back" : "left before it had entered" );
   }
   reselect();
}

void Oracle::handleProgress( Kel::Entity const * record, Kel::AttributeInfo const * attribute,
                             std::string const & key ) {
   if( !record ) return;
   auto const & progress = *static_cast<::Stage::Progress const *>( record );
   if( attribute && key != Maintenance::verifyStage ) return;
   bool const * const active = progress.stage( Kel::String8( Maintenance::verifyStage ) );
   auto const u = unit( unitOf( record->name() ) );
   if( u && active && *active && !stays_[*u].verifyBegan ) stays_[*u].verifyBegan = now();
}

void Oracle::handleAccounts( Kel::Entity const * record, Kel::AttributeInfo const * attribute,
                             std::string const & key ) {
   auto const u = unit( attribute ? record->name() : key );
   if( !u ) return;
   Stay & stay = stays_[*u];
   auto const * const accounts = static_cast<Evidence::UnitAccounts const *>( record );
   bool const ready = accounts && accounts->ready();
   bool const disturbed = accounts && accounts->disturbed();
   if( ready && !stay.ready ) {
      count( "became ready" );
      expectProven( *u, "became ready" );
   }
   if( disturbed && !std::exchange( stay.disturbed, disturbed ) ) becameDisturbed( *u );
   stay.ready = ready;
   stay.disturbed = disturbed;
}

// Runs of readings

void Oracle::breakRun( size_t port, Cause cause ) {
   Known & k = known( port );
   if( k.quietSince ) count( std::string( "run broken: " ) + text( cause ) );
   k.quietSince.reset();
   k.loud = false;
}

Oracle::Sample Oracle::sampleNow( size_t port ) const {
   Sample sample{ .time = now(), .found = {} };
   for( size_t const row : told_.rows( port ) ) {
      Port const & p = told_.ports()[row];
      sample.found.push_back(
         { row, told_.octets( row, now() ), p.restartsRead, p.valueless[in] || p.valueless[out] } );
   }
   return sample;
}

void Oracle::handleSample( size_t port ) {
   // All counters are read at once, in the first sample of a turn.
   told_.readAll( now() );
   Sample const sample = sampleNow( port );
   Known & k = known( port );
   if( k.sample ) {
      if( auto const cause = spoiler( port, sample ) ) {
         breakRun( port, *cause );
         if( *cause == Cause::valueless ) asPublished( port );
      } else {
         reading( port, sample );
      }
   }
   k.sample = sample;
   k.spoiled.reset();
}

// Counters that a line has set say what they like. Who takes what they say for loud is not wrong.
void Oracle::asPublished( size_t port ) {
   Known & k = known_[port];
   auto const rates = world_.state().monIntfStatus->monIntfStatus( Lumo::IntfId( name( port ) ) )->curRates();
   k.rates = Rates{ { rates.inBitsRate, rates.outBitsRate } };
   k.loud = k.profile && k.rates.most() >= k.profile->thresholdBitsRate;
   k.certain = false;
}

// Why the sample is no reading.
std::optional<Cause> Oracle::spoiler( size_t port, Sample const & sample ) const {
   Known const & k = known_[port];
   if( k.spoiled ) return k.spoiled;
   if( sample.found.empty() || sample.found.size() != k.sample->found.size() || told_.odd( port ) )
      return Cause::members;
   for( size_t i = 0; i < sample.found.size(); ++i ) {
      Found const & found = sample.found[i];
      Found const & before = k.sample->found[i];
      Port const & row = told_.ports()[found.row];
      if( !row.row ) return Cause::row;
      if( found.valueless || before.valueless ) return Cause::valueless;
      if( row.readAt != sample.time || row.readBefore < k.sample->time ) return Cause::unread;
      if( found.restarts != before.restarts ) return Cause::restart;
   }
   return std::nullopt;
}

Rates Oracle::average( size_t port, Sample const & from, Sample const & to ) const {
   return told_.combined( port, [&]( size_t ethernet ) {
      Rates rates;
      for( size_t i = 0; i < to.found.size(); ++i ) {
         if( to.found[i].row != ethernet ) continue;
         for( Way const way : { in, out } ) {
            uint64_t const octets = to.found[i].octets.way[way] - from.found[i].octets.way[way];
            rates.way[way] = exaggeration * static_cast<double>( octets * 8 ) / ( to.time - from.time );
         }
      }
      return rates;
   } );
}

void Oracle::reading( size_t port, Sample const & sample ) {
   Known & k = known_[port];
   k.rates = average( port, *k.sample, sample );
   k.readingFrom = k.sample->time;
   k.lastReading = sample.time;
   double const threshold = k.profile ? k.profile->thresholdBitsRate : 0;
   if( k.rates.most() == threshold ) count( "reading exactly at the threshold" );
   // Sums of several may differ in the last digit with the order in which they are added up: then it is either.
   double const digit = sample.found.size() == 1 ? 0 : 1e-9 * threshold;
   k.loud = k.rates.most() >= threshold - digit;
   k.certain = std::abs( k.rates.most() - threshold ) >= digit;
   if( k.loud && k.certain ) {
      breakRun( port, Cause::loud );
      k.loud = true;
      return;
   }
   if( !k.quietSince ) {
      k.quietSince = k.sample->time;
      k.longestSpan = 0;
   }
   k.longestSpan = std::max( k.longestSpan, sample.time - k.sample->time );
}

// Profiles

// Groups of units entering or in maintenance come first, then the order of the configuration. A unit from which the
// interface is left out has no claim to it.
std::string Oracle::selected( size_t port ) const {
   std::vector<Group const *> first, others;
   for( size_t g = 0; g < told_.groups().size(); ++g ) {
      Group const & group = told_.groups()[g];
      if( std::find( group.ports.begin(), group.ports.end(), port ) == group.ports.end() ) continue;
      bool onTheWayIn = false;
      for( size_t u = 0; u < told_.units().size(); ++u ) {
         auto const & groups = told_.units()[u].groups;
         bool const has = std::find( groups.begin(), groups.end(), g ) != groups.end();
         onTheWayIn = onTheWayIn || ( has && onTheWay( u ) && !stays_[u].leftOut.contains( port ) );
      }
      ( onTheWayIn ? first : others ).push_back( &group );
   }
   first.insert( first.end(), others.begin(), others.end() );
   for( Group const * group : first ) {
      if( !group->profile.empty() ) return group->profile;
   }
   return told_.defaultProfile();
}

void Oracle::reselect() {
   if( told_.units().empty() ) return;
   for( size_t p = 0; p < told_.ports().size(); ++p ) {
      Known & k = known( p );
      Profile const & profile = told_.profile( selected( p ) );
      if( k.profile == profile ) continue;
      if( k.profile && k.profile->thresholdBitsRate != profile.thresholdBitsRate ) breakRun( p, Cause::profile );
      // The next sample may still come by the old interval.
      double const pace =
         k.profile && k.profile->sampleInterval != profile.sampleInterval ? 2 * k.profile->sampleInterval : 0;
      k.profile = profile;
      happened( p, pace );
   }
}

}  // namespace Lives

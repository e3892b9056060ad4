#include "record/Recorder.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "config/ConfigText.h"
#include "kel/ActivityLoop.h"
#include "kel/Json.h"
#include "record/Beginning.h"
#include "state/TurnEndRank.h"

namespace Host {

using Kel::value;

namespace {

// Some minutes of a thousand busy links.
constexpr std::size_t journalBytes = 16 * 1024 * 1024;

// The wheel of the rate monitor ticks each second.
constexpr double beatSeconds = 1;

// A recording of a box on which nothing changes goes on all the same, so that an interrupted one has its length.
constexpr double idleSeconds = 10;

// How long before a beat the replay's clock halts, so that what is due on the beat comes as late as it came here.
constexpr double halts = 1e-3;  // s

Kel::Value list( std::vector<std::string> const & texts ) {
   Kel::Value::List values;
   for( std::string const & text : texts ) values.push_back( value( text ) );
   return Kel::Value( Kel::Value::Content( std::move( values ) ) );
}

}  // namespace

// In the turn in which the wheel is made.
class Recorder::Phase final : public Kel::Deferred {
 public:
   explicit Phase( Recorder & owner ) : owner_( owner ) {}
   void onTimeMin() override { owner_.phaseIs( Kel::now() ); }

 private:
   Recorder & owner_;
};

class Recorder::Beat final : public Kel::Clock::NotifieeConst {
 public:
   explicit Beat( Recorder & owner ) : NotifieeConst( Kel::activityLoop().clock() ), owner_( owner ) {}
   void onTimeMin() override;

 private:
   Recorder & owner_;
};

class Recorder::TurnTold final : public Kel::TurnEnd {
 public:
   explicit TurnTold( Recorder & owner ) : TurnEnd( Maintenance::turnRecorded ), owner_( owner ) {}
   void onTurnEnd() override { owner_.endTurn(); }

 private:
   Recorder & owner_;
};

struct Recorder::Active {
   explicit Active( Recorder & owner )
      : box( owner.parts_.state, owner.parts_.links, owner.parts_.rows ),
        decisions( owner.parts_.state, owner.parts_.database,
                   [&owner]( Service::Decision const & decision ) { owner.handleDecision( decision ); } ) {}

   std::shared_ptr<Journal> const journal = std::make_shared<Journal>( journalBytes );
   std::vector<std::weak_ptr<Recording>> recordings;
   RecordedBox box;
   Service::Decisions decisions;
   std::vector<std::string> lines;  // that are not told yet
   bool caused = false;             // something by them, other than decisions
   double nextBeat = 0;             // s, the first that no turn has been at
   std::optional<double> read;      // s, since the last turn that was told
   bool sampled = false;            // likewise, and not by us
   bool reading = false;
   double told = 0;  // s, the last turn that was

   [[nodiscard]] bool awaited( double now ) const {
      return now - told >= idleSeconds || std::ranges::any_of( recordings, [now]( auto const & weak ) {
                auto const recording = weak.lock();
                return recording && recording->endsBy( now );
             } );
   }
};

void Recorder::Beat::onTimeMin() { owner_.turnEnd_->due(); }

Recorder::Recorder( Parts parts )
   : parts_( std::move( parts ) ),
     phase_( Kel::now() ),
     phaseTimer_( std::make_unique<Phase>( *this ) ),
     beat_( std::make_unique<Beat>( *this ) ),
     turnEnd_( std::make_unique<TurnTold>( *this ) ) {
   parts_.links.onLinkIs( [this]( Lumo::IntfId intf ) {
      if( !active_ ) return;
      std::size_t const before = active_->lines.size();
      active_->box.handleLink( intf, active_->lines );
      if( active_->lines.size() != before ) active_->caused = true;
      turnEnd_->due();
   } );
   parts_.service.units().onRequestIs( [this]( auto const & request ) { handleRequest( request ); } );
}

Recorder::~Recorder() {
   parts_.links.onLinkIs( {} );
   parts_.service.units().onRequestIs( {} );
}

void Recorder::handlePluginStart() { phaseTimer_->timeMinIs( Kel::now() ); }

// As the wheel reckons its ticks.
double Recorder::beatAfter( double time ) const {
   double beat = std::floor( ( time - phase_ ) / beatSeconds );
   while( phase_ + beat * beatSeconds <= time ) ++beat;
   return phase_ + beat * beatSeconds;
}

// What happens

void Recorder::line( std::string text ) {
   active_->lines.push_back( std::move( text ) );
   turnEnd_->due();
}

void Recorder::cause( std::string text ) {
   active_->caused = true;
   line( std::move( text ) );
}

void Recorder::handleRead() {
   if( !active_ ) return;
   active_->read = Kel::now();
   if( !active_->reading ) active_->sampled = true;
   turnEnd_->due();
}

void Recorder::handleRequest( Service::UnitService::Request const & request ) {
   if( !active_ || !parts_.state.unitStatus->status( Kel::String8( request.unit ) ) ) return;
   Kel::Value::Object object{ { request.enter ? "enter" : "exit", value( request.unit ) } };
   if( !request.without.empty() ) object.emplace_back( "without", list( request.without ) );
   cause( Kel::toJson( value( std::move( object ) ) ) );
}

void Recorder::handleConfig() {
   if( !active_ ) return;
   auto const & config = parts_.service.config();
   // Links that it names before it names them.
   active_->box.configIs( config, active_->lines );
   cause( Kel::toJson( value( Kel::Value::Object{ { "config", Service::Config::jsonOf( config ) } } ) ) );
}

void Recorder::handleDecision( Service::Decision const & decision ) {
   Kel::Value::Object object;
   if( !decision.unit.empty() ) object.emplace_back( "unit", value( decision.unit ) );
   if( !decision.interface.empty() ) object.emplace_back( "interface", value( decision.interface ) );
   object.emplace_back( "is", value( decision.is ) );
   line( Kel::toJson( value( Kel::Value::Object{ { "recorded", value( std::move( object ) ) } } ) ) );
}

// Recordings

std::shared_ptr<HttpStream> Recorder::record( std::optional<double> seconds ) {
   if( !active_ ) begin();
   auto const end = seconds ? std::optional( Kel::now() + *seconds ) : std::nullopt;
   auto const recording = std::make_shared<Recording>( active_->journal, end );
   active_->recordings.push_back( recording );
   turnEnd_->due();
   return recording;
}

void Recorder::begin() {
   active_ = std::make_unique<Active>( *this );
   active_->box.configIs( parts_.service.config(), active_->lines );
   active_->lines.clear();  // the beginning has them
   active_->nextBeat = beatAfter( Kel::now() );
   // Once now, for the beginning; from here on with each beat.
   active_->reading = true;
   parts_.counters.freshen();
   active_->reading = false;
}

bool Recorder::anybodyRecords() {
   std::erase_if( active_->recordings, []( auto const & recording ) { return recording.expired(); } );
   return !active_->recordings.empty();
}

void Recorder::endTurn() {
   if( !active_ ) return;
   if( !anybodyRecords() ) {
      active_ = nullptr;
      return beat_->timeMinIs( Kel::never );
   }
   // What happened has the plug-in look at counters in a turn that is due at once. The replay is to find them as that
   // turn does, so this one is told together with it.
   bool const goesOn = active_->caused && !active_->sampled && Kel::activityLoop().nextDue() <= Kel::now();
   if( goesOn ) return beat_->timeMinIs( Kel::now() );
   tellTurn();
   for( auto const & weak : active_->recordings ) {
      auto const recording = weak.lock();
      if( !recording || recording->begun() ) continue;
      double const clock = active_->nextBeat - beatSeconds;
      recording->beginIs( beginning( clock ), clock );
   }
   beat_->timeMinIs( active_->nextBeat );
}

void Recorder::tellTurn() {
   Active & a = *active_;
   bool const beat = Kel::now() >= a.nextBeat;
   if( beat ) {
      a.reading = true;
      parts_.counters.freshen();
      a.reading = false;
   }
   a.box.handleTime( a.lines );
   std::vector<std::string> all;
   a.box.counters( std::exchange( a.read, std::nullopt ), all );
   all.insert( all.end(), a.lines.begin(), a.lines.end() );
   a.lines.clear();
   a.caused = false;
   double const now = Kel::now();
   // Where nothing changes and nobody samples there is nothing to tell of most beats.
   bool const toTell = std::exchange( a.sampled, false ) || !all.empty() || ( beat && a.awaited( now ) );
   Journal::Turn turn{ beat ? a.nextBeat - halts : now, now, {} };
   for( std::string const & text : all ) turn.lines += ( turn.lines.empty() ? "" : ", " ) + text;
   if( beat ) a.nextBeat = beatAfter( now );
   if( !toTell ) return;
   a.told = now;
   a.journal->add( std::move( turn ) );
}

std::deque<std::string> Recorder::beginning( double clock ) const {
   RecordBeginning const begin{ .state = parts_.state,
                                .database = parts_.database,
                                .host = parts_.host,
                                .version = parts_.version,
                                .clock = clock,
                                .unixTime = clock + parts_.wallClockOffset() };
   auto lines = begin.head();
   for( std::string & text : active_->box.all() ) lines.push_back( std::move( text ) );
   auto const config = Kel::toJson( Service::Config::jsonOf( parts_.service.config() ) );
   lines.push_back( "{\"batch\": [{\"config\": " + config + "}, {\"start\": {}}]}" );
   return lines;
}

}  // namespace Host

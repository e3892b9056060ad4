#include "Agent.h"

#include <sqlite3.h>

#include <cstring>

#include "evidence/Windows.h"
#include "plugin/Loader.h"

namespace Kills {

namespace {

// What runs around each transaction of every database that this process opens; SQLite knows only functions. Null while
// nobody is to die there.
std::function<void( bool over )> transaction;

int onCommit( void * ) {
   if( transaction ) transaction( false );
   return 0;
}

// A statement has run to its end; what COMMIT promises is on disk.
int onStatement( unsigned, void *, void * statement, void * ) {
   char const * const sql = sqlite3_sql( static_cast<sqlite3_stmt *>( statement ) );
   if( transaction && sql && std::strcmp( sql, "COMMIT" ) == 0 ) transaction( true );
   return 0;
}

int onOpen( sqlite3 * db, char const **, sqlite3_api_routines const * ) {
   sqlite3_commit_hook( db, &onCommit, nullptr );
   sqlite3_trace_v2( db, SQLITE_TRACE_PROFILE, &onStatement, nullptr );
   return SQLITE_OK;
}

std::string watched( std::string const & storeFile ) {
   static int const once = sqlite3_auto_extension( reinterpret_cast<void ( * )()>( &onOpen ) );
   KEL_ASSERT( once == SQLITE_OK );
   return storeFile;
}

}  // namespace

// Programs that take a second, and succeed.
class Agent::SlowHooks final : public Service::Hooks {
 public:
   SlowHooks( World & world, Kel::Ptr<Kel::Clock const> clock ) : world_( world ), clock_( std::move( clock ) ) {}

   void run( Service::HookRequest const & request, Done done ) override {
      world_.pass( setOf( Point::hookStarts ) );
      running_[request.unit] = std::make_unique<Running>( *this, request.unit, std::move( done ) );
   }
   void giveUp( std::string const & unit ) override { running_.erase( unit ); }

 private:
   class Running final : public Kel::Clock::NotifieeConst {
    public:
      Running( SlowHooks & owner, std::string unit, Done done )
         : NotifieeConst( owner.clock_ ), owner_( owner ), unit_( std::move( unit ) ), done_( std::move( done ) ) {
         timeMinIs( Kel::now() + 1 );
      }
      void onTimeMin() override { owner_.ended( unit_, done_ ); }

    private:
      SlowHooks & owner_;
      std::string const unit_;
      Done const done_;
   };

   void ended( std::string unit, Done done ) {
      world_.pass( setOf( Point::hookEnded ) );
      running_.erase( unit );
      done( "" );
   }

   World & world_;
   Kel::Ptr<Kel::Clock const> const clock_;
   std::map<std::string, std::unique_ptr<Running>> running_;
};

Agent::Agent( World & world, Service::Config::Config const & config, std::string const & storeFile )
   : world_( world ),
     kernel_( world ),
     store_( watched( storeFile ) ),
     shift_( Host::Keeper::clockShift( store_.moment(), world.boot(), world.bootTime(), world.now ) ),
     clock_( new Kel::VirtualClock( world.bootTime() + shift_ ) ),
     loop_( Kel::Ptr<Kel::Clock>( clock_ ) ),
     hooks_( std::make_unique<SlowHooks>( world, clock_ ) ) {
   quill_->refresherIs( [this]( auto rows ) { counters_.refresh( rows ); } );
   loop_.turn( [&] { start( config ); } );
}

Agent::~Agent() {
   keeper_ = nullptr;
   control_ = nullptr;
   service_ = nullptr;
   pluginDir_->entityDelAll();
   transaction = {};
}

void Agent::start( Service::Config::Config const & config ) {
   keeper_ = std::make_unique<Host::Keeper>( Host::Keeper::Parts{
      .database = database_,
      .store = store_,
      .tell = [this]( std::string const & text ) { world_.faultIs( text ); },
      .writable = {},
      .wallTime = [this] { return world_.now; },
      .boot = world_.boot(),
      .clockShift = shift_,
   } );
   kept_ = kept( *database_, state_ );
   transaction = [this]( bool over ) { handleTransaction( over ); };
   world_.pass( setOf( Point::storeLoaded ) );
   for( Link const & link : world_.links ) kernel_.changedIs( link.name.data() );
   tellChanges();
   control_ = std::make_unique<Service::LinkControl>( Service::LinkControl::Parts{
      .held = Service::heldLinkDir( *database_ ),
      .causes = state_.errdisableCauses,
      .links = kernel_,
      .keep = [this] { return keeper_->keep(); },
      .tell = {},
      .preserveIpv6 = [this] { return world_.preserveIpv6; },
      .boot = world_.boot(),
   } );
   world_.pass( setOf( Point::linksInStep ) );
   service_ = std::make_unique<Service::MaintenanceService>(
      Service::MaintenanceService::Host{ database_, state_, quill_, links_, *hooks_, {}, {} }, config );
   world_.pass( setOf( Point::serviceMade ) );
   plugin_ = std::make_unique<Maintenance::PluginContext>( pluginDir_, database_, quill_ );
   Maintenance::DefaultPluginLoader().initPlugins( *plugin_ );
   world_.pass( setOf( Point::started ) );
}

void Agent::handleTransaction( bool over ) {
   if( over ) {
      // The same names, so much further on.
      world_.pass( steps_ << stepCount );
      return;
   }
   Kept now = kept( *database_, state_ );
   steps_ = stepsBetween( kept_, now );
   kept_ = std::move( now );
   world_.pass( steps_ | setOf( Point::withinTransaction ) );
}

void Agent::enter( std::string const & unit ) {
   request( [&]( Service::UnitService & units ) { return units.enter( unit, {}, "ann" ); } );
}

void Agent::exit( std::string const & unit ) {
   request( [&]( Service::UnitService & units ) { return units.exit( unit, "bob" ); } );
}

void Agent::request( Request const & carryOut ) {
   loop_.turn( [&] {
      world_.pass( setOf( Point::requestArrived ) );
      static_cast<void>( carryOut( service_->units() ) );
      world_.pass( setOf( Point::requestCarriedOut ) );
      bool const taken = keeper_->keep();
      world_.pass( setOf( Point::requestKept ) );
      world_.answered = taken;
      world_.pass( setOf( Point::requestAnswered ) );
   } );
}

void Agent::tell( std::string const & link ) { kernel_.changedIs( link ); }

void Agent::tellChanges() {
   for( std::string const & name : kernel_.changed() ) tellLink( name );
}

void Agent::tellLink( std::string const & name ) {
   Link const & link = *world_.link( name );
   auto const intf = Lumo::IntfId::declare( name, Lumo::IntfKind::ethernet );
   counters_.intfIs( intf );
   for( auto const direction : { Sim::Direction::in, Sim::Direction::out } ) {
      counters_.bitsPerSecondIs( intf, direction, link.up() ? link.bitsPerSecond : 0 );
   }
   links_.linkIs( intf, { .up = link.up(), .members = {} } );
   // The first links are told before there is anybody to take one down.
   if( control_ ) control_->handleLink( intf );
}

void Agent::runUntil( double time ) {
   double const end = clock_->now() + ( time - world_.now );
   for( ;; ) {
      double const due = kernel_.quiet() ? std::max( loop_.nextDue(), clock_->now() ) : clock_->now();
      double const next = std::min( due, end );
      world_.now += next - clock_->now();
      clock_->nowIs( next );
      loop_.turn( [&] { tellChanges(); } );
      if( next >= end && kernel_.quiet() && loop_.nextDue() > end ) return;
   }
}

std::string Agent::view() const {
   std::string text;
   for( auto const & [line, value] : kept( *database_, state_ ) ) {
      // A start publishes the rate monitor's stage once more where it is over, so that its interfaces are watched.
      if( !line.starts_with( "stage " ) ) text.append( line ).append( ": " ).append( value ).append( "\n" );
   }
   for( Link const & link : world_.links ) {
      text.append( "link " ).append( link.name.data() ).append( link.adminUp ? ": up" : ": down" );
      text.append( ", keeps addresses: " + std::to_string( link.keepAddr ) + "\n" );
   }
   return text;
}

}  // namespace Kills

// Requests and what they are answered; the stages themselves are in UnitServiceStages.cpp.
#include "units/UnitService.h"

#include <algorithm>

#include "kel/QuantityText.h"
#include "records/Names.h"
#include "units/UnitServiceImpl.h"

namespace Service {

using Evidence::Window;

namespace {

std::string joined( std::vector<std::string> const & names ) {
   std::string text;
   for( std::string const & name : names ) text += ( text.empty() ? "" : ", " ) + name;
   return text;
}

template<class Names>
bool contains( Names const & names, std::string_view name ) {
   return std::ranges::find( names, name ) != names.end();
}

}  // namespace

class UnitService::Impl::KelComplete final : public Stage::AgentStatus::NotifieeConst {
 public:
   KelComplete( Impl & owner, Kel::Ptr<Stage::AgentStatus const> const & status ) : owner_( owner ) {
      notifierIs( status );
   }
   // A mark that is taken back comes here too; advance() looks for itself.
   void onComplete( Stage::AgentStatusKey ) override { owner_.advance_->due(); }

 private:
   Impl & owner_;
};

class UnitService::Impl::KelUnit final : public Maintenance::Unit::Status::NotifieeConst {
 public:
   explicit KelUnit( Impl & owner ) : owner_( owner ) {}
   void onState() override {
      auto const severity = notifier()->state() == State::failed ? Severity::error : Severity::notice;
      owner_.tell( EventKind::state, notifier()->unitName(), enumName( notifier()->state() ), severity );
   }
   void handleDel() { owner_.handleUnitDel( notifier()->unitName() ); }

 private:
   Impl & owner_;
};

class UnitService::Impl::KelUnits final : public Maintenance::Unit::StatusDir::NotifieeConst {
 public:
   KelUnits( Impl & owner, Kel::Ptr<Maintenance::Unit::StatusDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onStatus( Kel::String8 unit ) override { owner_.unit_.sync( unit, notifier()->status( unit ) ); }
   void onStatuskelImmediate() override { owner_.unit_.syncAll( notifier()->statusIteratorConst() ); }

 private:
   Impl & owner_;
};

class UnitService::Impl::KelUnitAccounts final : public Evidence::UnitAccounts::NotifieeConst {
 public:
   explicit KelUnitAccounts( Impl & owner ) : owner_( owner ) {}
   void onReady() override { owner_.handleReady( *notifier() ); }
   void onDisturbed() override { owner_.handleDisturbed( *notifier() ); }

 private:
   Impl & owner_;
};

class UnitService::Impl::KelAccounts final : public Evidence::UnitAccountsDir::NotifieeConst {
 public:
   KelAccounts( Impl & owner, Kel::Ptr<Evidence::UnitAccountsDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onUnit( Kel::Name unit ) override { owner_.unitAccounts_.sync( unit, notifier()->unit( unit ) ); }
   void onUnitkelImmediate() override { owner_.unitAccounts_.syncAll( notifier()->unitIteratorConst() ); }

 private:
   Impl & owner_;
};

UnitService::Impl::Impl( Parts const & parts )
   : parts_( parts ),
     book_( parts.state, parts.ledger,
            [this]( Window const & window ) {
               auto const i = find( window.unit() );
               return i && i->window.get() == &window;
            } ),
     advance_( std::make_unique<Advance>( *this ) ),
     unit_( *this ),
     unitAccounts_( *this ),
     units_( std::make_unique<KelUnits>( *this, parts.state.unitStatus ) ),
     accounts_( std::make_unique<KelAccounts>( *this, parts.ledger.accounts() ) ),
     enterComplete_( std::make_unique<KelComplete>( *this, parts.state.enter.agentStatus ) ),
     exitComplete_( std::make_unique<KelComplete>( *this, parts.state.exit.agentStatus ) ) {
   for( auto * stage : { &parts_.state.enter, &parts_.state.exit } ) {
      stage->agentConfig->stageIs( Kel::String8( Maintenance::rateMonStage ), true );
   }
   restore();
}

UnitService::Impl::~Impl() {
   for( auto const & [unit, i] : running_ ) giveUpHook( *i );
}

void UnitService::Impl::tell( EventKind kind, Kel::Name const & unit, std::string const & text,
                              Severity severity ) const {
   auto const record = parts_.state.unitStatus->status( unit );
   parts_.events.tell(
      { .kind = kind, .text = text, .severity = severity, .unit = unit, .generation = record ? record->genId() : 0 } );
}

void UnitService::Impl::handleReady( Evidence::UnitAccounts const & unit ) {
   advance_->due();
   std::vector<std::string> open;
   std::vector<std::string> leftOut;
   for( auto [intf, account] : unit.accountIteratorConst() ) {
      std::string const name( intf.name() );
      if( !account->settled() ) open.push_back( name + ": " + parts_.ledger.why( unit.unitName(), intf ) );
      if( account->verdict() == Evidence::Verdict::leftOut ) leftOut.push_back( name );
   }
   std::string const but = leftOut.empty() ? "" : ", but for " + someOf( leftOut ) + ", left out on request";
   if( unit.ready() ) return tell( EventKind::ready, unit.unitName(), "every interface is proven quiet" + but );
   // Of a unit that has left, its state says it.
   auto const record = parts_.state.unitStatus->status( unit.unitName() );
   bool const in = record && record->state() == State::inMaintenance;
   bool const wanted = in || ( record && record->state() == State::entering );
   // Somebody may be about to rely on it.
   auto const severity = in ? Severity::warning : Severity::notice;
   if( wanted && !open.empty() ) tell( EventKind::notReady, unit.unitName(), someOf( open ), severity );
}

void UnitService::Impl::handleDisturbed( Evidence::UnitAccounts const & unit ) {
   if( !unit.disturbed() ) {
      auto const record = parts_.state.unitStatus->status( unit.unitName() );
      // On its way out nobody asks any more, and nothing was found quiet.
      if( record && record->state() == State::inMaintenance )
         tell( EventKind::quietAgain, unit.unitName(), "no traffic is left" );
      return;
   }
   std::vector<std::string> loud;
   for( auto [intf, account] : unit.accountIteratorConst() ) {
      if( account->verdict() == Evidence::Verdict::loud ) loud.emplace_back( intf.name() );
   }
   tell( EventKind::disturbed, unit.unitName(), "traffic is back: " + someOf( loud ), Severity::warning );
}

// Why no account of this interface could ever be settled; empty when one can.
std::string UnitService::Impl::neverProven( Lumo::IntfId intf ) const {
   if( !parts_.state.intfStatus->intfStatus( intf ) ) return "there is no such link";
   return parts_.links.neverWatched( intf );
}

std::vector<Lumo::IntfId> UnitService::Impl::shutBy( std::string const & unit,
                                                     std::vector<std::string> const & without ) const {
   return parts_.config.shutBy( unit, intfsNamed( without ) );
}

std::string UnitService::Impl::neverShut( Lumo::IntfId intf ) const {
   return parts_.neverShut ? parts_.neverShut( intf ) : "";
}

// Adds a sentence for each thing that stands against it.
void UnitService::Impl::objectTo( std::string const & unit, std::vector<std::string> const & without, bool alsoToLinks,
                                  std::vector<std::string> & why ) const {
   std::vector<std::string> names;
   for( Lumo::IntfId const intf : parts_.config.interfacesOf( unit ) ) names.emplace_back( intf.name() );
   for( std::string const & name : without ) {
      if( contains( names, name ) ) continue;
      why.push_back( name + ": not an interface of unit " + unit +
                     ", so it cannot be left out; its interfaces are: " + joined( names ) );
   }
   if( !alsoToLinks ) return;
   for( Lumo::IntfId const intf : parts_.config.interfacesOf( unit ) ) {
      std::string const name( intf.name() );
      if( contains( without, name ) ) continue;
      std::string const trouble = neverProven( intf );
      if( trouble.empty() ) continue;
      why.push_back( name + ": " + trouble + "; to go on without proof for it: --without " + name );
   }
   for( Lumo::IntfId const intf : shutBy( unit, without ) ) {
      if( std::string const trouble = neverShut( intf ); !trouble.empty() ) {
         std::string const name( intf.name() );
         why.push_back( name + ": its profile shuts it down, and " + trouble + "; to leave it as it is: --without " +
                        name );
      }
   }
}

UnitService::Answer UnitService::Impl::wouldEnter( std::string const & unitName,
                                                   std::vector<std::string> const & without ) const {
   auto const unit = parts_.state.unitStatus->status( Kel::String8( unitName ) );
   if( !unit ) return { Outcome::unknownUnit };
   auto const i = find( unit->unitName() );
   // Not broken off, as an exit does with an entry: it waits for no traffic and is soon over.
   if( i ? i->op == Op::exit : unit->state() == State::leaving ) {
      return {
         Outcome::refused, 0, { "unit " + unitName + " is still leaving maintenance; try again when it is active" } };
   }
   bool const underWay = i || unit->state() == State::entering || unit->state() == State::inMaintenance;
   Answer answer{ underWay ? Outcome::already : Outcome::started, underWay ? unit->genId() : nextGeneration( *unit ) };
   objectTo( unitName, without, !underWay, answer.why );
   if( !answer.why.empty() ) return { Outcome::refused, 0, answer.why };
   for( std::string const & name : without ) answer.why.push_back( name + ": left out of the proof" );
   return answer;
}

UnitService::Answer UnitService::Impl::enter( std::string const & unitName, std::vector<std::string> const & without,
                                              std::string const & requestedBy ) {
   Answer answer = wouldEnter( unitName, without );
   auto const unit = parts_.state.unitStatus->status( Kel::String8( unitName ) );
   switch( answer.outcome ) {
      case Outcome::unknownUnit: break;
      case Outcome::refused:
         // Of no generation: the unit's own is another request's.
         parts_.events.tell(
            { .kind = EventKind::request,
              .text = "enter, asked for by " + requestedBy + ", is refused: " + someOf( answer.why, "; " ),
              .severity = Severity::warning,
              .unit = unit->unitName() } );
         break;
      case Outcome::already: leaveOut( unitName, without, requestedBy ); break;
      case Outcome::started: startEnter( *unit, answer, without, requestedBy ); break;
   }
   return answer;
}

void UnitService::Impl::startEnter( Maintenance::Unit::Status & unit, Answer & answer,
                                    std::vector<std::string> const & without, std::string const & requestedBy ) {
   Kel::Ptr<Window> const window = WindowBook::make( unit.unitName(), answer.generation );
   window->requestedByIs( requestedBy );
   if( parts_.wallClockOffset ) window->wallClockOffsetIs( parts_.wallClockOffset() );
   InstancePtr const i = newInstance( unit, Op::enter, window );
   book_.add( window );
   tell( EventKind::request, i->unit,
         "enter, asked for by " + requestedBy + ": generation " + std::to_string( i->generation ) +
            ( without.empty() ? "" : ", without " + someOf( without ) ) );
   if( !current( i ) ) return;
   intfsAre( i->unit, *window, intfsNamed( without ) );
   if( current( i ) ) start( i );
}

std::set<Lumo::IntfId> UnitService::Impl::intfsNamed( std::vector<std::string> const & names ) const {
   std::set<Lumo::IntfId> intfs;
   for( std::string const & name : names ) intfs.emplace( name );
   return intfs;
}

void UnitService::Impl::leaveOut( std::string const & unitName, std::vector<std::string> const & without,
                                  std::string const & requestedBy ) {
   Kel::Name const unit( unitName );
   auto const window = book_.last( unit );
   if( !window || without.empty() ) return;
   auto const named = intfsNamed( without );
   auto const before = WindowBook::leftOut( *window );
   if( std::ranges::includes( before, named ) ) return;
   intfsAre( unit, *window, named );
   tell( EventKind::request, unit, "without " + someOf( without ) + " as well, asked for by " + requestedBy );
}

// The window, the records that the plug-in reads, and the accounts: the unit's present interfaces, those left out in
// the window or now left out.
void UnitService::Impl::intfsAre( Kel::Name const & unit, Window & window, std::set<Lumo::IntfId> const & leftOut ) {
   Kel::Ptr<Window> const kept( &window );
   auto const intfs = parts_.config.interfacesOf( unit.str() );
   book_.intfsAre( window, intfs, leftOut );
   auto out = WindowBook::leftOut( window );
   // What the configuration has taken out of the unit is not left out of it.
   std::erase_if( out, [&]( Lumo::IntfId intf ) { return !contains( intfs, intf ); } );
   parts_.config.leftOutIs( unit.str(), out );
   // A handler may have ended the unit's stay meanwhile.
   if( kept->outcome() == Ended::underway || find( unit ) ) parts_.ledger.unitIs( unit, intfs, kept );
}

UnitService::Answer UnitService::Impl::exit( std::string const & unitName, std::string const & requestedBy ) {
   auto const unit = parts_.state.unitStatus->status( Kel::String8( unitName ) );
   if( !unit ) return { Outcome::unknownUnit };
   InstancePtr const former = find( unit->unitName() );
   bool const staying =
      former ? former->op == Op::enter : unit->state() == State::inMaintenance || unit->state() == State::failed;
   if( !staying ) return { Outcome::already, unit->genId() };
   auto window = book_.last( unit->unitName() );
   if( former ) window = former->window;
   if( !window ) window = inventedWindow( *unit );
   // The exit takes the place of the entry before that is given up, so that a unit never has two instances.
   InstancePtr const i = newInstance( *unit, Op::exit, window );
   Answer const answer{ Outcome::started, i->generation };
   parts_.ledger.ready( i->unit );
   book_.noteVerdicts( *window, WindowBook::nextRun( *window ) );
   window->exitGenerationIs( i->generation );
   window->exitRequestedIs( Kel::now() );
   window->exitRequestedByIs( requestedBy );
   tell( EventKind::request, i->unit,
         "exit, asked for by " + requestedBy + ": generation " + std::to_string( i->generation ) );
   if( former ) giveUp( *former );
   // An exit that failed has closed the accounts.
   if( current( i ) && unit->state() == State::failed ) intfsAre( i->unit, *window, {} );
   if( current( i ) ) start( i );
   return answer;
}

std::vector<std::string> UnitService::Impl::refusals( Config::Config const & config ) const {
   std::vector<std::string> why;
   for( auto [name, unit] : parts_.state.unitStatus->statusIterator() ) {
      bool const active = unit->state() == State::active || unit->state() == State::unknown;
      if( active && !find( name ) ) continue;
      if( std::ranges::find( config.units, name.str(), &Config::Unit::name ) != config.units.end() ) continue;
      why.push_back( "unit " + name.str() + " cannot be taken away: it is " + enumName( unit->state() ) +
                     ", not active" );
   }
   return why;
}

void UnitService::Impl::handleConfig() {
   for( auto [name, unit] : parts_.state.unitStatus->statusIterator() ) {
      if( !find( name ) && unit->state() != State::inMaintenance ) continue;
      if( auto const window = book_.last( name ) ) intfsAre( name, *window, {} );
   }
   abandonWindows();
}

UnitService::UnitService( Parts const & parts ) : impl_( std::make_unique<Impl>( parts ) ) {}
UnitService::~UnitService() = default;

UnitService::Answer UnitService::enter( std::string const & unit, std::vector<std::string> const & without,
                                        std::string const & requestedBy ) {
   if( onRequest_ ) onRequest_( { true, unit, without } );
   return impl_->enter( unit, without, requestedBy );
}
UnitService::Answer UnitService::exit( std::string const & unit, std::string const & requestedBy ) {
   if( onRequest_ ) onRequest_( { false, unit, {} } );
   return impl_->exit( unit, requestedBy );
}
UnitService::Answer UnitService::wouldEnter( std::string const & unit,
                                             std::vector<std::string> const & without ) const {
   return impl_->wouldEnter( unit, without );
}
std::string UnitService::neverProven( Lumo::IntfId intf ) const { return impl_->neverProven( intf ); }
std::vector<Lumo::IntfId> UnitService::shutBy( std::string const & unit,
                                               std::vector<std::string> const & without ) const {
   return impl_->shutBy( unit, without );
}
std::string UnitService::neverShut( Lumo::IntfId intf ) const { return impl_->neverShut( intf ); }
std::string UnitService::stage( Kel::Name const & unit ) const { return impl_->stage( unit ); }
Kel::Ptr<Window const> UnitService::window( Kel::Name const & unit ) const { return impl_->window( unit ); }
std::vector<std::string> UnitService::refusals( Config::Config const & config ) const {
   return impl_->refusals( config );
}
void UnitService::handleConfig() { impl_->handleConfig(); }

}  // namespace Service

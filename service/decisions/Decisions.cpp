#include "decisions/Decisions.h"

#include <utility>

namespace Service {

namespace {

char const * textOf( Maintenance::Unit::State state ) {
   using Maintenance::Unit::State;
   switch( state ) {
      case State::unknown: return "unknown";
      case State::active: return "active";
      case State::entering: return "entering";
      case State::inMaintenance: return "in maintenance";
      case State::failed: return "failed";
      case State::leaving: return "leaving";
   }
   return "";
}

}  // namespace

class Decisions::KelUnit final : public Maintenance::Unit::Status::NotifieeConst {
 public:
   explicit KelUnit( Decisions & owner ) : owner_( owner ) {}
   void onState() override { owner_.told_( { notifier()->unitName().str(), "", textOf( notifier()->state() ) } ); }

 private:
   Decisions & owner_;
};

class Decisions::KelUnitDir final : public Maintenance::Unit::StatusDir::NotifieeConst {
 public:
   KelUnitDir( Decisions & owner, Kel::Ptr<Maintenance::Unit::StatusDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onStatus( Kel::String8 unit ) override { owner_.units_.sync( unit, notifier()->status( unit ) ); }
   void onStatuskelImmediate() override { owner_.units_.syncAll( notifier()->statusIteratorConst() ); }

 private:
   Decisions & owner_;
};

class Decisions::KelAccount final : public Evidence::Account::NotifieeConst {
 public:
   explicit KelAccount( KelAccounts & owner ) : owner_( owner ) {}
   void onSettled() override;

 private:
   KelAccounts & owner_;
};

class Decisions::KelAccounts final : public Evidence::UnitAccounts::NotifieeConst {
 public:
   explicit KelAccounts( Decisions & owner ) : owner_( owner ), accounts_( *this ) {}
   void onReady() override { tell( "", notifier()->ready() ? "ready" : "not ready" ); }
   void onDisturbed() override { tell( "", notifier()->disturbed() ? "disturbed" : "quiet again" ); }
   void onAccount( Lumo::IntfId intf ) override { accounts_.sync( intf, notifier()->account( intf ) ); }
   void onAccountkelImmediate() override { accounts_.syncAll( notifier()->accountIteratorConst() ); }
   void tell( std::string const & interface, char const * is ) const {
      owner_.told_( { notifier()->unitName().str(), interface, is } );
   }

 private:
   Decisions & owner_;
   Kel::ReactorMap<KelAccount, Lumo::IntfId, KelAccounts> accounts_;
};

void Decisions::KelAccount::onSettled() {
   owner_.tell( std::string( notifier()->intfId().name() ),
                notifier()->settled() ? "proven quiet" : "not proven quiet" );
}

class Decisions::KelAccountsDir final : public Evidence::UnitAccountsDir::NotifieeConst {
 public:
   KelAccountsDir( Decisions & owner, Kel::Ptr<Evidence::UnitAccountsDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onUnit( Kel::Name unit ) override { owner_.accounts_.sync( unit, notifier()->unit( unit ) ); }
   void onUnitkelImmediate() override { owner_.accounts_.syncAll( notifier()->unitIteratorConst() ); }

 private:
   Decisions & owner_;
};

class Decisions::KelMonitor final : public Maintenance::MonIntfStatus::NotifieeConst {
 public:
   explicit KelMonitor( Decisions & owner ) : owner_( owner ) {}
   void onState() override {
      bool const drained = notifier()->state() == Maintenance::MonIntfState::passiveMonitoring;
      if( drained ) owner_.told_( { "", std::string( notifier()->intfId().name() ), "drained" } );
   }

 private:
   Decisions & owner_;
};

class Decisions::KelMonitorDir final : public Maintenance::MonIntfStatusDir::NotifieeConst {
 public:
   KelMonitorDir( Decisions & owner, Kel::Ptr<Maintenance::MonIntfStatusDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onMonIntfStatus( Lumo::IntfId intf ) override {
      owner_.monitors_.sync( intf, notifier()->monIntfStatus( intf ) );
   }
   void onMonIntfStatuskelImmediate() override { owner_.monitors_.syncAll( notifier()->monIntfStatusIteratorConst() ); }

 private:
   Decisions & owner_;
};

Decisions::Decisions( Maintenance::MaintenanceState const & state, Dovra::EntityManager & database, Told told )
   : told_( std::move( told ) ),
     units_( *this ),
     accounts_( *this ),
     monitors_( *this ),
     unitDir_( std::make_unique<KelUnitDir>( *this, state.unitStatus ) ),
     accountsDir_( std::make_unique<KelAccountsDir>( *this, Evidence::unitAccountsDir( database ) ) ),
     monitorDir_( std::make_unique<KelMonitorDir>( *this, state.monIntfStatus ) ) {}

Decisions::~Decisions() = default;

}  // namespace Service

#include "evidence/Sources.h"

#include "kel/ActivityLoop.h"
#include "kel/InBlocks.h"
#include "records/Names.h"

namespace Evidence {

using Interface::IntfOperStatus;
using Lumo::EthIntfId;
using Lumo::PortChannelIntfId;
using Lumo::SubIntfId;
using Lumo::VlanIntfId;
using Maintenance::Profile::defaultProfileName;
using Maintenance::Profile::ProfileType;

class Sources::KelLink final : public Interface::IntfStatus::NotifieeConst {
 public:
   explicit KelLink( Sources & owner ) : owner_( owner ) {}
   void handleInitialized() { onOperStatus(); }
   void onOperStatus() override {
      // A link of which nobody knows whether it is up may carry traffic, so only one that is known to be down is away.
      bool const away = notifier()->operStatus() == IntfOperStatus::down;
      if( !away ) {
         awaySince_.reset();
         owner_.letGo_.erase( notifier()->intfId() );
      }
      if( away && !awaySince_ ) awaySince_ = Kel::now();
      owner_.listener_.onLink( notifier()->intfId(), away ? LinkChange::away : LinkChange::up );
   }
   void handleDel() { owner_.listener_.onLink( notifier()->intfId(), LinkChange::away ); }
   [[nodiscard]] std::optional<double> awaySince() const { return awaySince_; }

 private:
   Sources & owner_;
   std::optional<double> awaySince_;
};

class Sources::KelLinkDir final : public Interface::AllIntfStatusDir::NotifieeConst {
 public:
   KelLinkDir( Sources & owner, Kel::Ptr<Interface::AllIntfStatusDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onIntfStatus( Lumo::IntfId intf ) override {
      // A record in the place of another is another link under the same name, however alike they look.
      auto const record = notifier()->intfStatus( intf );
      auto const * const former = owner_.links_.find( intf );
      if( record && former && former->notifier() != record ) owner_.listener_.onLink( intf, LinkChange::madeAgain );
      owner_.links_.sync( intf, record );
   }
   void onIntfStatuskelImmediate() override { owner_.links_.syncAll( notifier()->intfStatusIteratorConst() ); }

 private:
   Sources & owner_;
};

// Each hears of each sample.
class Sources::KelMonitor final : public Maintenance::MonIntfStatus::NotifieeConst, public Kel::InBlocks<KelMonitor> {
 public:
   explicit KelMonitor( Sources & owner ) : owner_( owner ) {}
   void handleInitialized() { tell( MonitorChange::began ); }
   void handleDel() { tell( MonitorChange::ended ); }
   void onCurRates() override {
      if( subject_ ) owner_.listener_.onSample( *subject_, noted_ );
   }
   void onState() override { tell( MonitorChange::touched ); }
   void onProfileName() override { tell( MonitorChange::touched ); }
   void subjectIs( Subject * subject ) { subject_ = subject; }

 private:
   void tell( MonitorChange change ) { owner_.listener_.onMonitor( notifier()->intfId(), change ); }

   Sources & owner_;
   Subject * subject_ = nullptr;
   uint32_t noted_ = 0;
};

class Sources::KelMonitorDir final : public Maintenance::MonIntfStatusDir::NotifieeConst {
 public:
   KelMonitorDir( Sources & owner, Kel::Ptr<Maintenance::MonIntfStatusDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onMonIntfStatus( Lumo::IntfId intf ) override {
      owner_.monitors_.sync( intf, notifier()->monIntfStatus( intf ) );
   }
   void onMonIntfStatuskelImmediate() override { owner_.monitors_.syncAll( notifier()->monIntfStatusIteratorConst() ); }
   // A monitor's first sample moves no rates and so tells nobody; but it is followed by one of these.
   void onMonIntfEnterMaint( Lumo::IntfId intf ) override { touched( intf ); }
   void onMonIntfUnderMaint( Lumo::IntfId intf ) override { touched( intf ); }

 private:
   void touched( Lumo::IntfId intf ) { owner_.listener_.onMonitor( intf, MonitorChange::touched ); }

   Sources & owner_;
};

class Sources::KelCause final : public Errdisable::CauseStatus::NotifieeConst {
 public:
   explicit KelCause( Sources & owner ) : owner_( owner ) {}
   void onIntfStatus( Lumo::IntfId intf ) override { owner_.handleEntry( intf ); }
   void onIntfStatuskelImmediate() override {
      for( auto [intf, since] : notifier()->intfStatusIteratorConst() ) owner_.handleEntry( intf );
   }

 private:
   Sources & owner_;
};

class Sources::KelCauseDir final : public Kel::Dir::NotifieeConst {
 public:
   KelCauseDir( Sources & owner, Kel::Ptr<Kel::Dir const> const & dir ) : owner_( owner ) { notifierIs( dir ); }
   void onEntity( Kel::Name ) override { owner_.causeIs(); }

 private:
   Sources & owner_;
};

class Sources::KelPhyIntf final : public Lag::PhyIntf::NotifieeConst {
 public:
   explicit KelPhyIntf( Sources & owner ) : owner_( owner ) {}
   void handleInitialized() { onLag(); }
   void onLag() override { owner_.lagIs( notifier()->intfId(), notifier()->lag() ); }
   void handleDel() { owner_.lagIs( notifier()->intfId(), {} ); }

 private:
   Sources & owner_;
};

class Sources::KelLagConfig final : public Lag::Config::NotifieeConst {
 public:
   KelLagConfig( Sources & owner, Kel::Ptr<Lag::Config const> const & config ) : owner_( owner ) {
      notifierIs( config );
   }
   void onPhyIntf( Lumo::IntfId intf ) override { owner_.phyIntfs_.sync( intf, notifier()->phyIntf( intf ) ); }
   void onPhyIntfkelImmediate() override { owner_.phyIntfs_.syncAll( notifier()->phyIntfIteratorConst() ); }

 private:
   Sources & owner_;
};

class Sources::KelVlan final : public Bridging::VlanStatus::NotifieeConst {
 public:
   explicit KelVlan( Sources & owner ) : owner_( owner ) {}
   void handleInitialized() { owner_.listener_.onMembers(); }
   void onIntf( Lumo::IntfId ) override { owner_.listener_.onMembers(); }
   void handleDel() { owner_.listener_.onMembers(); }

 private:
   Sources & owner_;
};

class Sources::KelVlanDir final : public Bridging::VlanStatusDir::NotifieeConst {
 public:
   KelVlanDir( Sources & owner, Kel::Ptr<Bridging::VlanStatusDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onVlanStatus( uint32_t vlan ) override { owner_.vlans_.sync( vlan, notifier()->vlanStatus( vlan ) ); }
   void onVlanStatuskelImmediate() override { owner_.vlans_.syncAll( notifier()->vlanStatusIteratorConst() ); }

 private:
   Sources & owner_;
};

class Sources::KelProfile final : public IntfMaintenanceProfile::Config::NotifieeConst {
 public:
   explicit KelProfile( Sources & owner ) : owner_( owner ) {}
   void handleInitialized() { owner_.listener_.onProfiles(); }
   void onShutdown() override { owner_.listener_.onProfiles(); }
   void handleDel() { owner_.listener_.onProfiles(); }

 private:
   Sources & owner_;
};

class Sources::KelProfileDir final : public IntfMaintenanceProfile::ConfigDir::NotifieeConst {
 public:
   KelProfileDir( Sources & owner, Kel::Ptr<IntfMaintenanceProfile::ConfigDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onConfig( Kel::String8 name ) override { owner_.profiles_.sync( name, notifier()->config( name ) ); }
   void onConfigkelImmediate() override { owner_.profiles_.syncAll( notifier()->configIteratorConst() ); }

 private:
   Sources & owner_;
};

class Sources::KelDefaultProfile final : public Maintenance::Profile::DefaultProfile::NotifieeConst {
 public:
   KelDefaultProfile( Sources & owner, Kel::Ptr<Maintenance::Profile::DefaultProfile const> const & record )
      : owner_( owner ) {
      notifierIs( record );
   }
   void onProfileName() override { owner_.listener_.onProfiles(); }

 private:
   Sources & owner_;
};

class Sources::KelIntfToGroup final : public IntfMaintenance::IntfToGroup::NotifieeConst {
 public:
   explicit KelIntfToGroup( Sources & owner ) : owner_( owner ) {}
   void handleInitialized() { owner_.listener_.onIntf( notifier()->intfId() ); }
   void onSelectedProfile( ProfileType ) override { owner_.listener_.onIntf( notifier()->intfId() ); }

 private:
   Sources & owner_;
};

class Sources::KelIntfToGroupDir final : public IntfMaintenance::IntfToGroupDir::NotifieeConst {
 public:
   KelIntfToGroupDir( Sources & owner, Kel::Ptr<IntfMaintenance::IntfToGroupDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onIntfToGroup( Lumo::IntfId intf ) override {
      owner_.intfToGroups_.sync( intf, notifier()->intfToGroup( intf ) );
   }
   void onIntfToGroupkelImmediate() override { owner_.intfToGroups_.syncAll( notifier()->intfToGroupIteratorConst() ); }

 private:
   Sources & owner_;
};

class Sources::KelUnit final : public Maintenance::Unit::Status::NotifieeConst {
 public:
   explicit KelUnit( Sources & owner ) : owner_( owner ) {}
   void handleInitialized() { onState(); }
   void onState() override { owner_.listener_.onUnit( notifier()->unitName() ); }
   void handleDel() { onState(); }

 private:
   Sources & owner_;
};

class Sources::KelUnitDir final : public Maintenance::Unit::StatusDir::NotifieeConst {
 public:
   KelUnitDir( Sources & owner, Kel::Ptr<Maintenance::Unit::StatusDir const> const & dir ) : owner_( owner ) {
      notifierIs( dir );
   }
   void onStatus( Kel::Name unit ) override { owner_.units_.sync( unit, notifier()->status( unit ) ); }
   void onStatuskelImmediate() override { owner_.units_.syncAll( notifier()->statusIteratorConst() ); }

 private:
   Sources & owner_;
};

class Sources::KelCounters final : public Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir::NotifieeConst {
 public:
   explicit KelCounters( Sources & owner ) : owner_( owner ) {
      notifierIs( owner.counters_->allEthIntfCounterPtrDir() );
   }
   void onIntfCounterDir( Lumo::IntfId intf ) override { owner_.listener_.onIntf( intf ); }

 private:
   Sources & owner_;
};

Sources::Sources( Maintenance::MaintenanceState const & state, Kel::Ptr<KelQuill::EntityManager> const & counters,
                  NeverWatched neverWatched, SourcesListener & listener )
   : state_( state ),
     neverWatched_( std::move( neverWatched ) ),
     listener_( listener ),
     counters_( new Interface::EthIntfCounterReaderSm( counters, state.counterWriterStatus ) ),
     links_( *this ),
     monitors_( *this ),
     phyIntfs_( *this ),
     vlans_( *this ),
     profiles_( *this ),
     intfToGroups_( *this ),
     units_( *this ) {
   counters_->handleInitialized();
   linkDir_ = std::make_unique<KelLinkDir>( *this, state.intfStatus );
   monitorDir_ = std::make_unique<KelMonitorDir>( *this, state.monIntfStatus );
   causeReactor_ = std::make_unique<KelCause>( *this );
   causeDir_ = std::make_unique<KelCauseDir>( *this, state.errdisableCauses );
   causeIs();
   lagConfig_ = std::make_unique<KelLagConfig>( *this, state.lagConfig );
   vlanDir_ = std::make_unique<KelVlanDir>( *this, state.vlanStatus );
   profileDir_ = std::make_unique<KelProfileDir>( *this, state.profiles );
   defaultProfile_ = std::make_unique<KelDefaultProfile>( *this, state.defaultProfile );
   intfToGroupDir_ = std::make_unique<KelIntfToGroupDir>( *this, state.intfToGroup );
   unitDir_ = std::make_unique<KelUnitDir>( *this, state.unitStatus );
   counterDir_ = std::make_unique<KelCounters>( *this );
}

Sources::~Sources() { counters_->prepareToDie(); }

void Sources::causeIs() {
   cause_ = Kel::dynamicPtrCast<Errdisable::CauseStatus const>(
      state_.errdisableCauses->entityRef( Maintenance::shutdownCause ) );
   causeReactor_->notifierIs( cause_ );
}

void Sources::subjectIs( Lumo::IntfId intf, Subject * subject ) {
   if( auto * const monitor = monitors_.find( intf ) ) monitor->subjectIs( subject );
}

std::optional<double> Sources::awaySince( Lumo::IntfId intf ) const {
   auto const * const link = links_.find( intf );
   return link ? link->awaySince() : std::nullopt;
}

Kel::Ptr<Interface::IntfStatus const> Sources::link( Lumo::IntfId intf ) const {
   return state_.intfStatus->intfStatus( intf );
}

Kel::Ptr<Maintenance::MonIntfStatus const> Sources::monitor( Lumo::IntfId intf ) const {
   return state_.monIntfStatus->monIntfStatus( intf );
}

void Sources::handleEntry( Lumo::IntfId intf ) {
   // Kept also while nobody has an account: until now it was down on our account, whoever asks later.
   if( entered( intf ) ) {
      letGo_.erase( intf );
   } else {
      letGo_[intf] = Kel::now();
   }
   listener_.onEntry( intf );
}

bool Sources::entered( Lumo::IntfId intf ) const { return cause_ && cause_->intfStatus( intf ); }

std::optional<double> Sources::letGo( Lumo::IntfId intf ) const {
   auto const found = letGo_.find( intf );
   return found == letGo_.end() ? std::nullopt : std::optional( found->second );
}

Kel::Ptr<IntfMaintenanceProfile::Config const> Sources::profile( Lumo::IntfId intf ) const {
   auto const member = state_.intfToGroup->intfToGroup( intf );
   auto const * const selected = member ? member->selectedProfile( ProfileType::interface ) : nullptr;
   auto const chosen = selected ? state_.profiles->config( selected->name ) : nullptr;
   if( chosen ) return chosen;
   if( auto const fallback = state_.profiles->config( defaultProfileName() ) ) return fallback;
   // The monitor keeps one that was deleted; its samples are judged by none.
   return nullptr;
}

Kel::String8 Sources::profileName( IntfMaintenanceProfile::Config const & profile ) const {
   bool const isDefault = profile.profileName() == defaultProfileName();
   return isDefault ? state_.defaultProfile->profileName() : profile.profileName();
}

Maintenance::Unit::State Sources::unitState( Kel::Name const & unit ) const {
   auto const status = state_.unitStatus->status( unit );
   return status ? status->state() : Maintenance::Unit::State::unknown;
}

void Sources::lagIs( Lumo::IntfId member, Lumo::IntfId lag ) {
   // Most links are members of none, and take no place here.
   if( lag.empty() && !lagOf_.contains( member ) ) return;
   Lumo::IntfId & present = lagOf_[member];
   if( present == lag ) return;
   if( !present.empty() ) lagMembers_[present].erase( member );
   if( !lag.empty() ) lagMembers_[lag].insert( member );
   present = lag;
   listener_.onMembers();
}

Kel::Ptr<Bridging::VlanStatus const> Sources::vlanOf( Lumo::IntfId intf ) const {
   try {
      return state_.vlanStatus->vlanStatus( VlanIntfId::vlanId( intf ) );
   } catch( Kel::RangeError const & ) {
      return nullptr;  // the name of no VLAN that can be
   }
}

std::vector<Lumo::IntfId> Sources::rowsOf( Lumo::IntfId intf ) const {
   std::set<Lumo::IntfId> rows;
   addRows( intf, rows );
   return { rows.begin(), rows.end() };
}

// As the plug-in's sampler goes about it: members of other kinds count for nothing here, and make the interface one
// that can never be watched.
void Sources::addRows( Lumo::IntfId intf, std::set<Lumo::IntfId> & rows ) const {
   if( SubIntfId::isSubIntfId( intf ) ) return;
   if( EthIntfId::isEthIntfId( intf ) ) rows.insert( intf );
   if( PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      auto const members = lagMembers_.find( intf );
      if( members == lagMembers_.end() ) return;
      for( Lumo::IntfId const member : members->second ) {
         if( EthIntfId::isEthIntfId( member ) ) rows.insert( member );
      }
   }
   if( !VlanIntfId::isVlanIntfId( intf ) ) return;
   auto const vlan = vlanOf( intf );
   if( !vlan ) return;
   for( auto [member, present] : vlan->intfIteratorConst() ) {
      // A VLAN is never made of VLANs, so this ends.
      if( !VlanIntfId::isVlanIntfId( member ) ) addRows( member, rows );
   }
}

Kel::Ptr<Sources::Counter const> Sources::counter( Lumo::IntfId row ) const {
   return counters_->allEthIntfCounterPtrDir()->currentStatistics( row );
}

uint32_t Sources::counterGeneration() const { return counters_->allEthIntfCounterPtrDir()->generation(); }

}  // namespace Evidence

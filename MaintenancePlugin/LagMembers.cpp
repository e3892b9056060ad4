#include "LagMembers.h"

#include <algorithm>

namespace MaintenanceMode {

// One interface's place: it is a member of `lag_` for as long as this lives.
class LagMembers::KelPhyIntf final : public Lag::PhyIntf::NotifieeConst {
 public:
   KelPhyIntf( LagMembers & owner, Kel::Ptr<Lag::PhyIntf const> const & phyIntf )
      : owner_( owner ), intfId_( phyIntf->intfId() ) {
      notifierIs( phyIntf );
      onLag();
   }
   ~KelPhyIntf() override { owner_.memberDel( lag_, intfId_ ); }
   void onLag() override {
      owner_.memberDel( lag_, intfId_ );
      lag_ = notifier()->lag();
      owner_.memberIs( lag_, intfId_ );
   }

 private:
   LagMembers & owner_;
   Lumo::IntfId const intfId_;
   Lumo::IntfId lag_;  // empty: in none
};

class LagMembers::KelConfig final : public Lag::Config::NotifieeConst {
 public:
   KelConfig( LagMembers & owner, Kel::Ptr<Lag::Config const> const & config ) : owner_( owner ) {
      notifierIs( config );
   }
   void onPhyIntf( Lumo::IntfId intfId ) override {
      owner_.phyIntf_.erase( intfId );
      if( auto const phyIntf = notifier()->phyIntf( intfId ) ) owner_.follow( phyIntf );
   }
   void onPhyIntfkelImmediate() override {
      for( auto [intfId, phyIntf] : notifier()->phyIntfIteratorConst() ) owner_.follow( phyIntf );
   }

 private:
   LagMembers & owner_;
};

LagMembers::LagMembers( Kel::Ptr<Lag::Config const> const & config )
   : config_( std::make_unique<KelConfig>( *this, config ) ) {}

LagMembers::~LagMembers() = default;

std::vector<Lumo::IntfId> const & LagMembers::of( Lumo::IntfId lag ) const {
   static std::vector<Lumo::IntfId> const none;
   auto const found = members_.find( lag );
   return found == members_.end() ? none : found->second;
}

void LagMembers::follow( Kel::Ptr<Lag::PhyIntf const> const & phyIntf ) {
   phyIntf_.emplace( phyIntf->intfId(), std::make_unique<KelPhyIntf>( *this, phyIntf ) );
}

void LagMembers::memberIs( Lumo::IntfId lag, Lumo::IntfId member ) {
   if( lag.empty() ) return;
   auto & members = members_[lag];
   members.insert( std::lower_bound( members.begin(), members.end(), member ), member );
}

void LagMembers::memberDel( Lumo::IntfId lag, Lumo::IntfId member ) {
   auto const found = members_.find( lag );
   if( lag.empty() || found == members_.end() ) return;
   std::erase( found->second, member );
   if( found->second.empty() ) members_.erase( found );
}

}  // namespace MaintenanceMode

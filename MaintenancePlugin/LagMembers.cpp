#include "LagMembers.h"

#include <algorithm>

namespace MaintenanceMode {

// One interface's place among the members of the port-channel that it names.
class LagMembers::KelPhyIntf final : public Lag::PhyIntf::NotifieeConst {
 public:
   explicit KelPhyIntf( LagMembers & owner ) : owner_( owner ) {}
   void handleInitialized() { onLag(); }
   void onLag() override {
      handleDel();
      lag_ = notifier()->lag();
      owner_.memberIs( lag_, notifier()->intfId() );
   }
   void handleDel() { owner_.memberDel( lag_, notifier()->intfId() ); }

 private:
   LagMembers & owner_;
   Lumo::IntfId lag_;  // among whose members it is now; empty: in none
};

class LagMembers::KelConfig final : public Lag::Config::NotifieeConst {
 public:
   KelConfig( LagMembers & owner, Kel::Ptr<Lag::Config const> const & config ) : owner_( owner ) {
      notifierIs( config );
   }
   void onPhyIntf( Lumo::IntfId intfId ) override {
      // A record in the place of another takes the interface out of the port-channel that the former one named.
      owner_.phyIntf_.del( intfId );
      owner_.phyIntf_.sync( intfId, notifier()->phyIntf( intfId ) );
   }
   void onPhyIntfkelImmediate() override { owner_.phyIntf_.syncAll( notifier()->phyIntfIteratorConst() ); }

 private:
   LagMembers & owner_;
};

LagMembers::LagMembers( Kel::Ptr<Lag::Config const> const & config )
   : phyIntf_( *this ), config_( std::make_unique<KelConfig>( *this, config ) ) {}

LagMembers::~LagMembers() = default;

std::size_t LagMembers::count( Lumo::IntfId lag ) const {
   auto const found = members_.find( lag );
   return found == members_.end() ? 0 : found->second.size();
}

Lumo::IntfId LagMembers::member( Lumo::IntfId lag, std::size_t i ) const { return members_.at( lag )[i]; }

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

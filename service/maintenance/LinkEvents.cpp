#include "maintenance/LinkEvents.h"

#include <utility>

namespace Service {

using Interface::AllIntfStatusDir;
using Interface::IntfOperStatus;
using Interface::IntfStatus;

namespace {

char const * stateText( IntfStatus const & link ) {
   switch( link.operStatus() ) {
      case IntfOperStatus::up: return "up";
      case IntfOperStatus::down: return "down";
      case IntfOperStatus::unknown: return "whether it is up is not known";
   }
   return "";
}

}  // namespace

class LinkEvents::KelLink final : public IntfStatus::NotifieeConst {
 public:
   explicit KelLink( LinkEvents & owner ) : owner_( owner ) {}
   void handleInitialized() { owner_.handleLink( *notifier() ); }
   void onOperStatus() override { owner_.handleState( *notifier() ); }
   void handleDel() { owner_.handleVanished( notifier()->intfId() ); }

 private:
   LinkEvents & owner_;
};

class LinkEvents::KelLinks final : public AllIntfStatusDir::NotifieeConst {
 public:
   KelLinks( LinkEvents & owner, Kel::Ptr<AllIntfStatusDir const> const & links ) : owner_( owner ) {
      notifierIs( links );
   }
   void onIntfStatus( Lumo::IntfId intf ) override {
      auto const record = notifier()->intfStatus( intf );
      // In the place of another that nobody has seen go.
      if( record && owner_.link_.find( intf ) && owner_.isNamed_( intf ) ) owner_.vanished_.insert( intf );
      owner_.link_.sync( intf, record );
   }
   void onIntfStatuskelImmediate() override { owner_.link_.syncAll( notifier()->intfStatusIteratorConst() ); }

 private:
   LinkEvents & owner_;
};

LinkEvents::LinkEvents( Kel::Ptr<AllIntfStatusDir const> const & links, IsNamed isNamed, Tell tell )
   : isNamed_( std::move( isNamed ) ),
     tell_( std::move( tell ) ),
     link_( *this ),
     kelLinks_( std::make_unique<KelLinks>( *this, links ) ) {
   starting_ = false;
}

LinkEvents::~LinkEvents() = default;

void LinkEvents::handleLink( IntfStatus const & link ) {
   Lumo::IntfId const intf = link.intfId();
   bool const again = vanished_.erase( intf ) > 0;
   if( starting_ || !isNamed_( intf ) ) return;
   tell_( intf, std::string( again ? "came back, " : "appeared, " ) + stateText( link ) );
}

void LinkEvents::handleState( IntfStatus const & link ) const {
   Lumo::IntfId const intf = link.intfId();
   if( !isNamed_( intf ) ) return;
   switch( link.operStatus() ) {
      case IntfOperStatus::up: return tell_( intf, "came up" );
      case IntfOperStatus::down: return tell_( intf, "went down" );
      case IntfOperStatus::unknown: return tell_( intf, stateText( link ) );
   }
}

void LinkEvents::handleVanished( Lumo::IntfId intf ) {
   if( !isNamed_( intf ) ) return;
   vanished_.insert( intf );
   tell_( intf, "vanished" );
}

}  // namespace Service

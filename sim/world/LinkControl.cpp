#include "world/LinkControl.h"

#include <utility>

#include "evidence/Ledger.h"
#include "kel/TurnEnd.h"
#include "records/Errdisable.h"

namespace Sim {

using Errdisable::CauseStatus;

class LinkControl::Follow final : public Kel::TurnEnd {
 public:
   explicit Follow( LinkControl & owner ) : TurnEnd( Evidence::linksFollow ), owner_( owner ) {}
   void onTurnEnd() override { owner_.follow(); }

 private:
   LinkControl & owner_;
};

class LinkControl::KelCause final : public CauseStatus::NotifieeConst {
 public:
   explicit KelCause( LinkControl & owner ) : owner_( owner ) {}
   void onIntfStatus( Lumo::IntfId intf ) override { owner_.handleEntry( intf ); }
   void onIntfStatuskelImmediate() override {
      for( auto [intf, since] : notifier()->intfStatusIteratorConst() ) owner_.handleEntry( intf );
   }
   void handleDel() { owner_.handleCauseDel(); }

 private:
   LinkControl & owner_;
};

class LinkControl::KelCauses final : public Kel::Dir::NotifieeConst {
 public:
   KelCauses( LinkControl & owner, Kel::Ptr<Kel::Dir const> const & causes ) : owner_( owner ) { notifierIs( causes ); }
   void onEntity( Kel::Name cause ) override {
      owner_.cause_.sync( cause, Kel::dynamicPtrCast<CauseStatus const>( notifier()->entityRef( cause ) ) );
   }
   void onEntitykelImmediate() override {
      for( auto [cause, entity] : notifier()->entityIteratorConst() ) onEntity( cause );
   }

 private:
   LinkControl & owner_;
};

LinkControl::LinkControl( Kel::Ptr<Kel::Dir const> const & causes, InventedLinks & links )
   : causes_( causes ),
     links_( links ),
     follow_( std::make_unique<Follow>( *this ) ),
     cause_( *this ),
     kelCauses_( std::make_unique<KelCauses>( *this, causes ) ) {
   // What is still held from before may have lost its entry.
   handleCauseDel();
   // At once: whoever is made next is to find the links as the entries say.
   follow();
}

LinkControl::~LinkControl() = default;

void LinkControl::handleEntry( Lumo::IntfId intf ) {
   changed_.insert( intf );
   follow_->due();
}

void LinkControl::handleCauseDel() {
   for( Lumo::IntfId const intf : links_.held() ) handleEntry( intf );
}

void LinkControl::follow() {
   for( Lumo::IntfId const intf : std::exchange( changed_, {} ) ) links_.heldIs( intf, hasEntry( intf ) );
}

bool LinkControl::hasEntry( Lumo::IntfId intf ) const {
   for( auto [name, entity] : causes_->entityIteratorConst() ) {
      auto const cause = Kel::dynamicPtrCast<CauseStatus const>( entity );
      if( cause && cause->intfStatus( intf ) ) return true;
   }
   return false;
}

}  // namespace Sim

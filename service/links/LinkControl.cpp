#include "links/LinkControl.h"

#include <system_error>
#include <utility>

#include "kel/ActivityLoop.h"
#include "kel/TurnEnd.h"
#include "records/Errdisable.h"
#include "state/TurnEndRank.h"

namespace Service {

using Errdisable::CauseStatus;
using Lumo::IntfId;

namespace {

// A link whose own changes follow from a step that fails must not keep the agent busy; in seconds.
constexpr double pauseAfterFailure = 1;

// The index of a link that has gone.
constexpr int noLink = 0;

}  // namespace

class LinkControl::Follow final : public Kel::TurnEnd {
 public:
   explicit Follow( LinkControl & owner ) : TurnEnd( Maintenance::linksFollow ), owner_( owner ) {}
   void onTurnEnd() override { owner_.follow(); }

 private:
   LinkControl & owner_;
};

class LinkControl::KelCause final : public CauseStatus::NotifieeConst {
 public:
   explicit KelCause( LinkControl & owner ) : owner_( owner ) {}
   void onIntfStatus( IntfId intf ) override { owner_.handleEntry( intf ); }
   void onIntfStatuskelImmediate() override {
      for( auto [intf, since] : notifier()->intfStatusIteratorConst() ) owner_.handleEntry( intf );
   }
   // It may have taken the place of another, whose entries are gone.
   void handleInitialized() { owner_.handleCauses(); }
   void handleDel() { owner_.handleCauses(); }

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

LinkControl::LinkControl( Parts const & parts )
   : parts_( parts ),
     boot_( parts.boot ),
     follow_( std::make_unique<Follow>( *this ) ),
     cause_( *this ),
     kelCauses_( std::make_unique<KelCauses>( *this, parts.causes ) ) {
   handleCauses();
   // At once: whoever is made next is to find the links as the entries say. A name that another link bears by now needs
   // two rounds, what a handler adds may wait for the end of the turn.
   follow();
   follow();
   starting_ = false;
}

LinkControl::~LinkControl() = default;

void LinkControl::handleLink( IntfId intf ) {
   changed_.insert( intf );
   follow_->due();
}

void LinkControl::handleEntry( IntfId intf ) {
   // What failed was another step.
   failedAt_.erase( intf );
   handleLink( intf );
}

// Any link that has a record may have lost its entry.
void LinkControl::handleCauses() {
   for( auto [intf, record] : parts_.held->heldIteratorConst() ) handleEntry( intf );
}

void LinkControl::retry() {
   failedAt_.clear();
   for( IntfId const intf : waiting_ ) handleLink( intf );
}

bool LinkControl::hasEntry( IntfId intf ) const {
   for( auto [name, entity] : parts_.causes->entityIteratorConst() ) {
      auto const cause = Kel::dynamicPtrCast<CauseStatus const>( entity );
      if( cause && cause->intfStatus( intf ) ) return true;
   }
   return false;
}

bool LinkControl::pausing( IntfId intf ) const {
   auto const found = failedAt_.find( intf );
   return found != failedAt_.end() && Kel::now() < found->second + pauseAfterFailure;
}

void LinkControl::tell( IntfId intf, std::string const & text, Severity severity ) const {
   if( parts_.tell ) parts_.tell( intf, severity, text );
}

void LinkControl::note( IntfId intf, std::string const & text, Severity severity ) const {
   tell( intf, text, severity );
   if( parts_.note ) parts_.note( intf, text );
}

void LinkControl::follow() {
   std::vector<IntfId> down;
   std::vector<IntfId> up;
   for( IntfId const intf : std::exchange( changed_, {} ) ) {
      if( pausing( intf ) ) continue;
      waiting_.erase( intf );
      attempt( intf, [&] {
         switch( prepare( intf ) ) {
            case Step::takeDown: down.push_back( intf ); break;
            case Step::giveBack: up.push_back( intf ); break;
            case Step::nothing: succeeded( intf ); break;
         }
      } );
   }
   if( down.empty() && up.empty() ) return;
   if( parts_.keep && !parts_.keep() ) return postpone( down, up );
   for( IntfId const intf : up ) {
      attempt( intf, [&] { giveBack( intf ); } );
   }
   for( IntfId const intf : down ) {
      attempt( intf, [&] { takeDown( intf ); } );
   }
}

// That nobody knows how the link stands is no reason to believe that it is gone, or up, or down.
template<class Act>
void LinkControl::attempt( IntfId intf, Act const & act ) {
   try {
      act();
   } catch( std::system_error const & error ) {
      failed( intf, std::string( "it is not known how the link stands: " ) + error.what() );
   }
}

// Before the step

LinkControl::Step LinkControl::prepare( IntfId intf ) {
   Record const record = parts_.held->held( intf );
   bool const entered = hasEntry( intf );
   if( !record && !entered ) return Step::nothing;
   if( record && entered && record->state() == HoldState::released ) return Step::nothing;
   auto const named = parts_.links.link( intf );
   auto const own = record ? linkOf( *record ) : std::nullopt;
   if( own ) {
      bool const renamed = !named || named->index != own->index;
      if( !entered || ( renamed && named ) ) return prepareRelease( intf, record, *own );
      // Its old name's entry says that it stays down.
      return renamed ? Step::nothing : prepareHeld( intf, record, *own );
   }
   // The link of the record is not there any more: it has gone, or the machine was started since.
   if( !entered ) {
      forget( intf );
      return Step::nothing;
   }
   if( named ) return begin( intf, *named, record );
   // It would be mixed up with a link that is given its number.
   if( record && record->boot() == boot_ ) record->indexIs( noLink );
   return Step::nothing;
}

// The link that the record is about, whatever it is called now; none when it has gone.
std::optional<LinkControl::Link> LinkControl::linkOf( HeldLink const & record ) const {
   if( record.boot() != boot_ || record.index() == noLink ) return std::nullopt;
   return parts_.links.link( record.index() );
}

// The link has its entry.
LinkControl::Step LinkControl::prepareHeld( IntfId intf, Record const & record, Link const & own ) {
   switch( record->state() ) {
      case HoldState::taking:
         if( own.adminUp ) return prepareTaking( record );
         // Somebody was faster than we; or we did it, and had no time left to say so.
         record->stateIs( untried_.erase( intf ) != 0 ? HoldState::foundDown : HoldState::held );
         return Step::nothing;
      case HoldState::held:
         if( !own.adminUp ) return Step::nothing;
         if( starting_ ) return takeOnceMore( record );
         record->stateIs( HoldState::raised );
         note( intf, "set up by somebody else while it is shut down; it is left as it is" );
         return Step::nothing;
      case HoldState::foundDown: return own.adminUp ? begin( intf, own, record ) : Step::nothing;
      case HoldState::raised:
         if( !starting_ ) return Step::nothing;
         return own.adminUp ? takeOnceMore( record ) : begin( intf, own, record );
      case HoldState::releasing:
         if( own.adminUp ) return prepareTaking( record );
         record->stateIs( HoldState::held );
         return Step::nothing;
      case HoldState::released: break;
   }
   return Step::nothing;
}

LinkControl::Step LinkControl::prepareTaking( Record const & record ) {
   if( record->keepAddrWas() == HeldLink::notOurs ) record->keepAddrWasIs( addressesToKeep( record->index() ) );
   untried_.insert( record->intfId() );
   record->stateIs( HoldState::taking );
   return Step::takeDown;
}

// The link has no entry any more.
LinkControl::Step LinkControl::prepareRelease( IntfId intf, Record const & record, Link const & own ) {
   if( isTaken( *record ) && !own.adminUp ) {
      record->stateIs( HoldState::releasing );
      return Step::giveBack;
   }
   if( record->keepAddrWas() != HeldLink::notOurs ) return Step::giveBack;
   forget( intf );
   return Step::nothing;
}

LinkControl::Step LinkControl::takeOnceMore( Record const & record ) {
   IntfId const intf = record->intfId();
   Step const step = prepareTaking( record );
   note( intf, "set up by somebody else while it was shut down; it is taken down once more" );
   return step;
}

// A link that is not held yet, or not any more. The one that had its record until now may be another, of an earlier
// boot of the machine, or itself under another name.
LinkControl::Step LinkControl::begin( IntfId intf, Link const & link, Record const & former ) {
   Record const renamed = recordOf( link.index, intf );
   Record const & last = renamed ? renamed : former;
   bool const boots = last && last->boot() != boot_;
   bool const same = last && !boots && last->index() == link.index;
   Record const made( new HeldLink( intf ) );
   made->indexIs( link.index );
   made->bootIs( boot_ );
   made->sinceIs( same || boots ? last->since() : Kel::now() );
   made->sinceBeforeBootIs( boots || ( same && last->sinceBeforeBoot() ) );
   made->keepAddrWasIs( same ? last->keepAddrWas() : HeldLink::notOurs );
   if( link.adminUp && made->keepAddrWas() == HeldLink::notOurs ) {
      made->keepAddrWasIs( addressesToKeep( link.index ) );
   }
   bool const held = renamed && isTaken( *renamed );
   made->stateIs( link.adminUp ? HoldState::taking : held ? HoldState::held : HoldState::foundDown );
   if( link.adminUp ) untried_.insert( intf );
   parts_.held->heldIs( made );
   if( renamed && parts_.held->held( renamed->intfId() ) == renamed ) forget( renamed->intfId() );
   if( link.adminUp ) return Step::takeDown;
   note( intf,
         held ? "renamed while it is shut down; it stays so"
              : "down already when it was to be taken down; it is left to whoever did that",
         Severity::notice );
   return Step::nothing;
}

// Whether it is we who took it down, as far as is known.
bool LinkControl::isTaken( HeldLink const & record ) const {
   switch( record.state() ) {
      case HoldState::taking: return !untried_.contains( record.intfId() );
      case HoldState::held:
      case HoldState::releasing: return true;
      case HoldState::foundDown:
      case HoldState::raised:
      case HoldState::released: break;
   }
   return false;
}

// That of another name for this link; null when there is none.
LinkControl::Record LinkControl::recordOf( int index, IntfId besides ) const {
   for( auto [intf, record] : parts_.held->heldIterator() ) {
      if( intf != besides && record->index() == index && record->boot() == boot_ ) return record;
   }
   return nullptr;
}

int LinkControl::addressesToKeep( int index ) const {
   if( !parts_.preserveIpv6 || !parts_.preserveIpv6() ) return HeldLink::notOurs;
   auto const present = parts_.links.keepAddrOnDown( index );
   return present && *present != 1 ? *present : HeldLink::notOurs;
}

void LinkControl::forget( IntfId intf ) {
   untried_.erase( intf );
   parts_.held->heldDel( intf );
   // What bears the name by now is another link.
   if( hasEntry( intf ) ) handleLink( intf );
}

void LinkControl::postpone( std::vector<IntfId> const & down, std::vector<IntfId> const & up ) {
   for( IntfId const intf : down ) failed( intf, "cannot be taken down yet: nothing can be kept on disk" );
   for( IntfId const intf : up ) failed( intf, "cannot be set up again yet: nothing can be kept on disk" );
}

// The step. Handlers may have changed anything since it was prepared: then it is not made, but prepared anew.

void LinkControl::takeDown( IntfId intf ) {
   Record const record = parts_.held->held( intf );
   auto const link = parts_.links.link( intf );
   bool const asPrepared = record && record->state() == HoldState::taking && record->boot() == boot_ && link &&
                           link->index == record->index() && link->adminUp && hasEntry( intf );
   if( !asPrepared ) return handleLink( intf );
   // From here on it may be down because of us, whatever is answered.
   untried_.erase( intf );
   std::string why = preserveAddresses( *record );
   if( why.empty() ) why = parts_.links.adminUpIs( record->index(), false );
   if( !why.empty() ) return failed( intf, "cannot be taken down: " + why );
   succeeded( intf );
   if( parts_.held->held( intf ) != record || record->state() != HoldState::taking ) return;
   bool const again = record->sinceBeforeBoot();
   record->stateIs( HoldState::held );
   tell( intf, again ? "taken down again: it is held since before the machine was started" : "taken down" );
}

std::string LinkControl::preserveAddresses( HeldLink const & record ) {
   if( record.keepAddrWas() == HeldLink::notOurs ) return {};
   std::string const why = parts_.links.keepAddrOnDownIs( record.index(), 1 );
   return why.empty() ? why : "its IPv6 addresses would be lost: " + why;
}

void LinkControl::giveBack( IntfId intf ) {
   Record const record = parts_.held->held( intf );
   auto const own = record ? linkOf( *record ) : std::nullopt;
   auto const named = parts_.links.link( intf );
   bool const renamed = !named || !own || named->index != own->index;
   bool const asPrepared = own && ( !hasEntry( intf ) || ( renamed && named ) );
   if( !asPrepared ) return handleLink( intf );
   bool const down = record->state() == HoldState::releasing && !own->adminUp;
   std::string why;
   if( down ) why = parts_.links.adminUpIs( record->index(), true );
   if( why.empty() && record->keepAddrWas() != HeldLink::notOurs ) {
      why = parts_.links.keepAddrOnDownIs( record->index(), record->keepAddrWas() );
   }
   if( !why.empty() ) return failed( intf, "cannot be given back: " + why );
   succeeded( intf );
   if( parts_.held->held( intf ) == record ) forget( intf );
   if( !down ) return;
   if( renamed ) return note( intf, "set up again under the name that it has now", Severity::notice );
   tell( intf, "set up again" );
}

void LinkControl::failed( IntfId intf, std::string const & text ) {
   bool const first = failedAt_.insert_or_assign( intf, Kel::now() ).second;
   waiting_.insert( intf );
   Record const record = parts_.held->held( intf );
   if( record ? record->trouble() == Kel::String8( text ) : !first ) return;
   if( record ) record->troubleIs( text );
   note( intf, text );
}

void LinkControl::succeeded( IntfId intf ) {
   failedAt_.erase( intf );
   if( Record const record = parts_.held->held( intf ) ) record->troubleDel();
}

std::string LinkControl::remark( HeldLinkDir const & held, IntfId intf ) {
   auto const record = held.held( intf );
   if( !record ) return {};
   if( !record->trouble().empty() ) return record->trouble().str();
   switch( record->state() ) {
      case HoldState::foundDown: return "was down before it was shut down, and is left to whoever did that";
      case HoldState::raised: return "set up by somebody else while held";
      case HoldState::released: return "given back by an operator while it is shut down";
      case HoldState::taking:
      case HoldState::held:
      case HoldState::releasing: break;
   }
   return record->sinceBeforeBoot() ? "held since before boot" : "";
}

}  // namespace Service

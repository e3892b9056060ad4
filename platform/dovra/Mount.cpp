#include "dovra/Mount.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <utility>

#include "dovra/EntityManager.h"

namespace Dovra {

namespace {

constexpr std::array<std::string_view, 4> modes{ "r", "ri", "w", "wi" };

// What is wrong with one mount, success and no text when nothing is.
std::pair<MountStatus, std::string> checked( EntityManager const & entityManager, Mount const & mount ) {
   if( std::find( modes.begin(), modes.end(), mount.mode ) == modes.end() ) {
      return { mountWrongMode_, "there is no mode \"" + mount.mode + "\"" };
   }
   auto const entity = entityManager.getEntity( mount.path );
   if( !entity ) return { mountAbsent_, "nothing is mounted there" };
   // By name and not by cast: a mount names its type as text, so that the check needs no header of any record. A base
   // of the type is therefore not accepted.
   std::string const & type = entity->kelTypeInfo().name();
   if( type != mount.typeName ) return { mountWrongType_, "it is a " + type + ", not a " + mount.typeName };
   return { mountSuccess_, "" };
}

}  // namespace

class MountGroup::Completion final : public Kel::Deferred {
 public:
   Completion( MountGroup & group, double due ) : group_( group ) { timeMinIs( due ); }
   void onTimeMin() override { group_.handleDue(); }

 private:
   MountGroup & group_;
};

MountGroup::MountGroup( Kel::Ptr<EntityManager> const & entityManager, Mounter * mounter )
   : entityManager_( entityManager ), mounter_( mounter ) {}

// Here, where Completion is a complete type.
MountGroup::~MountGroup() = default;

void MountGroup::doMount( Mount const & mount ) {
   KEL_ASSERT( !closed_ );
   mounts_.push_back( mount );
}

void MountGroup::doClose( bool incremental, std::string_view label, double delay ) {
   KEL_ASSERT( !closed_ );
   KEL_ASSERT( !incremental );
   closed_ = true;
   label_ = label;
   // A group that was withdrawn while still open has nobody left to call.
   if( mounter_ ) completion_ = new Completion( *this, Kel::now() + delay );
}

void MountGroup::handleDue() {
   // A complete group stays with its mounter, perhaps for the life of the process, and must not keep the database for
   // as long. Checked only now, so what the host mounts after doClose, before the delay is over, counts.
   auto const entityManager = std::exchange( entityManager_, nullptr );
   check( *entityManager );
   mounter_->doMountsComplete( status_, entityManager );  // the mounter may go in the call, and this with it
}

void MountGroup::check( EntityManager const & entityManager ) {
   MountStatus first = mountSuccess_;
   for( Mount const & mount : mounts_ ) {
      auto const [status, reason] = checked( entityManager, mount );
      // All are checked, also after a failure: whoever mends the set-up wants the whole list at once.
      if( status == mountSuccess_ ) continue;
      if( first == mountSuccess_ ) first = status;
      failures_.push_back( mount.path + ": " + reason );
      // On standard error as well, because a mounter that is told only "absent" cannot say of which of its many mounts.
      std::cerr << "cannot mount " << ( label_.empty() ? "" : "for " + label_ + ": " ) << failures_.back() << "\n";
   }
   status_ = first;
}

void MountGroup::withdraw() {
   // Somebody else may hold the group, so dropping it would not be enough: without its completion it is never due.
   completion_ = nullptr;
   entityManager_ = nullptr;
   mounter_ = nullptr;
}

Mounter::~Mounter() { mountGroupsDel(); }

void Mounter::mountGroupsDel() {
   auto const groups = std::exchange( groups_, {} );
   for( auto const & group : groups ) group->withdraw();
}

}  // namespace Dovra

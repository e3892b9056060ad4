// Mounts: how a plug-in says which state it needs, and is called once all of it is there.
//
// A Mounter, usually the plug-in's loader entity, asks the state database for a group, adds its mounts and closes the
// group. In a later turn of the activity loop the group checks every mount and calls doMountsComplete once. State and
// mounter live in one process, so a mount copies nothing: it promises that the entity exists and has the type that
// the mounter expects.
//
// A mounter owns its groups. When it goes before they are complete, they go with it and nobody is called. A mounter
// that is taken apart but may be referenced for longer withdraws them with mountGroupsDel().
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kel/ActivityLoop.h"
#include "kel/Ptr.h"

namespace Dovra {

class EntityManager;
class Mounter;

// A group that fails has the status of its first mount that fails.
enum MountStatus : uint8_t {
   mountPending_ = 0,    // not checked yet
   mountAbsent_ = 1,     // nothing is mounted at the path
   mountWrongType_ = 2,  // an entity of another type is
   mountWrongMode_ = 3,  // the mode is none
   mountSuccess_ = 4,
};

// What is asked for. The mode is "r" for state that is read or "w" for state that is written, with an "i" after it
// when the entities below a directory are meant too. It is on record for people; who may write what is not enforced.
struct Mount {
   Mount( std::string_view p, std::string_view type, std::string_view m ) : path( p ), typeName( type ), mode( m ) {}

   bool operator==( Mount const & ) const = default;

   std::string path;
   std::string typeName;
   std::string mode;
};

class MountGroup final : public Kel::PtrInterface {
 public:
   // By EntityManager::getMountGroup. The mounter outlives the group or withdraws it.
   MountGroup( Kel::Ptr<EntityManager> const & entityManager, Mounter * mounter );
   ~MountGroup() override;

   // Adds a mount to a group that is still open. The same path may be mounted more than once.
   void doMount( Mount const & mount );
   // Nothing more is added: the mounter is called in a later turn, `delay` seconds from now at the earliest. `label`
   // stands in the messages about mounts that fail. `incremental` is false: there are no reports on single mounts.
   void doClose( bool incremental, std::string_view label, double delay );

   [[nodiscard]] std::vector<Mount> const & mounts() const { return mounts_; }  // in the order of doMount
   [[nodiscard]] MountStatus status() const { return status_; }
   // Each mount that failed, path and reason; empty unless the check has failed. The same lines go to standard error.
   [[nodiscard]] std::vector<std::string> const & failures() const { return failures_; }

 private:
   class Completion;
   friend class Mounter;

   void handleDue();
   void check( EntityManager const & entityManager );
   void withdraw();

   Kel::Ptr<EntityManager> entityManager_;  // null once complete or withdrawn
   Mounter * mounter_;                      // null once withdrawn
   std::string label_;
   std::vector<Mount> mounts_;
   std::vector<std::string> failures_;
   MountStatus status_ = mountPending_;
   bool closed_ = false;
   Kel::Ptr<Completion> completion_;
};

class Mounter {
 public:
   Mounter() = default;
   Mounter( Mounter const & ) = delete;
   Mounter & operator=( Mounter const & ) = delete;
   virtual ~Mounter();

   // Every mount of a group has been checked. Called once for each group. The mounter may go during the call.
   virtual void doMountsComplete( MountStatus status, Kel::Ptr<EntityManager> entityManager ) = 0;

   [[nodiscard]] std::vector<Kel::Ptr<MountGroup>> const & mountGroups() const { return groups_; }
   // Drops all groups; those that were not complete never call.
   void mountGroupsDel();

 private:
   friend class EntityManager;

   std::vector<Kel::Ptr<MountGroup>> groups_;
};

}  // namespace Dovra

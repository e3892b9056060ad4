// The state database: every record directory of the agent under its path.
//
// The host makes it and mounts the directories, empty, before any plug-in starts; they stay mounted for as long as
// the database lives. A path is one or more names with slashes between them, none before or after; the last is the
// entity's own name. What is below a mounted entity is reached through its attributes (by text: dovra/StatePath.h), so
// one mounted path may be the beginning of another.
//
// A plug-in asks for the mounts that it needs with a mount group (dovra/Mount.h) and then looks the entities up.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "dovra/Mount.h"
#include "kel/Entity.h"

namespace Dovra {

class EntityManager final : public Kel::PtrInterface {
 public:
   // For the host.

   // Makes an entity named by the last component of the path and mounts it.
   template<class T>
   Kel::Ptr<T> create( std::string_view path ) {
      Kel::Ptr<T> const entity( new T( typename T::KelKey( lastComponent( path ) ) ) );
      entityIs( path, entity );
      return entity;
   }
   // Mounts an entity. The path is well-formed and nothing is mounted there.
   void entityIs( std::string_view path, Kel::Ptr<Kel::Entity> const & entity );

   [[nodiscard]] std::vector<std::string> paths() const;  // sorted bytewise
   // The longest mounted path that is `path` or ends at one of its slashes; empty when there is none.
   [[nodiscard]] std::string_view mountedPrefix( std::string_view path ) const;

   // For plug-ins. The lookups give null when nothing is mounted at exactly this path, or what is there is no T.

   [[nodiscard]] Kel::Ptr<Kel::Entity> getEntity( std::string_view path ) const;
   template<class T>
   [[nodiscard]] Kel::Ptr<T> getEntity( std::string_view path ) const {
      return Kel::dynamicPtrCast<T>( getEntity( path ) );
   }
   // An open group, owned by the mounter.
   [[nodiscard]] Kel::Ptr<MountGroup> getMountGroup( Mounter * mounter );

 private:
   [[nodiscard]] static std::string_view lastComponent( std::string_view path );

   std::map<std::string, Kel::Ptr<Kel::Entity>, std::less<>> entities_;
};

}  // namespace Dovra

// Follows an entity and all below it, and tells which rows of the store no longer say what is there.
//
// One for each entity of a kept directory, nested as they are; the keeper owns those of the mounted directories. Knows
// neither rows nor the store. What an entity that goes took with it is told once, by its own path.
#pragma once

#include <boost/intrusive/list.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "kel/Entity.h"

namespace Host {

class Follower;

class FollowerListener {
 public:
   virtual ~FollowerListener() = default;

   // An entity is followed from now on; it may be there since long, or new.
   virtual void followed( Follower & follower ) = 0;
   // An attribute that its row shows is another. `key` as in Kel::Watcher.
   virtual void changed( Follower & follower, Kel::AttributeInfo const & attribute ) = 0;
   // Not followed any more. Its path may be another entity's by now.
   virtual void forgotten( Follower & follower ) = 0;
   // What was at the path, and all below it, is gone. Told before what has taken its place is followed.
   virtual void gone( std::string const & path ) = 0;
};

// In one of its owner's lists at a time, from which it goes with its end.
using FollowerHook = boost::intrusive::list_base_hook<boost::intrusive::link_mode<boost::intrusive::auto_unlink>>;

class Follower final : public Kel::Watcher, public FollowerHook {
 public:
   // What its owner has noted of it.
   enum class Noted : uint8_t { nothing, passing, now };
   // What an entity is in: mounted, a directory of any type, another record.
   enum class In : uint8_t { database, dir, record };

   // `listener` outlives this. `intfNamed`: the key of the entity is an interface.
   Follower( FollowerListener & listener, Kel::Ptr<Kel::Entity> const & entity, std::string path, In in,
             bool intfNamed );
   ~Follower() override;

   [[nodiscard]] Kel::Entity & entity() const { return *entity_; }
   [[nodiscard]] std::string const & path() const { return path_; }
   [[nodiscard]] In in() const { return in_; }
   [[nodiscard]] bool intfNamed() const { return intfNamed_; }

   // Where something is noted, it does not tell of attributes that change with every sample: that saves each sample a
   // dozen calls.
   [[nodiscard]] Noted noted() const { return noted_; }
   void notedIs( Noted noted ) {
      noted_ = noted;
      entity_->watcherHearsPassingIs( *this, noted == Noted::nothing );
   }

   void onAttribute( Kel::Entity const & e, Kel::AttributeInfo const & attribute, std::string const * key ) override;

 private:
   void followChild( Kel::AttributeInfo const & attribute, std::string const & key );
   [[nodiscard]] std::string childPath( Kel::AttributeInfo const & attribute, std::string const & key ) const;

   FollowerListener & listener_;
   Kel::Ptr<Kel::Entity> const entity_;
   Noted noted_ = Noted::nothing;
   In const in_;
   bool const intfNamed_;
   std::string const path_;
   std::map<std::pair<Kel::AttributeInfo const *, std::string>, std::unique_ptr<Follower>> below_;
};

}  // namespace Host

// Follows an entity and all below it, and tells which rows of the store no longer say what is there.
//
// One for each entity of a kept directory, nested as they are; the keeper owns those of the mounted directories. Knows
// neither rows nor the store. What an entity that goes took with it is told once, by its own path.
//
// There are two for each interface of a unit in maintenance, so they are small: a follower is itself a node of the set
// that it is in, by its entity's name, and its path is put together whenever somebody asks for it.
#pragma once

#include <boost/intrusive/list.hpp>
#include <boost/intrusive/set.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "kel/Entity.h"

namespace Host {

class Follower;

class FollowerListener {
 public:
   virtual ~FollowerListener() = default;

   // An entity is followed from now on; it may be there since long, or new. Nothing below it is yet.
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
// In the set of the follower above it, which owns it.
using BelowHook = boost::intrusive::set_base_hook<boost::intrusive::optimize_size<true>>;

class Follower final : public Kel::Watcher, public FollowerHook, public BelowHook {
 public:
   // What its owner has noted of it.
   enum class Noted : uint8_t { nothing, passing, now };
   // What an entity is in: mounted, a directory of any type, another record.
   enum class In : uint8_t { database, dir, record };

   // A kept directory, which outlives all that follow what is in it.
   struct Mount {
      FollowerListener & listener;
      std::string path;
   };

   // Of what is mounted there.
   Follower( Mount const & mount, Kel::Ptr<Kel::Entity> const & entity );
   // Of what is in an attribute of the entity that `above` follows, which takes it.
   Follower( Follower const & above, Kel::AttributeInfo const & attribute, Kel::Ptr<Kel::Entity> const & entity );
   ~Follower() override;

   [[nodiscard]] Kel::Entity & entity() const { return *entity_; }
   [[nodiscard]] std::string path() const;
   [[nodiscard]] In in() const { return in_; }
   // Whether the key of the entity is an interface.
   [[nodiscard]] bool intfNamed() const;

   // Where something is noted, it does not tell of attributes that change with every sample: that saves each sample a
   // dozen calls.
   [[nodiscard]] Noted noted() const { return noted_; }
   void notedIs( Noted noted ) {
      noted_ = noted;
      entity_->watcherHearsPassingIs( *this, noted == Noted::nothing );
   }
   // In a row of some followers that its owner keeps, from 1 on; 0: it is not in it.
   [[nodiscard]] uint32_t place() const { return place_; }
   void placeIs( uint32_t place ) { place_ = place; }

   // Those of what is in its entity. In the order of their names, from the first whose name comes after that; until
   // `visit` says false, and while none comes or goes.
   using Visit = std::function<bool( Follower & )>;
   void eachBelow( std::string_view after, Visit const & visit ) const;
   [[nodiscard]] std::size_t countBelow() const;

   void onAttribute( Kel::Entity const & e, Kel::AttributeInfo const & attribute, std::string const * key ) override;

 private:
   class Below;

   void begin();
   void followChild( Kel::AttributeInfo const & attribute, std::string const & key );
   [[nodiscard]] std::string childPath( Kel::AttributeInfo const & attribute, std::string const & key ) const;

   Mount const & mount_;
   Kel::Ptr<Kel::Entity> const entity_;
   Follower const * const above_ = nullptr;                // none for what is mounted
   Kel::AttributeInfo const * const attribute_ = nullptr;  // of the entity above
   uint32_t place_ = 0;
   Noted noted_ = Noted::nothing;
   In const in_ = In::database;
   std::unique_ptr<Below> below_;  // null: nothing was ever in it
};

}  // namespace Host

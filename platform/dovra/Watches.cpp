#include "dovra/Watches.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "kel/Dir.h"

namespace Dovra {

namespace {

std::string withoutCell( std::string const & path ) {
   static std::string const prefix = "cell/0/";
   return path.starts_with( prefix ) ? path.substr( prefix.size() ) : path;
}

bool isAtOrBelow( StateComponents const & path, StateComponents const & top ) {
   return top.size() <= path.size() && std::equal( top.begin(), top.end(), path.begin() );
}

void appendPath( StateComponents & path, WatchedPlace const & place ) {
   if( place.above ) appendPath( path, *place.above );
   if( place.name ) path.push_back( *place.name );
   path.push_back( place.key );
}

}  // namespace

// One entity that is followed, and those below it by attribute and key. There is one for each record, so it is small:
// paths are put together when they are asked for, and only what has something below it has room for that.
class Watches::Follower final : public Kel::Watcher {
 public:
   Follower( Watches const & owner, Kel::Ptr<Kel::Entity> const & entity, Kel::Ptr<WatchedPlace const> place )
      : owner_( owner ), entity_( entity ), place_( std::move( place ) ) {
      entity_->watcherIs( *this );
      for( auto const & attribute : entity_->kelTypeInfo().attributes() ) {
         if( attribute->kind() != Kel::AttributeInfo::Kind::children ) continue;
         for( std::string const & key : attribute->keys( *entity_ ) ) followChild( *attribute, key );
      }
   }
   ~Follower() override { entity_->watcherDel( *this ); }

   void onAttribute( Kel::Entity const & e, Kel::AttributeInfo const & attribute, std::string const * key ) override {
      if( key && attribute.kind() == Kel::AttributeInfo::Kind::children ) followChild( attribute, *key );
      owner_.report( { place_, nameOf( attribute ), key }, key ? attribute.entry( e, *key ) : attribute.get( e ) );
   }

 private:
   using Name = std::pair<std::string const *, std::string_view>;  // of the attribute, null for that of a directory
   struct ByName {
      using is_transparent = void;
      using One = std::unique_ptr<Follower>;
      bool operator()( One const & a, One const & b ) const { return a->name() < b->name(); }
      bool operator()( One const & a, Name const & b ) const { return a->name() < b; }
      bool operator()( Name const & a, One const & b ) const { return a < b->name(); }
   };

   [[nodiscard]] Name name() const { return { place_->name, place_->key }; }
   // The children of a directory stand directly below it.
   [[nodiscard]] std::string const * nameOf( Kel::AttributeInfo const & attribute ) const {
      return dynamic_cast<Kel::Dir const *>( entity_.get() ) ? nullptr : &attribute.name();
   }

   void followChild( Kel::AttributeInfo const & attribute, std::string const & key ) {
      auto const * const above = nameOf( attribute );
      // Always: the entry may be gone, or another entity may have taken its place under the same key.
      if( below_ ) {
         auto const present = below_->find( Name( above, key ) );
         if( present != below_->end() ) below_->erase( present );
      }
      auto const child = attribute.child( *entity_, key );
      if( !child ) return;
      if( !below_ ) below_ = std::make_unique<std::set<std::unique_ptr<Follower>, ByName>>();
      Kel::Ptr<WatchedPlace const> const place( new WatchedPlace( place_, above, key ) );
      below_->insert( std::make_unique<Follower>( owner_, child, place ) );
   }

   Watches const & owner_;
   Kel::Ptr<Kel::Entity> const entity_;
   Kel::Ptr<WatchedPlace const> const place_;
   std::unique_ptr<std::set<std::unique_ptr<Follower>, ByName>> below_;  // null while there are none
};

Watches::Watches( EntityManager const & database, Report report )
   : database_( database ), report_( std::move( report ) ) {}

Watches::Watches( EntityManager const & database, Listener & listener )
   : database_( database ), listener_( &listener ) {}

Watches::~Watches() = default;

StateComponents Watches::reported( EntityManager const & database, StateComponents const & path ) {
   // What is below an entry that is still absent is taken as it was written: nothing can say yet where its keys end.
   StateComponents place = statePlace( database, path ).components;
   place.front() = withoutCell( place.front() );
   auto const joined = []( auto begin, auto end ) {
      std::string text;
      for( ; begin != end; ++begin ) text += "/" + *begin;
      return withoutCell( text.substr( 1 ) );
   };
   // Written components may be joined or apart, so those that the place has used up are found by their text.
   std::string const found = joined( place.begin(), place.end() );
   auto last = path.begin();
   while( last != path.end() && joined( path.begin(), last + 1 ) != found ) ++last;
   if( last != path.end() ) place.insert( place.end(), last + 1, path.end() );
   return place;
}

void Watches::watch( StateComponents const & path ) {
   std::string const mounted = statePlace( database_, path ).components.front();
   watched_.push_back( reported( database_, path ) );
   // One follower for a mounted directory however many paths are watched in it, so that a change is reported once.
   auto & follower = followers_[mounted];
   if( follower ) return;
   Kel::Ptr<WatchedPlace const> const place( new WatchedPlace( nullptr, nullptr, withoutCell( mounted ) ) );
   follower = std::make_unique<Follower>( *this, database_.getEntity( mounted ), place );
}

void Watches::report( Change const & change, Kel::Value const & value ) const {
   if( muted_ ) return;
   if( listener_ ) return listener_->onChange( change, value );
   StateComponents path;
   appendPath( path, *change.entity );
   if( change.name ) path.push_back( *change.name );
   if( change.key ) path.push_back( *change.key );
   auto const above = [&]( StateComponents const & top ) { return isAtOrBelow( path, top ); };
   if( std::any_of( watched_.begin(), watched_.end(), above ) ) report_( path, value );
}

}  // namespace Dovra

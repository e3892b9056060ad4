#include "dovra/Watches.h"

#include <algorithm>

#include "kel/Dir.h"

namespace Dovra {

namespace {

std::string withoutCell( std::string const & path ) {
   static std::string const firstCell = "cell/0/";
   return path.starts_with( firstCell ) ? path.substr( firstCell.size() ) : path;
}

bool isAtOrBelow( StateComponents const & path, StateComponents const & top ) {
   return top.size() <= path.size() && std::equal( top.begin(), top.end(), path.begin() );
}

}  // namespace

// One entity that is followed, and those below it by attribute and key.
class Watches::Follower final : public Kel::Watcher {
 public:
   Follower( Watches const & owner, Kel::Ptr<Kel::Entity> const & entity, StateComponents path )
      : owner_( owner ), entity_( entity ), path_( std::move( path ) ) {
      entity_->watcherIs( *this );
      for( auto const & attribute : entity_->kelTypeInfo().attributes() ) {
         if( attribute->kind() != Kel::AttributeInfo::Kind::children ) continue;
         for( std::string const & key : attribute->keys( *entity_ ) ) followChild( *attribute, key );
      }
   }
   ~Follower() override { entity_->watcherDel( *this ); }

   void onAttribute( Kel::Entity const & e, Kel::AttributeInfo const & attribute, std::string const * key ) override {
      if( key && attribute.kind() == Kel::AttributeInfo::Kind::children ) followChild( attribute, *key );
      owner_.report( place( attribute, key ), key ? attribute.entry( e, *key ) : attribute.get( e ) );
   }

 private:
   StateComponents place( Kel::AttributeInfo const & attribute, std::string const * key ) const {
      StateComponents path = path_;
      bool const isDir = dynamic_cast<Kel::Dir const *>( entity_.get() );  // its children stand directly below it
      if( !isDir ) path.push_back( attribute.name() );
      if( key ) path.push_back( *key );
      return path;
   }

   void followChild( Kel::AttributeInfo const & attribute, std::string const & key ) {
      auto const name = std::make_pair( attribute.name(), key );
      // Always: the entry may be gone, or another entity may have taken its place under the same key.
      below_.erase( name );
      auto const child = attribute.child( *entity_, key );
      if( child ) below_.emplace( name, std::make_unique<Follower>( owner_, child, place( attribute, &key ) ) );
   }

   Watches const & owner_;
   Kel::Ptr<Kel::Entity> const entity_;
   StateComponents const path_;
   std::map<std::pair<std::string, std::string>, std::unique_ptr<Follower>> below_;
};

Watches::Watches( EntityManager const & database, Report report )
   : database_( database ), report_( std::move( report ) ) {}

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
   follower =
      std::make_unique<Follower>( *this, database_.getEntity( mounted ), StateComponents{ withoutCell( mounted ) } );
}

void Watches::report( StateComponents const & path, Kel::Value const & value ) const {
   if( muted_ ) return;
   auto const above = [&]( StateComponents const & top ) { return isAtOrBelow( path, top ); };
   if( std::any_of( watched_.begin(), watched_.end(), above ) ) report_( path, value );
}

}  // namespace Dovra

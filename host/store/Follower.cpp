#include "store/Follower.h"

#include "kel/Dir.h"
#include "store/Records.h"
#include "store/RowText.h"

namespace Host {

Follower::Follower( FollowerListener & listener, Kel::Ptr<Kel::Entity> const & entity, std::string path, In in,
                    bool intfNamed )
   : listener_( listener ), entity_( entity ), in_( in ), intfNamed_( intfNamed ), path_( std::move( path ) ) {
   entity_->watcherIs( *this );
   listener_.followed( *this );
   for( auto const & attribute : entity_->kelTypeInfo().attributes() ) {
      if( attribute->kind() != Kel::AttributeInfo::Kind::children ) continue;
      for( std::string const & key : attribute->keys( *entity_ ) ) followChild( *attribute, key );
   }
}

Follower::~Follower() {
   entity_->watcherDel( *this );
   listener_.forgotten( *this );
}

void Follower::onAttribute( Kel::Entity const &, Kel::AttributeInfo const & attribute, std::string const * key ) {
   if( Records::inRow( attribute ) ) return listener_.changed( *this, attribute );
   if( attribute.kind() != Kel::AttributeInfo::Kind::children || !key ) return;
   // Always: the entry may be gone, or another entity may have taken its place under the same key.
   if( below_.erase( { &attribute, *key } ) > 0 ) listener_.gone( childPath( attribute, *key ) );
   followChild( attribute, *key );
}

void Follower::followChild( Kel::AttributeInfo const & attribute, std::string const & key ) {
   auto const child = attribute.child( *entity_, key );
   if( !child ) return;
   bool const isDir = dynamic_cast<Kel::Dir const *>( entity_.get() ) != nullptr;
   below_.emplace(
      std::pair( &attribute, key ),
      std::make_unique<Follower>( listener_, child, childPath( attribute, key ), isDir ? In::dir : In::record,
                                  attribute.keyTypeName() == "Lumo::IntfId" ) );
}

// Children of a directory stand directly below it.
std::string Follower::childPath( Kel::AttributeInfo const & attribute, std::string const & key ) const {
   bool const isDir = dynamic_cast<Kel::Dir const *>( entity_.get() ) != nullptr;
   return RowText::joined( isDir ? path_ : RowText::joined( path_, attribute.name() ), key );
}

}  // namespace Host

#include "store/Follower.h"

#include <tuple>
#include <utility>

#include "kel/Dir.h"
#include "store/Records.h"
#include "store/RowText.h"

namespace Host {

namespace {

bool isDir( Kel::Entity const & e ) { return dynamic_cast<Kel::Dir const *>( &e ) != nullptr; }

}  // namespace

// Owns what is in it.
class Follower::Below {
 public:
   struct Key {
      std::string_view name;
      Kel::AttributeInfo const * attribute;  // in two of an entity may be the same name
   };

   Below() = default;
   Below( Below const & ) = delete;
   Below & operator=( Below const & ) = delete;
   ~Below() { all_.clear_and_dispose( std::default_delete<Follower>() ); }

   void insert( std::unique_ptr<Follower> follower ) {
      if( all_.insert( *follower ).second ) static_cast<void>( follower.release() );
   }
   // Whether there was one.
   bool erase( Key const & key ) {
      auto const found = all_.find( key, ByKey() );
      if( found == all_.end() ) return false;
      all_.erase_and_dispose( found, std::default_delete<Follower>() );
      return true;
   }
   void eachAfter( std::string_view name, Visit const & visit ) {
      for( auto i = all_.upper_bound( name, ByName() ); i != all_.end() && visit( *i ); ++i ) {
      }
   }
   [[nodiscard]] std::size_t size() const { return all_.size(); }

 private:
   // By the name as the entity says it, which nobody keeps here.
   struct ByKey {
      bool operator()( Follower const & a, Follower const & b ) const {
         return ( *this )( Key{ a.entity().name(), a.attribute_ }, b );
      }
      bool operator()( Key const & a, Follower const & b ) const {
         std::string const name = b.entity().name();
         return std::tie( a.name, a.attribute ) < std::tuple( std::string_view( name ), b.attribute_ );
      }
      bool operator()( Follower const & a, Key const & b ) const {
         std::string const name = a.entity().name();
         return std::tuple( std::string_view( name ), a.attribute_ ) < std::tie( b.name, b.attribute );
      }
   };

   struct ByName {
      bool operator()( std::string_view name, Follower const & b ) const { return name < b.entity().name(); }
   };

   boost::intrusive::set<Follower, boost::intrusive::base_hook<BelowHook>, boost::intrusive::compare<ByKey>> all_;
};

Follower::Follower( Mount const & mount, Kel::Ptr<Kel::Entity> const & entity ) : mount_( mount ), entity_( entity ) {
   begin();
}

Follower::Follower( Follower const & above, Kel::AttributeInfo const & attribute, Kel::Ptr<Kel::Entity> const & entity )
   : mount_( above.mount_ ),
     entity_( entity ),
     above_( &above ),
     attribute_( &attribute ),
     in_( isDir( above.entity() ) ? In::dir : In::record ) {
   begin();
}

Follower::~Follower() {
   entity_->watcherDel( *this );
   mount_.listener.forgotten( *this );
}

void Follower::begin() {
   entity_->watcherIs( *this );
   mount_.listener.followed( *this );
   for( auto const & attribute : entity_->kelTypeInfo().attributes() ) {
      if( attribute->kind() != Kel::AttributeInfo::Kind::children ) continue;
      for( std::string const & key : attribute->keys( *entity_ ) ) followChild( *attribute, key );
   }
}

void Follower::onAttribute( Kel::Entity const &, Kel::AttributeInfo const & attribute, std::string const * key ) {
   if( Records::inRow( attribute ) ) return mount_.listener.changed( *this, attribute );
   if( attribute.kind() != Kel::AttributeInfo::Kind::children || !key ) return;
   // Always: the entry may be gone, or another entity may have taken its place under the same key.
   if( below_ && below_->erase( { *key, &attribute } ) ) mount_.listener.gone( childPath( attribute, *key ) );
   followChild( attribute, *key );
}

void Follower::followChild( Kel::AttributeInfo const & attribute, std::string const & key ) {
   auto const child = attribute.child( *entity_, key );
   if( !child ) return;
   if( !below_ ) below_ = std::make_unique<Below>();
   below_->insert( std::make_unique<Follower>( *this, attribute, child ) );
}

void Follower::eachBelow( std::string_view after, Visit const & visit ) const {
   if( below_ ) below_->eachAfter( after, visit );
}

std::size_t Follower::countBelow() const { return below_ ? below_->size() : 0; }

bool Follower::intfNamed() const { return attribute_ && attribute_->keyTypeName() == "Lumo::IntfId"; }

std::string Follower::path() const { return above_ ? above_->childPath( *attribute_, entity_->name() ) : mount_.path; }

// Children of a directory stand directly below it.
std::string Follower::childPath( Kel::AttributeInfo const & attribute, std::string const & key ) const {
   return RowText::joined( isDir( *entity_ ) ? path() : RowText::joined( path(), attribute.name() ), key );
}

}  // namespace Host

// Follows the records of one directory: which come and go, and what changes in each.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "kel/Entity.h"

namespace Lives {

class Follow {
 public:
   // `attribute` is null where the record itself came, or has gone; then `record` is null, too. `key` is that of the
   // record in the first case, and in the other that of the changed entry, empty where the attribute is not keyed.
   using Heard =
      std::function<void( Kel::Entity const * record, Kel::AttributeInfo const * attribute, std::string const & key )>;

   // Records that are there already are told of as coming.
   Follow( Kel::Ptr<Kel::Entity const> dir, Heard heard ) : heard_( std::move( heard ) ) {
      for( auto const & attribute : dir->kelTypeInfo().attributes() ) {
         if( attribute->kind() == Kel::AttributeInfo::Kind::children ) records_ = attribute.get();
      }
      for( std::string const & key : records_->keys( *dir ) ) recordIs( *dir, key );
      onDir_ = std::make_unique<Ear>( *this, std::move( dir ) );
   }
   Follow( Follow const & ) = delete;
   Follow & operator=( Follow const & ) = delete;

 private:
   class Ear final : public Kel::Watcher {
    public:
      Ear( Follow & owner, Kel::Ptr<Kel::Entity const> entity ) : owner_( owner ), entity_( std::move( entity ) ) {
         entity_->watcherIs( *this );
      }
      ~Ear() override { entity_->watcherDel( *this ); }
      void onAttribute( Kel::Entity const & e, Kel::AttributeInfo const & attribute,
                        std::string const * key ) override {
         if( this != owner_.onDir_.get() ) return owner_.heard_( &e, &attribute, key ? *key : std::string() );
         if( &attribute == owner_.records_ ) owner_.recordIs( e, *key );
      }

    private:
      Follow & owner_;
      Kel::Ptr<Kel::Entity const> const entity_;
   };

   void recordIs( Kel::Entity const & dir, std::string const & key ) {
      below_.erase( key );
      Kel::Ptr<Kel::Entity const> const record = records_->child( dir, key );
      if( record ) below_.emplace( key, std::make_unique<Ear>( *this, record ) );
      heard_( record.get(), nullptr, key );
   }

   Heard const heard_;
   Kel::AttributeInfo const * records_ = nullptr;  // the attribute that holds them
   std::map<std::string, std::unique_ptr<Ear>> below_;
   std::unique_ptr<Ear> onDir_;
};

}  // namespace Lives

#include "Follow.h"

namespace Lives {

class Follow::OnDir final : public Kel::Watcher {
 public:
   explicit OnDir( Follow & owner ) : owner_( owner ) { owner_.dir_->watcherIs( *this ); }
   ~OnDir() override { owner_.dir_->watcherDel( *this ); }
   void onAttribute( Kel::Entity const &, Kel::AttributeInfo const & attribute, std::string const * key ) override {
      if( &attribute == owner_.records_ ) owner_.recordIs( *key );
   }

 private:
   Follow & owner_;
};

class Follow::OnRecord final : public Kel::Watcher {
 public:
   OnRecord( Follow & owner, Kel::Ptr<Kel::Entity const> record ) : owner_( owner ), record_( std::move( record ) ) {
      record_->watcherIs( *this );
   }
   ~OnRecord() override { record_->watcherDel( *this ); }
   void onAttribute( Kel::Entity const & e, Kel::AttributeInfo const & attribute, std::string const * key ) override {
      static std::string const none;
      owner_.heard_( &e, &attribute, key ? *key : none );
   }

 private:
   Follow & owner_;
   Kel::Ptr<Kel::Entity const> const record_;
};

Follow::Follow( Kel::Ptr<Kel::Entity const> dir, Heard heard )
   : dir_( std::move( dir ) ), heard_( std::move( heard ) ) {
   for( auto const & attribute : dir_->kelTypeInfo().attributes() ) {
      if( attribute->kind() == Kel::AttributeInfo::Kind::children ) records_ = attribute.get();
   }
   for( std::string const & key : records_->keys( *dir_ ) ) recordIs( key );
   onDir_ = std::make_unique<OnDir>( *this );
}

Follow::~Follow() = default;

void Follow::recordIs( std::string const & key ) {
   below_.erase( key );
   Kel::Ptr<Kel::Entity const> const record = records_->child( *dir_, key );
   if( record ) below_.emplace( key, std::make_unique<OnRecord>( *this, record ) );
   heard_( record.get(), nullptr, key );
}

}  // namespace Lives

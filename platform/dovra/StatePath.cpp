#include "dovra/StatePath.h"

#include <algorithm>
#include <span>

#include "kel/Dir.h"

namespace Dovra {

namespace {

using Part = std::span<std::string const>;

// What exists once per cell is mounted below its cell's prefix, which people leave out.
constexpr std::string_view firstCell = "cell/0/";

// How much of a path may be the key of an entry that is not there yet.
enum class NewKey { oneComponent, allThatRemains };

std::string joined( Part components ) {
   std::string text;
   for( std::string const & component : components ) {
      if( !text.empty() ) text += '/';
      text += component;
   }
   return text;
}

StateComponents split( std::string_view text ) {
   StateComponents components;
   while( !text.empty() ) {
      std::size_t const end = std::min( text.find( '/' ), text.size() );
      if( end > 0 ) components.emplace_back( text.substr( 0, end ) );
      text.remove_prefix( std::min( end + 1, text.size() ) );
   }
   return components;
}

// A directory has no attributes of its own: its children stand directly below it.
Kel::AttributeInfo const * children( Kel::Entity const & e ) {
   return dynamic_cast<Kel::Dir const *>( &e ) ? e.kelTypeInfo().attribute( "entity" ) : nullptr;
}

class Walk {
 public:
   Walk( EntityManager const & database, StateComponents const & path, NewKey newKey )
      : rest_( path ), newKey_( newKey ) {
      mounted( database );
   }

   StatePlace place() {
      while( !rest_.empty() && !place_.key ) step();
      return std::move( place_ );
   }

 private:
   void mounted( EntityManager const & database ) {
      std::string const text = joined( rest_ );
      if( mountedBelow( "", text, database ) || mountedBelow( firstCell, text, database ) ) return;
      throw Kel::AttributeError( "nothing is mounted at or above \"" + text + "\"" );
   }

   // Takes the components of the longest mounted path that `prefix` and the path begin with. A mounted path that ends
   // within a component is not meant.
   bool mountedBelow( std::string_view prefix, std::string const & text, EntityManager const & database ) {
      std::string const full = std::string( prefix ) + text;
      std::string const path( database.mountedPrefix( full ) );
      for( std::size_t n = 1; n <= rest_.size(); ++n ) {
         if( prefix.size() + joined( rest_.first( n ) ).size() != path.size() ) continue;
         place_.entity = database.getEntity( path );
         place_.components.push_back( path );
         rest_ = rest_.subspan( n );
         return true;
      }
      return false;
   }

   void step() {
      Kel::Entity const & e = *place_.entity;
      place_.attribute = children( e );
      if( !place_.attribute ) {
         place_.attribute = e.kelTypeInfo().attribute( rest_.front() );
         if( !place_.attribute ) noAttribute( rest_.front() );
         place_.components.push_back( rest_.front() );
         rest_ = rest_.subspan( 1 );
      }
      if( rest_.empty() ) return;
      if( !place_.attribute->keyed() ) throw Kel::AttributeError( place_.text() + " has no entries, it is one value" );
      if( place_.attribute->kind() == Kel::AttributeInfo::Kind::children ) {
         stepToChild();
      } else {
         keyIs( entryAt( rest_.size() ) ? rest_.size() : newKeySize() );
      }
   }

   // The fewest components that are a child's key with something to go on to, or the end, behind it.
   void stepToChild() {
      std::size_t dead = 0;  // components of a child that does not lead on
      for( std::size_t n = 1; n <= rest_.size(); ++n ) {
         Kel::Ptr<Kel::Entity> const child = childAt( n );
         if( !child ) continue;
         if( n == rest_.size() || children( *child ) || child->kelTypeInfo().attribute( rest_[n] ) ) {
            enter( child, n );
            return;
         }
         if( dead == 0 ) dead = n;
      }
      if( dead != 0 ) {
         std::string const wrong = rest_[dead];
         keyIs( dead );
         noAttribute( wrong );
      }
      keyIs( newKeySize() );
   }

   std::size_t newKeySize() const { return newKey_ == NewKey::allThatRemains ? rest_.size() : 1; }

   bool entryAt( std::size_t n ) const {
      try {
         return !place_.attribute->entry( *place_.entity, joined( rest_.first( n ) ) ).isNull();
      } catch( Kel::AttributeError const & ) {
         return false;
      }
   }

   Kel::Ptr<Kel::Entity> childAt( std::size_t n ) const {
      try {
         return place_.attribute->child( *place_.entity, joined( rest_.first( n ) ) );
      } catch( Kel::AttributeError const & ) {
         return nullptr;  // no key of this type, but fewer or more components may be one
      }
   }

   void enter( Kel::Ptr<Kel::Entity> const & child, std::size_t n ) {
      keyIs( n );
      if( rest_.empty() ) return;
      place_.entity = child;
      place_.attribute = nullptr;
      place_.key.reset();
      place_.below = false;
   }

   void keyIs( std::size_t n ) {
      place_.key = joined( rest_.first( n ) );
      place_.components.push_back( *place_.key );
      rest_ = rest_.subspan( n );
      place_.below = !rest_.empty();
   }

   [[noreturn]] void noAttribute( std::string const & name ) const {
      throw Kel::AttributeError( place_.text() + " has no attribute \"" + name + "\"" );
   }

   Part rest_;
   NewKey const newKey_;
   StatePlace place_;
};

// Does something with the place and says which place it was when that does not go.
template<class Do>
auto at( StatePlace const & place, Do const & act ) {
   try {
      return act();
   } catch( Kel::AttributeError const & error ) {
      throw Kel::AttributeError( place.text() + ": " + error.what() );
   }
}

Kel::Value valueOf( Kel::Entity const & e ) {
   auto const * const named = children( e );
   if( !named ) return Kel::toValue( e );
   Kel::Value::Object object;
   for( std::string const & name : named->keys( e ) ) object.emplace_back( name, valueOf( *named->child( e, name ) ) );
   return Kel::Value( Kel::Value::Content( std::move( object ) ) );
}

Kel::Value valueAt( StatePlace const & place ) {
   if( place.below ) return {};
   if( !place.attribute ) return valueOf( *place.entity );
   if( !place.key ) return place.attribute->get( *place.entity );
   if( auto const child = place.attribute->child( *place.entity, *place.key ) ) return valueOf( *child );
   return place.attribute->entry( *place.entity, *place.key );
}

// A directory takes an object of its children.
void entityValueIs( Kel::Entity & e, Kel::Value const & value ) {
   auto const * const object = value.as<Kel::Value::Object>();
   if( !object ) Kel::wrongType( "an object", value );
   if( auto const * const named = children( e ) ) {
      named->set( e, value );
   } else {
      Kel::setAttributes( e, *object );
   }
}

void valueIsAt( StatePlace const & place, Kel::Value const & value ) {
   if( place.below ) throw Kel::AttributeError( "there is no such entry" );
   if( !place.attribute ) return entityValueIs( *place.entity, value );
   if( !place.key ) return place.attribute->set( *place.entity, value );
   if( auto const child = place.attribute->child( *place.entity, *place.key ) ) return entityValueIs( *child, value );
   place.attribute->entryIs( *place.entity, *place.key, value );
}

void valueDelAt( StatePlace const & place ) {
   if( place.below ) return;
   auto const * const attribute = place.attribute ? place.attribute : children( *place.entity );
   if( !attribute ) throw Kel::AttributeError( "what is mounted cannot be deleted" );
   if( place.key ) {
      attribute->entryDel( *place.entity, *place.key );
   } else {
      attribute->entryDelAll( *place.entity );
   }
}

void write( StatePlace const & place, Kel::Value const & value ) {
   at( place, [&] { valueIsAt( place, value ); } );
}

Kel::Value read( StatePlace const & place ) {
   return at( place, [&] { return valueAt( place ); } );
}

void erase( StatePlace const & place ) {
   at( place, [&] { valueDelAt( place ); } );
}

}  // namespace

std::string StatePlace::text() const { return joined( components ); }

StatePlace statePlace( EntityManager const & database, StateComponents const & path ) {
   return Walk( database, path, NewKey::oneComponent ).place();
}
StatePlace statePlace( EntityManager const & database, std::string_view path ) {
   StateComponents const components = split( path );
   return Walk( database, components, NewKey::allThatRemains ).place();
}

Kel::Value stateValue( EntityManager const & database, StateComponents const & path ) {
   return read( statePlace( database, path ) );
}
Kel::Value stateValue( EntityManager const & database, std::string_view path ) {
   return read( statePlace( database, path ) );
}

void stateValueIs( EntityManager const & database, StateComponents const & path, Kel::Value const & value ) {
   write( statePlace( database, path ), value );
}
void stateValueIs( EntityManager const & database, std::string_view path, Kel::Value const & value ) {
   write( statePlace( database, path ), value );
}

void stateValueDel( EntityManager const & database, StateComponents const & path ) {
   erase( statePlace( database, path ) );
}
void stateValueDel( EntityManager const & database, std::string_view path ) { erase( statePlace( database, path ) ); }

}  // namespace Dovra

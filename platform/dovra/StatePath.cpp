#include "dovra/StatePath.h"

#include <algorithm>
#include <span>

#include "kel/Dir.h"

namespace Dovra {

namespace {

using Part = std::span<std::string const>;

// What exists once per cell is mounted below the prefix of its cell; people leave that of the first cell out.
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
      // Empty components are dropped: slashes at either end of a text, or doubled, are nothing to stumble over.
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
      // A key ends the walk: what still follows it, if anything, is below an entry that is absent.
      while( !rest_.empty() && !place_.key ) step();
      return std::move( place_ );
   }

 private:
   void mounted( EntityManager const & database ) {
      std::string const text = joined( rest_ );
      // As written first, so that a host that mounts the short form itself is not overruled.
      if( mountedBelow( "", text, database ) || mountedBelow( firstCell, text, database ) ) return;
      throw Kel::AttributeError( "nothing is mounted at or above \"" + text + "\"" );
   }

   // Takes the components that make up the longest mounted path at the beginning of `prefix` and the path. Where that
   // ends in the middle of a component it is not what the writer meant.
   bool mountedBelow( std::string_view prefix, std::string const & text, EntityManager const & database ) {
      std::string const full = std::string( prefix ) + text;
      std::string const path( database.mountedPrefix( full ) );
      if( path.empty() ) return false;  // an empty first component is as long as no path at all
      for( std::size_t n = 1; n <= rest_.size(); ++n ) {
         // Both are beginnings of the same text, so equal lengths are enough to know that they are equal.
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
      // In a directory the next component is a key already: there is no attribute name to take off.
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
         // Nothing is below a plain value, so all that remains can only be one key, if there is such an entry.
         keyIs( entryAt( rest_.size() ) ? rest_.size() : newKeySize() );
      }
   }

   // Takes the fewest components that are a child's key and lead on, either to an attribute of the child or to the end
   // of the path. With Ethernet1 and Ethernet1/1 both there, the component behind the key decides which is meant.
   void stepToChild() {
      std::size_t dead = 0;  // components of a child that does not lead on
      for( std::size_t n = 1; n <= rest_.size(); ++n ) {
         Kel::Ptr<Kel::Entity> const child = childAt( n );
         if( !child ) continue;
         // Any name may be the key of a child in a directory, so from there the path always leads on.
         if( n == rest_.size() || children( *child ) || child->kelTypeInfo().attribute( rest_[n] ) ) {
            enter( child, n );
            return;
         }
         if( dead == 0 ) dead = n;
      }
      // A child that is there makes a misspelt attribute far likelier than a long key that is not there yet.
      if( dead != 0 ) {
         // Copied before keyIs moves on, so that the message names the child and then what it lacks.
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
         // What cannot be a key of this type has no entry either.
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
      // A path that ends here means the entry in its collection, so that it can be replaced or deleted there; one that
      // goes on means the child.
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

// Runs `act` and, when that is refused, says at which place it was.
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
   // By hand, because a directory's own value would put its one attribute between it and its children.
   for( std::string const & name : named->keys( e ) ) object.emplace_back( name, valueOf( *named->child( e, name ) ) );
   return Kel::Value( Kel::Value::Content( std::move( object ) ) );
}

Kel::Value valueAt( StatePlace const & place ) {
   // Null and no error: a watcher or a script may ask before the record comes.
   if( place.below ) return {};
   if( !place.attribute ) return valueOf( *place.entity );
   if( !place.key ) return place.attribute->get( *place.entity );
   // Through the child where there is one, as entry() would not take a directory apart.
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
   // Only the last entry of a path is made. To invent those above it would turn a misspelt key into a record.
   if( place.below ) throw Kel::AttributeError( "there is no such entry" );
   if( !place.attribute ) return entityValueIs( *place.entity, value );
   if( !place.key ) return place.attribute->set( *place.entity, value );
   // Written into: a new entity in its place would lose the attributes that are not named, and everyone who watches it.
   if( auto const child = place.attribute->child( *place.entity, *place.key ) ) return entityValueIs( *child, value );
   place.attribute->entryIs( *place.entity, *place.key, value );
}

void valueDelAt( StatePlace const & place ) {
   if( place.below ) return;
   // The path of a directory alone stands for its children, as it does when it is read.
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
   // Whoever gives a list has said where each key ends; in a text a slash may be part of the key.
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

// The reflected form of each kind of attribute, made by the attribute macros with small lambdas for access. Not used
// directly.
#pragma once

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kel/Collections.h"
#include "kel/Entity.h"

namespace Kel {

// How a value reads in a line of text: enumerations by name, the rest as they stream.
template<class T>
[[nodiscard]] std::string printValue( T const & value ) {
   if constexpr( NamedEnum<T> ) {
      char const * const name = enumName( value );
      return name ? name : std::to_string( static_cast<unsigned>( value ) );
   } else if constexpr( std::is_same_v<T, bool> ) {
      return value ? "true" : "false";
   } else if constexpr( std::is_arithmetic_v<T> ) {
      return std::to_string( value );
   } else {
      return KeyTraits<T>::toText( value );
   }
}

template<class T>
inline constexpr bool isSeries = false;
template<class T>
inline constexpr bool isSeries<std::vector<T>> = true;

template<class Self, class T, class Get, class Set>
class ScalarInfo final : public AttributeInfo {
 public:
   ScalarInfo( char const * name, Kind kind, bool passing, Get get, Set set )
      : AttributeInfo( name, kind, ValueTraits<T>::typeName(), {}, passing ), get_( get ), set_( set ) {}

   Value get( Entity const & e ) const override { return ValueTraits<T>::toValue( get_( self( e ) ) ); }
   void set( Entity & e, Value const & value ) const override {
      // Converted first: a value that does not fit changes nothing.
      T const converted = converting( [&] { return ValueTraits<T>::fromValue( value ); } );
      set_( static_cast<Self &>( e ), converted );
   }
   std::string print( Entity const & e ) const override {
      // Several fields, and a series, have no printed form on one line.
      if constexpr( ValueRecord<T> || isSeries<T> )
         return AttributeInfo::print( e );
      else
         return printValue( get_( self( e ) ) );
   }

 private:
   static Self const & self( Entity const & e ) { return static_cast<Self const &>( e ); }
   // Says which attribute could not take the value.
   template<class Convert>
   T converting( Convert const & convert ) const {
      try {
         return convert();
      } catch( AttributeError const & error ) {
         throw AttributeError( "the attribute \"" + name() + "\" " + error.what() );
      }
   }

   Get get_;
   Set set_;
};

template<class Self, class Get>
class ReferenceInfo final : public AttributeInfo {
 public:
   ReferenceInfo( char const * name, Get get ) : AttributeInfo( name, Kind::reference, "reference" ), get_( get ) {}

   // The name of what is referred to, or true where that has none; null for nothing.
   Value get( Entity const & e ) const override {
      auto const & target = get_( static_cast<Self const &>( e ) );
      if( !target ) return Value();
      if constexpr( isEntity ) return Value( Value::Content( target->name() ) );
      return Value( Value::Content( true ) );
   }
   Ptr<Entity const> referenced( Entity const & e ) const override {
      if constexpr( isEntity ) return Ptr<Entity const>( address( get_( static_cast<Self const &>( e ) ) ) );
      return nullptr;
   }

 private:
   template<class T>
   static T const * address( Ptr<T> const & target ) {
      return target.get();
   }
   // What a class keeps in its own way may be handed out as a plain pointer.
   static auto const * address( auto const * target ) { return target; }
   using Target = std::remove_cvref_t<decltype( *std::declval<Get>()( std::declval<Self const &>() ) )>;
   static constexpr bool isEntity = std::is_base_of_v<Entity, Target>;

   Get get_;
};

// Walking and reading that all keyed forms share. Access gives the entity's collection.
template<class Self, class K, class Access>
class KeyedInfo : public AttributeInfo {
 public:
   KeyedInfo( char const * name, Kind kind, std::string typeName, std::string keyTypeName, Access access )
      : AttributeInfo( name, kind, std::move( typeName ), std::move( keyTypeName ) ), access_( access ) {}

   Value get( Entity const & e ) const override {
      Value::Object object;
      for( std::string const & key : keys( e ) ) object.emplace_back( key, entry( e, key ) );
      return Value( Value::Content( std::move( object ) ) );
   }
   void set( Entity & e, Value const & value ) const override {
      auto const * object = value.as<Value::Object>();
      if( !object ) throw AttributeError( "the attribute \"" + name() + "\" wants an object, not " + value.kind() );
      for( auto const & [key, entryValue] : *object ) entryIs( e, key, entryValue );
   }
   std::vector<std::string> keys( Entity const & e ) const override {
      using Map = std::remove_cvref_t<decltype( access_( self( e ) ).map() )>;
      return sortedKeyTexts<Map, K>( access_( self( e ) ).map() );
   }

 protected:
   static Self const & self( Entity const & e ) { return static_cast<Self const &>( e ); }
   static Self & self( Entity & e ) { return static_cast<Self &>( e ); }
   [[nodiscard]] decltype( auto ) collection( Entity const & e ) const { return access_( self( e ) ); }

 private:
   Access access_;
};

template<class Self, class V, class K, class Access, class Mutate>
class MapInfo final : public KeyedInfo<Self, K, Access> {
   using Base = KeyedInfo<Self, K, Access>;

 public:
   MapInfo( char const * name, AttributeInfo::Kind kind, char const * keyTypeName, Access access, Mutate mutate )
      : Base( name, kind, ValueTraits<V>::typeName(), keyTypeName, access ), mutate_( mutate ) {}

   Value entry( Entity const & e, std::string_view key ) const override {
      auto const known = knownKey<K>( key );  // a lookup must not leave an invented key behind
      V const * const value = known ? this->collection( e ).map().find( *known ) : nullptr;
      return value ? ValueTraits<V>::toValue( *value ) : Value();
   }
   void entryIs( Entity & e, std::string_view key, Value const & value ) const override {
      V const converted = ValueTraits<V>::fromValue( value );
      if constexpr( std::is_same_v<V, bool> ) {
         // An entry with the value false would be there for some readers and not for others.
         if( this->kind() == AttributeInfo::Kind::set && !converted ) wrongType( "true (it is a set)", value );
      }
      mutate_( Base::self( e ), KeyTraits<K>::fromText( key ), &converted );
   }
   void entryDel( Entity & e, std::string_view key ) const override {
      if( auto const known = knownKey<K>( key ) ) mutate_( Base::self( e ), *known, nullptr );
   }
   // Of the keys that are there now. Unlike xDelAll() it leaves what a handler adds meanwhile.
   void entryDelAll( Entity & e ) const override {
      for( std::string const & key : this->keys( e ) ) entryDel( e, key );
   }

 private:
   Mutate mutate_;  // ( self, key, value or null to delete )
};

template<class Self, class Child, class K, class Access, class Mutate>
class ChildrenInfo final : public KeyedInfo<Self, K, Access> {
   using Base = KeyedInfo<Self, K, Access>;

 public:
   ChildrenInfo( char const * name, char const * keyTypeName, Access access, Mutate mutate )
      : Base( name, AttributeInfo::Kind::children, Child::kelTypeName(), keyTypeName, access ), mutate_( mutate ) {}

   Value entry( Entity const & e, std::string_view key ) const override {
      Ptr<Entity> const found = child( e, key );
      return found ? toValue( *found ) : Value();
   }
   // Changes the child that is there. Otherwise makes one, sets its scalars, puts it into the collection, then fills
   // its own collections: whoever hears of the child sees its scalars, and hears of each entry as it comes.
   void entryIs( Entity & e, std::string_view key, Value const & value ) const override;
   void entryDel( Entity & e, std::string_view key ) const override {
      if( auto const known = knownKey<K>( key ) ) mutate_( Base::self( e ), *known, nullptr );
   }
   void entryDelAll( Entity & e ) const override {
      for( std::string const & key : this->keys( e ) ) entryDel( e, key );
   }

   Ptr<Entity> child( Entity const & e, std::string_view key ) const override {
      auto const known = knownKey<K>( key );
      return known ? Ptr<Entity>( this->collection( e ).find( *known ) ) : nullptr;
   }
   Ptr<Entity> newChild( std::string_view key ) const override { return Child::kelType().newEntity( key ); }
   void childIs( Entity & e, Ptr<Entity> const & newOne ) const override {
      auto const typed = dynamicPtrCast<Child>( newOne );
      if( !typed ) this->unsupported( "given a child of another type" );
      mutate_( Base::self( e ), typed->kelKey(), typed.get() );
   }

 private:
   Mutate mutate_;  // ( self, key, child or null to delete )
};

// Splits an object into what is set before and what is set after the child is inserted.
std::pair<Value::Object, Value::Object> scalarsAndCollections( TypeInfo const & type, Value::Object const & object );

template<class Self, class Child, class K, class Access, class Mutate>
void ChildrenInfo<Self, Child, K, Access, Mutate>::entryIs( Entity & e, std::string_view key,
                                                            Value const & value ) const {
   auto const * object = value.as<Value::Object>();
   if( !object ) wrongType( "an object", value );
   if( Ptr<Entity> const present = child( e, key ) ) {
      setAttributes( *present, *object );
      return;
   }
   auto const [scalars, collections] = scalarsAndCollections( Child::kelType(), *object );
   Ptr<Entity> const added = newChild( key );
   setAttributes( *added, scalars );
   childIs( e, added );
   setAttributes( *added, collections );
}

}  // namespace Kel

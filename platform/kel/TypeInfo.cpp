#include "kel/TypeInfo.h"

#include <algorithm>
#include <map>

#include "kel/Entity.h"

namespace Kel {

namespace {

// Made on first use: types are registered by static objects of other files, whose order of construction is open.
std::map<std::string, TypeInfo const *, std::less<>> & typesByName() {
   static std::map<std::string, TypeInfo const *, std::less<>> types;
   return types;
}

}  // namespace

void AttributeInfo::unsupported( char const * operation ) const {
   throw AttributeError( "the attribute \"" + name_ + "\" cannot be " + operation );
}

void AttributeInfo::set( Entity &, Value const & ) const { unsupported( "set" ); }
std::string AttributeInfo::print( Entity const & ) const { unsupported( "printed" ); }
std::vector<std::string> AttributeInfo::keys( Entity const & ) const { unsupported( "walked by key" ); }
Value AttributeInfo::entry( Entity const &, std::string_view ) const { unsupported( "read by key" ); }
void AttributeInfo::entryIs( Entity &, std::string_view, Value const & ) const { unsupported( "set by key" ); }
void AttributeInfo::entryDel( Entity &, std::string_view ) const { unsupported( "deleted by key" ); }
void AttributeInfo::entryDelAll( Entity & ) const { unsupported( "emptied" ); }
Ptr<Entity const> AttributeInfo::referenced( Entity const & ) const { return nullptr; }
Ptr<Entity> AttributeInfo::child( Entity const &, std::string_view ) const { return nullptr; }
Ptr<Entity> AttributeInfo::newChild( std::string_view ) const { unsupported( "given a child" ); }
void AttributeInfo::childIs( Entity &, Ptr<Entity> const & ) const { unsupported( "given a child" ); }

Ptr<Entity> TypeInfo::newEntity( std::string_view key ) const {
   if( !factory_ ) throw AttributeError( "the type \"" + name_ + "\" cannot be made by name" );
   return factory_( key );
}

// Searched in order: types have a few dozen attributes at most, which is not worth a second container.
AttributeInfo const * TypeInfo::attribute( std::string_view name ) const {
   auto const i = std::find_if( attributes_.begin(), attributes_.end(),
                                [&]( auto const & attribute ) { return attribute->name() == name; } );
   return i == attributes_.end() ? nullptr : i->get();
}

void typeNodeIs( TypeInfo const & type ) { typesByName()[type.name()] = &type; }

// Another type may have taken the name since, and that one stays.
void typeNodeDel( TypeInfo const & type ) {
   auto const i = typesByName().find( type.name() );
   if( i != typesByName().end() && i->second == &type ) typesByName().erase( i );
}

TypeInfo const * typeNode( std::string_view name ) {
   auto const i = typesByName().find( name );
   return i == typesByName().end() ? nullptr : i->second;
}

Value toValue( Entity const & e ) {
   Value::Object object;
   for( auto const & attribute : e.kelTypeInfo().attributes() ) {
      object.emplace_back( attribute->name(), attribute->get( e ) );
   }
   return Value( Value::Content( std::move( object ) ) );
}

void setAttributes( Entity & e, Value::Object const & attributes ) {
   for( auto const & [name, value] : attributes ) {
      auto const * attribute = e.kelTypeInfo().attribute( name );
      if( !attribute ) throw AttributeError( e.kelTypeInfo().name() + " has no attribute \"" + name + "\"" );
      attribute->set( e, value );
   }
}

}  // namespace Kel

#include "store/Records.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <span>
#include <type_traits>

#include "errdisable/ErrdisableLib.h"
#include "events/SequenceNumbers.h"
#include "evidence/Windows.h"
#include "kel/Dir.h"
#include "links/HeldLinks.h"
#include "records/Errdisable.h"
#include "records/Names.h"
#include "store/Passing.h"
#include "store/RowText.h"

namespace Host::Records {

namespace {

using Kel::AttributeError;
using Kel::AttributeInfo;
using Kel::Value;
namespace Path = Maintenance::Path;

// Rates that are packed have one or two of these before them, so that they are never as long as whole cells. Those are
// what layout 1 has, as they are in memory.
constexpr char packedMark = 'p';
static_assert( std::is_trivially_copyable_v<Evidence::RateCell> &&
               sizeof( Evidence::RateCell ) == 8 * sizeof( double ) );

constexpr std::string_view firstCell = "cell/0/";
// No attribute is named so.
constexpr char const * typeMember = "@type";

std::vector<std::string> mountedPaths() {
   std::vector<std::string> paths = { std::string( Path::unitStatus ),
                                      std::string( Path::monIntfStatus ),
                                      std::string( Path::errdisableCauses ),
                                      std::string( Path::errdisableCauseGroups ),
                                      std::string( Path::windows ),
                                      Service::heldLinksPath,
                                      Service::sequencePath };
   for( auto const stageClass : { Maintenance::enterStageClass, Maintenance::exitStageClass } ) {
      paths.push_back( Path::stageProgress( stageClass ) );
      paths.push_back( Path::stageCompletion( stageClass ) );
      paths.push_back( Path::stageAgentStatus( stageClass ) );
   }
   return paths;
}

bool isDir( Kel::Entity const & e ) { return dynamic_cast<Kel::Dir const *>( &e ) != nullptr; }

// Those that directories of any type hold. Not taken from the registry: what a file names must not be able to make
// anything else. By their types, as those that only the plug-in uses would not be there otherwise.
Kel::Ptr<Kel::Entity> newEntity( std::string const & typeName, std::string_view name ) {
   for( auto const * type : { &Errdisable::CauseStatus::kelType(), &Errdisable::CauseGroup::kelType() } ) {
      if( type->name() == typeName ) return type->newEntity( name );
   }
   throw AttributeError( "is of the type \"" + typeName + "\", which is not known here" );
}

// Where a path leads: an entity, or the place in a collection of an entity for one that is not there.
struct Place {
   Kel::Ptr<Kel::Entity> entity;
   AttributeInfo const * collection = nullptr;  // null: the entity itself is meant
   std::string key;                             // of what is not there
};

AttributeInfo const & named( Kel::Entity const & e, std::string const & name ) {
   if( auto const * const found = e.kelTypeInfo().attribute( name ) ) return *found;
   throw AttributeError( e.kelTypeInfo().name() + " has no attribute \"" + name + "\"" );
}

// An interface without a name is none, and stands for none everywhere.
void refuseNoName( AttributeInfo const & attribute, std::string const & key ) {
   bool const intf = attribute.keyTypeName() == "Lumo::IntfId";
   if( intf && key.empty() ) throw AttributeError( "names an interface without a name" );
}

Place placeBelow( Kel::Ptr<Kel::Entity> const & top, std::span<std::string const> path ) {
   Place place{ top, nullptr, "" };
   while( !path.empty() ) {
      if( place.collection ) throw AttributeError( "is part of a record that is not there" );
      bool const inDir = isDir( *place.entity );
      auto const & collection = named( *place.entity, inDir ? "entity" : path.front() );
      if( !inDir ) path = path.subspan( 1 );
      if( path.empty() ) throw AttributeError( "ends in the middle of a path" );
      refuseNoName( collection, path.front() );
      if( auto const child = collection.child( *place.entity, path.front() ) ) {
         place.entity = child;
      } else {
         place.collection = &collection;
         place.key = path.front();
      }
      path = path.subspan( 1 );
   }
   return place;
}

Place placeOf( Dovra::EntityManager const & database, std::string_view path ) {
   static std::vector<std::string> const mounted = mountedPaths();
   for( std::string const & each : mounted ) {
      std::string const top = rowPath( each );
      if( !path.starts_with( top ) ) continue;
      auto const below = path.substr( top.size() );
      if( below.empty() ) return { database.getEntity( each ), nullptr, "" };
      if( below.front() == '/' )
         return placeBelow( database.getEntity( each ), RowText::components( below.substr( 1 ) ) );
   }
   throw AttributeError( "is not of a record that is kept" );
}

Value::Object objectOf( Value value ) {
   auto const * const object = value.as<Value::Object>();
   if( !object ) Kel::wrongType( "an object", value );
   return *object;
}

// What of a row is wrong for a record of this type, and would not be found by its attributes.
void checkEntries( Kel::TypeInfo const & type, Value::Object const & object ) {
   for( auto const & [name, member] : object ) {
      auto const * const attribute = type.attribute( name );
      if( !attribute || !attribute->keyed() ) continue;
      if( !inRow( *attribute ) ) throw AttributeError( "has \"" + name + "\", whose entries have rows of their own" );
      auto const * const entries = member.as<Value::Object>();
      if( !entries ) continue;
      for( auto const & [key, entry] : *entries ) refuseNoName( *attribute, key );
   }
}

std::string takeType( Value::Object & object ) {
   auto const * const type =
      object.empty() || object.front().first != typeMember ? nullptr : object.front().second.as<std::string>();
   if( !type ) throw AttributeError( "does not say of which type it is" );
   std::string name = *type;
   object.erase( object.begin() );
   return name;
}

// Whoever hears of it sees its scalars.
void insert( Place const & place, Value::Object object ) {
   auto const made =
      isDir( *place.entity ) ? newEntity( takeType( object ), place.key ) : place.collection->newChild( place.key );
   checkEntries( made->kelTypeInfo(), object );
   auto const [scalars, collections] = Kel::scalarsAndCollections( made->kelTypeInfo(), object );
   Kel::setAttributes( *made, scalars );
   place.collection->childIs( *place.entity, made );
   Kel::setAttributes( *made, collections );
}

}  // namespace

std::vector<std::string> kept( Dovra::EntityManager & database ) {
   static_cast<void>( Evidence::windowDir( database ) );
   static_cast<void>( Service::heldLinkDir( database ) );
   static_cast<void>( Service::sequenceDir( database ) );
   return mountedPaths();
}

std::string rowPath( std::string_view mounted ) {
   if( mounted.starts_with( firstCell ) ) mounted.remove_prefix( firstCell.size() );
   return std::string( mounted );
}

bool inRow( AttributeInfo const & attribute ) {
   switch( attribute.kind() ) {
      case AttributeInfo::Kind::reference:
      case AttributeInfo::Kind::children: return false;
      case AttributeInfo::Kind::scalar:
      case AttributeInfo::Kind::counter:
      case AttributeInfo::Kind::map:
      case AttributeInfo::Kind::set: return !attribute.typeName().starts_with( "list of " );
   }
   return false;
}

bool hasRow( Kel::Entity const & e, bool mounted ) {
   // One that is in a collection is kept for being there.
   if( !mounted ) return true;
   return std::ranges::any_of( e.kelTypeInfo().attributes(), []( auto const & a ) { return inRow( *a ); } );
}

Value::Object rowValue( Kel::Entity const & e, bool inDir ) {
   Value::Object object;
   bool const passesApart = Passing::monitor( e ) != nullptr;
   if( inDir ) object.emplace_back( typeMember, Value( Value::Content( e.kelTypeInfo().name() ) ) );
   for( auto const & attribute : e.kelTypeInfo().attributes() ) {
      if( !inRow( *attribute ) || ( passesApart && attribute->passing() ) ) continue;
      object.emplace_back( attribute->name(), attribute->get( e ) );
   }
   return object;
}

void restore( Dovra::EntityManager const & database, Store::Row const & row ) {
   Place const place = placeOf( database, row.path );
   auto object = objectOf( RowText::value( row.value ) );
   if( place.collection ) return insert( place, std::move( object ) );
   checkEntries( place.entity->kelTypeInfo(), object );
   Kel::setAttributes( *place.entity, object );
}

std::string seriesOf( Kel::Entity const & e ) {
   auto const * const intf = dynamic_cast<Evidence::WindowIntf const *>( &e );
   if( !intf || intf->rateSeries().size() == 0 ) return {};
   std::string const packed = intf->packedRates();
   std::string bytes( 1, packedMark );
   if( ( bytes.size() + packed.size() ) % sizeof( Evidence::RateCell ) == 0 ) bytes += packedMark;
   return bytes + packed;
}

void restoreSeries( Dovra::EntityManager const & database, std::string const & path, std::string const & bytes ) {
   if( Passing::isList( path ) ) return Passing::restore( database, bytes );
   Place const place = placeOf( database, path );
   auto * const intf = place.collection ? nullptr : dynamic_cast<Evidence::WindowIntf *>( place.entity.get() );
   if( !intf ) throw AttributeError( "is not of a record with a series" );
   constexpr std::size_t size = sizeof( Evidence::RateCell );
   if( bytes.size() % size != 0 && bytes.front() == packedMark ) {
      std::string_view packed = bytes;
      packed.remove_prefix( std::min( packed.find_first_not_of( packedMark ), packed.size() ) );
      return intf->packedRatesIs( packed );
   }
   if( bytes.size() % size != 0 ) throw AttributeError( "ends in the middle of a cell" );
   Evidence::RateCells cells( bytes.size() / size );
   if( !cells.empty() ) std::memcpy( cells.data(), bytes.data(), bytes.size() );
   intf->ratesIs( cells );
}

}  // namespace Host::Records

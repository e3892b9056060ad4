// The declarations of which records and machines are made: one line per attribute.
//
//    class MonIntfStatus final : public Kel::Entity {
//       KEL_ENTITY( MonIntfStatus, "Maintenance::MonIntfStatus", Lumo::IntfId, intfId )
//       KEL_ATTR( double, startTime )                                  // s, when monitoring began
//       KEL_ATTR_NOTIFY( MonIntfState, state, onState )
//       KEL_COUNTER( uint32_t, totalSamples )
//       KEL_ENTITY_END
//    };
//
// declares for each attribute x the reader x(), the mutator xIs( v ), the deleter xDel(), for KEL_ATTR_NOTIFY the
// handler onX() of the reactor classes NotifieeConst and Notifiee, and the reflected attribute. Setting the value that
// is already there notifies nobody. Keyed attributes:
//
//    KEL_MAP( bool, Kel::String8, dependentUnit, onDependentUnit )     // values by key
//    KEL_SET( Lumo::IntfId, intf, onIntf )                             // keys
//    KEL_CHILDREN( Unit::Status, Kel::String8, status, onStatus )      // entities by key, owned
//
// give x( key ) (null when absent), xIs( key, value ), xDel( key ), xDelAll(), the count xs(), the walks xIterator()
// and xIteratorConst(), the handlers onX( key ), called after the change, and onXkelImmediate(), called once when a
// reactor is attached to a collection that already has entries. KEL_REF( Kel::Ptr<T>, x ) holds a reference that is not
// owned as a child and does not notify. KEL_ATTR_HANDLED( T, x, handleX ) is for a machine that acts on its own
// attribute: the mutator ends with handleX(). KEL_PASSING and KEL_PASSING_NOTIFY are KEL_ATTR and KEL_ATTR_NOTIFY for
// what changes with every sample, as counters do: watchers may stop their ears to it. KEL_ATTR_BY and KEL_REF_BY
// reflect what a class keeps in its own way. KEL_MACHINE stands for KEL_ENTITY where the class writes its own
// constructors.
//
// KEL_TYPE( MonIntfStatus ) in one source file gives the type its reflection, once in the program.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "kel/AttributeInfos.h"
#include "kel/Chain.h"
#include "kel/Entity.h"
#include "kel/Fields.h"

namespace Kel {

// The TypeInfo of an entity type, with every attribute of its chain; a factory where the key alone makes one.
template<class Self>
[[nodiscard]] TypeInfo makeTypeInfo() {
   using Key = typename Self::KelKey;
   TypeInfo::Factory factory;
   if constexpr( std::is_constructible_v<Self, Key> ) {
      factory = []( std::string_view key ) { return Ptr<Entity>( new Self( KeyTraits<Key>::fromText( key ) ) ); };
   }
   TypeInfo type( Self::kelTypeName(), std::move( factory ) );
   Self::KelLastLink::kelDescribe( type );
   return type;
}

template<class Self, class T, class Get, class Set>
std::unique_ptr<AttributeInfo> scalarInfo( char const * name, AttributeInfo::Kind kind, bool passing, Get get,
                                           Set set ) {
   return std::make_unique<ScalarInfo<Self, T, Get, Set>>( name, kind, passing, get, set );
}
template<class Self, class Get>
std::unique_ptr<AttributeInfo> referenceInfo( char const * name, Get get ) {
   return std::make_unique<ReferenceInfo<Self, Get>>( name, get );
}
template<class Self, class V, class K, class Access, class Mutate>
std::unique_ptr<AttributeInfo> mapInfo( char const * name, AttributeInfo::Kind kind, char const * keyTypeName,
                                        Access access, Mutate mutate ) {
   return std::make_unique<MapInfo<Self, V, K, Access, Mutate>>( name, kind, keyTypeName, access, mutate );
}
template<class Self, class Child, class K, class Access, class Mutate>
std::unique_ptr<AttributeInfo> childrenInfo( char const * name, char const * keyTypeName, Access access,
                                             Mutate mutate ) {
   return std::make_unique<ChildrenInfo<Self, Child, K, Access, Mutate>>( name, keyTypeName, access, mutate );
}

}  // namespace Kel

// clang-format off

#define KEL_MACHINE( SELF, TYPE_NAME, KEY_TYPE, KEY )                                                    \
 public:                                                                                                 \
   using KelSelf = SELF;                                                                                 \
   using KelKey = KEY_TYPE;                                                                              \
   [[nodiscard]] KEY_TYPE const & KEY() const { return KEY##_; }                                         \
   [[nodiscard]] KEY_TYPE const & kelKey() const { return KEY##_; }                                      \
   [[nodiscard]] std::string name() const override { return ::Kel::KeyTraits<KEY_TYPE>::toText( KEY##_ ); } \
   static char const * kelTypeName() { return TYPE_NAME; }                                               \
   static ::Kel::TypeInfo const & kelType();                                                             \
   [[nodiscard]] ::Kel::TypeInfo const & kelTypeInfo() const override;                                   \
   static ::Kel::AttributeChainEnd kelChain( ::Kel::Rank<0> );                                           \
 private:                                                                                                \
   KEY_TYPE KEY##_;                                                                                      \
 public:

#define KEL_ENTITY( SELF, TYPE_NAME, KEY_TYPE, KEY )                                                     \
   KEL_MACHINE( SELF, TYPE_NAME, KEY_TYPE, KEY )                                                         \
   explicit SELF( KEY_TYPE const & key ) : KEY##_( key ) {}

#define KEL_TYPE( SELF )                                                                                 \
   ::Kel::TypeInfo const & SELF::kelType() {                                                             \
      static ::Kel::TypeInfo const type = ::Kel::makeTypeInfo<KelSelf>();                                \
      return type;                                                                                       \
   }                                                                                                     \
   ::Kel::TypeInfo const & SELF::kelTypeInfo() const { return kelType(); }

#define KEL_ENTITY_END                                                                                   \
   using KelLastLink = KEL_LAST_LINK;                                                                    \
   using NotifieeConst = ::Kel::Reactor<KelLastLink, KelSelf const>;                                     \
   using Notifiee = ::Kel::Reactor<KelLastLink, KelSelf>;

#define KEL_LINK_OPEN( NAME )                                                                            \
   struct KelLink_##NAME : KEL_LAST_LINK {                                                               \
      using KelPrev = KEL_LAST_LINK;                                                                     \
      using KelPrev::KelPrev;                                                                            \
      static constexpr int kelRank = KelPrev::kelRank + 1;

#define KEL_LINK_CLOSE( NAME )                                                                           \
   };                                                                                                    \
   KEL_LINK_IS( KelLink_##NAME )

/* A template, so that it is compiled only in the source with the type's KEL_TYPE. */
#define KEL_DESCRIBE( INFO )                                                                             \
      template<class Info>                                                                               \
      static void kelDescribe( Info & type ) {                                                           \
         KelPrev::kelDescribe( type );                                                                   \
         type.attributeIs( INFO );                                                                       \
      }

#define KEL_SCALAR_INFO( TYPE, NAME, KIND, PASSING )                                                     \
   KEL_DESCRIBE( ( ::Kel::scalarInfo<KelSelf, TYPE>( #NAME, ::Kel::AttributeInfo::Kind::KIND, PASSING,   \
      []( KelSelf const & e ) -> TYPE const & { return e.NAME##_; },                                     \
      []( KelSelf & e, TYPE const & value ) { e.NAME##Is( value ); } ) ) )

#define KEL_SCALAR( TYPE, NAME, KIND, PASSING, HANDLER, DELIVER )                                        \
   KEL_LINK_OPEN( NAME )                                                                                 \
      HANDLER                                                                                            \
      KEL_SCALAR_INFO( TYPE, NAME, KIND, PASSING )                                                       \
   KEL_LINK_CLOSE( NAME )                                                                                \
   [[nodiscard]] TYPE const & NAME() const { return NAME##_; }                                           \
   void NAME##Is( TYPE const & value ) {                                                                 \
      if( NAME##_ == value ) return;                                                                     \
      NAME##_ = value;                                                                                   \
      DELIVER                                                                                            \
   }                                                                                                     \
   void NAME##Del() { NAME##Is( TYPE{} ); }                                                              \
 private:                                                                                                \
   TYPE NAME##_{};                                                                                       \
 public:

#define KEL_QUIET( TYPE, NAME, KIND, PASSING )                                                           \
   KEL_SCALAR( TYPE, NAME, KIND, PASSING, , ( kelChangedQuietly<KelLink_##NAME, PASSING>() ); )

#define KEL_NOTIFYING( TYPE, NAME, PASSING, ON )                                                         \
   KEL_SCALAR( TYPE, NAME, scalar, PASSING, virtual void ON() {},                                        \
      ( kelChanged<KelLink_##NAME, PASSING>( []( KelLink_##NAME & n ) { n.ON(); } ) ); )

#define KEL_ATTR( TYPE, NAME ) KEL_QUIET( TYPE, NAME, scalar, false )
#define KEL_ATTR_NOTIFY( TYPE, NAME, ON ) KEL_NOTIFYING( TYPE, NAME, false, ON )
#define KEL_PASSING( TYPE, NAME ) KEL_QUIET( TYPE, NAME, scalar, true )
#define KEL_PASSING_NOTIFY( TYPE, NAME, ON ) KEL_NOTIFYING( TYPE, NAME, true, ON )

// The change is acted on by the entity itself: HANDLER is one of its own operations. The dispatch covers both lines,
// because a watcher may drop the entity before its handler has run.
#define KEL_ATTR_HANDLED( TYPE, NAME, HANDLER )                                                          \
   KEL_SCALAR( TYPE, NAME, scalar, false, ,                                                              \
      ::Kel::Dispatch const dispatch;                                                                    \
      ( kelChangedQuietly<KelLink_##NAME, false>() );                                                    \
      HANDLER(); )

// The sum is cast back because narrow types add up as int; a counter wraps like its type.
#define KEL_COUNTER( TYPE, NAME )                                                                        \
   KEL_QUIET( TYPE, NAME, counter, true )                                                                \
   void NAME##Inc( TYPE n ) { NAME##Is( static_cast<TYPE>( NAME##_ + n ) ); }

// Tells nobody, watchers neither: who refers to whom is wiring, which is read when somebody needs it.
#define KEL_REF( TYPE, NAME )                                                                            \
   KEL_LINK_OPEN( NAME )                                                                                 \
      KEL_DESCRIBE( ( ::Kel::referenceInfo<KelSelf>( #NAME,                                              \
         []( KelSelf const & e ) -> TYPE const & { return e.NAME##_; } ) ) )                             \
   KEL_LINK_CLOSE( NAME )                                                                                \
   [[nodiscard]] TYPE const & NAME() const { return NAME##_; }                                           \
   void NAME##Is( TYPE const & value ) { NAME##_ = value; }                                              \
   void NAME##Del() { NAME##_ = nullptr; }                                                               \
 private:                                                                                                \
   TYPE NAME##_{};                                                                                       \
 public:

// Reflection alone, of what the class keeps in its own way: an attribute with a reader and a mutator of its name, and a
// reference with a reader.
#define KEL_ATTR_BY( TYPE, NAME )                                                                        \
   KEL_LINK_OPEN( NAME )                                                                                 \
      KEL_DESCRIBE( ( ::Kel::scalarInfo<KelSelf, TYPE>( #NAME, ::Kel::AttributeInfo::Kind::scalar, false, \
         []( KelSelf const & e ) { return e.NAME(); },                                                   \
         []( KelSelf & e, TYPE const & value ) { e.NAME##Is( value ); } ) ) )                            \
   KEL_LINK_CLOSE( NAME )

#define KEL_REF_BY( NAME )                                                                               \
   KEL_LINK_OPEN( NAME )                                                                                 \
      KEL_DESCRIBE( ( ::Kel::referenceInfo<KelSelf>( #NAME,                                              \
         []( KelSelf const & e ) -> auto const & { return e.NAME(); } ) ) )                              \
   KEL_LINK_CLOSE( NAME )

// What the three keyed forms share: the link with both handlers, deletion, count and walks. Attachment asks for the
// reactor anew before each collection: a handler of the one before may have taken it away.
#define KEL_KEYED( COLLECTION, VIEW, CONST_VIEW, KEY_TYPE, NAME, ON, INFO )                              \
   KEL_LINK_OPEN( NAME )                                                                                 \
      virtual void ON( KEY_TYPE ) {}                                                                     \
      virtual void ON##kelImmediate() {}                                                                 \
      static void kelAttached( KelSelf const & e, ::Kel::NotifieeList::HandOver const & handOver ) {     \
         KelPrev::kelAttached( e, handOver );                                                            \
         auto * const n = static_cast<KelLink_##NAME *>( handOver.reactor() );                           \
         if( n && !e.NAME##_.map().empty() ) n->ON##kelImmediate();                                      \
      }                                                                                                  \
      KEL_DESCRIBE( INFO )                                                                               \
   KEL_LINK_CLOSE( NAME )                                                                                \
 private:                                                                                                \
   [[nodiscard]] auto NAME##KelTell() {                                                                  \
      return [ this ]( KEY_TYPE const & key ) {                                                          \
         kelKeyChanged<KelLink_##NAME>( key, [ & ]( KelLink_##NAME & n ) { n.ON( key ); } );             \
      };                                                                                                 \
   }                                                                                                     \
   COLLECTION NAME##_;                                                                                   \
 public:                                                                                                 \
   void NAME##Del( KEY_TYPE const & key ) { NAME##_.del( key, NAME##KelTell() ); }                       \
   void NAME##DelAll() { NAME##_.delAll( NAME##KelTell() ); }                                            \
   [[nodiscard]] std::size_t NAME##s() const { return NAME##_.map().size(); }                            \
   [[nodiscard]] auto NAME##Iterator() {                                                                 \
      return typename COLLECTION::Map::template Iterator<VIEW>( NAME##_.map() ); }                       \
   [[nodiscard]] auto NAME##IteratorConst() const {                                                      \
      return typename COLLECTION::Map::template Iterator<CONST_VIEW>( NAME##_.map() ); }

#define KEL_COMMA ,

#define KEL_VALUES( VALUE, KEY_TYPE, NAME, ON, KIND )                                                    \
   KEL_KEYED( ::Kel::ValueCollection<VALUE KEL_COMMA KEY_TYPE>, VALUE, VALUE, KEY_TYPE, NAME, ON,        \
      ( ::Kel::mapInfo<KelSelf, VALUE, KEY_TYPE>( #NAME, ::Kel::AttributeInfo::Kind::KIND, #KEY_TYPE,    \
         []( KelSelf const & e ) -> auto const & { return e.NAME##_; },                                  \
         []( KelSelf & e, KEY_TYPE const & key, VALUE const * value ) {                                  \
            if( value ) e.NAME##Is( key, *value ); else e.NAME##Del( key );                              \
         } ) ) )                                                                                         \
   [[nodiscard]] VALUE const * NAME( KEY_TYPE const & key ) const { return NAME##_.map().find( key ); }  \
   void NAME##Is( KEY_TYPE const & key, VALUE const & value ) { NAME##_.is( key, value, NAME##KelTell() ); }

#define KEL_MAP( VALUE, KEY_TYPE, NAME, ON ) KEL_VALUES( VALUE, KEY_TYPE, NAME, ON, map )
#define KEL_SET( KEY_TYPE, NAME, ON ) KEL_VALUES( bool, KEY_TYPE, NAME, ON, set )

#define KEL_CHILDREN( CHILD, KEY_TYPE, NAME, ON )                                                        \
   KEL_KEYED( ::Kel::ChildCollection<CHILD KEL_COMMA KEY_TYPE>, ::Kel::Ptr<CHILD>, ::Kel::Ptr<CHILD const>, \
      KEY_TYPE, NAME, ON,                                                                                \
      ( ::Kel::childrenInfo<KelSelf, CHILD, KEY_TYPE>( #NAME, #KEY_TYPE,                                 \
         []( KelSelf const & e ) -> auto const & { return e.NAME##_; },                                  \
         []( KelSelf & e, KEY_TYPE const & key, CHILD * child ) {                                        \
            if( child ) e.NAME##Is( ::Kel::Ptr<CHILD>( child ) ); else e.NAME##Del( key );               \
         } ) ) )                                                                                         \
   [[nodiscard]] ::Kel::Ptr<CHILD> NAME( KEY_TYPE const & key ) { return NAME##_.find( key ); }          \
   [[nodiscard]] ::Kel::Ptr<CHILD const> NAME( KEY_TYPE const & key ) const { return NAME##_.find( key ); } \
   /* Adds a child made beforehand, scalars set; it takes the place of one with its key. */              \
   ::Kel::Ptr<CHILD> NAME##Is( ::Kel::Ptr<CHILD> const & child ) {                                       \
      if( !child ) ::Kel::refuseNull( kelTypeName(), #NAME );                                            \
      return NAME##_.is( child->kelKey(), child, NAME##KelTell() );                                      \
   }                                                                                                     \
   /* The child of that key, made from it and the arguments when absent; where its constructor is public. */ \
   template<class Made = CHILD, class... Args>                                                           \
   requires( std::is_constructible_v<Made, KEY_TYPE const &, Args const &...> )                           \
   ::Kel::Ptr<CHILD> NAME##Is( KEY_TYPE const & key, Args const &... args ) {                            \
      if( ::Kel::Ptr<CHILD> const present = NAME##_.find( key ) ) return present;                        \
      return NAME##Is( ::Kel::Ptr<CHILD>( new Made( key, args... ) ) );                                  \
   }

// clang-format on

// Invented records on which the tests of the entity platform work: one of every form of attribute.
#pragma once

#include <string>
#include <vector>

#include "kel/Attributes.h"

namespace Sample {

enum class Mood : uint8_t { calm = 0, busy = 1, odd = 7 };
constexpr char const * enumName( Mood m ) {
   switch( m ) {
      case Mood::calm: return "calm";
      case Mood::busy: return "busy";
      case Mood::odd: return "odd";
   }
   return nullptr;
}
KEL_ENUM_PRINTS( Mood )

struct Pair {
   KEL_VALUE( Pair, "Sample::Pair" )
   KEL_FIELD( double, in )
   KEL_FIELD( uint64_t, out )
   KEL_VALUE_END( Pair )
};

class Record final : public Kel::Entity {
   KEL_ENTITY( Record, "Sample::Record", Kel::String8, recordName )
   KEL_ATTR( double, quiet )
   KEL_ATTR_NOTIFY( Mood, mood, onMood )
   KEL_ATTR_NOTIFY( Pair, pair, onPair )
   KEL_ATTR_NOTIFY( Kel::String8, label, onLabel )
   KEL_ATTR( int32_t, level )
   KEL_COUNTER( uint32_t, total )
   KEL_REF( Kel::Ptr<Record>, peer )
   KEL_MAP( bool, Kel::String8, unit, onUnit )
   KEL_SET( uint32_t, port, onPort )
   KEL_ENTITY_END
};

class Directory final : public Kel::Entity {
   KEL_ENTITY( Directory, "Sample::Directory", Kel::Name, dirName )
   KEL_CHILDREN( Record, Kel::String8, record, onRecord )
   KEL_ENTITY_END
};

}  // namespace Sample

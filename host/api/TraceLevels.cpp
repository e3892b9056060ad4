#include "api/TraceLevels.h"

#include <charconv>

#include "kel/Json.h"

namespace Host {

using Kel::value;
using Levels = Kel::TraceHandle::Levels;

std::optional<Levels> levelsOf( std::string_view list ) {
   Levels levels = 0;
   if( list.empty() ) return levels;
   // The end of the list is gone through as well: a comma there leaves an empty entry, which is no level.
   for( std::size_t begin = 0; begin <= list.size(); ) {
      std::string_view const entry = list.substr( begin, list.find( ',', begin ) - begin );
      uint32_t level = 0;
      auto const read = std::from_chars( entry.data(), entry.data() + entry.size(), level );
      bool const whole = read.ec == std::errc() && read.ptr == entry.data() + entry.size();
      if( !whole || level > Kel::TraceHandle::levelMax ) return std::nullopt;
      levels |= Levels( 1 ) << level;
      begin += entry.size() + 1;
   }
   return levels;
}

void traceLevelsIs( Levels levels ) {
   for( Kel::TraceHandle * const handle : Kel::traceHandles() ) handle->levelsIs( levels );
}

Kel::Value traceLevels() {
   Kel::Value::Object handles;
   for( Kel::TraceHandle const * const handle : Kel::traceHandles() ) {
      Kel::Value::List levels;
      for( int level = 0; level <= Kel::TraceHandle::levelMax; ++level ) {
         if( handle->levelEnabled( level ) ) levels.push_back( value( static_cast<uint32_t>( level ) ) );
      }
      handles.emplace_back( handle->name(), Kel::Value( Kel::Value::Content( std::move( levels ) ) ) );
   }
   return value( Kel::Value::Object{ { "levels", value( std::move( handles ) ) } } );
}

}  // namespace Host

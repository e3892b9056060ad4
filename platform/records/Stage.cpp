#include "records/Stage.h"

namespace Stage {

AgentStatusKey AgentStatusKey::fromText( std::string_view text ) {
   std::size_t const colon = text.find( ':' );
   if( colon == std::string_view::npos ) Kel::wrongKey( "a stage and an instance such as \"ratemon:fabric#7\"", text );
   return { Kel::String8( text.substr( 0, colon ) ), Kel::Name( text.substr( colon + 1 ) ) };
}

}  // namespace Stage

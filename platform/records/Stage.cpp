#include "records/Stage.h"

KEL_TYPE( Stage::AgentConfig )
KEL_TYPE( Stage::Progress )
KEL_TYPE( Stage::ProgressDir )
KEL_TYPE( Stage::CompletionStatus )
KEL_TYPE( Stage::CompletionStatusDir )
KEL_TYPE( Stage::AgentStatus )

namespace Stage {

AgentStatusKey AgentStatusKey::fromText( std::string_view text ) {
   // The first colon: a stage name has none, an instance is named after a unit and may.
   std::size_t const colon = text.find( ':' );
   if( colon == std::string_view::npos ) Kel::wrongKey( "a stage and an instance such as \"ratemon:fabric#7\"", text );
   return { Kel::String8( text.substr( 0, colon ) ), Kel::Name( text.substr( colon + 1 ) ) };
}

}  // namespace Stage

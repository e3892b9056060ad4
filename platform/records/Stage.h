// The stage protocol between the stage manager and the agents that carry stages out. All but AgentStatus is written by
// the stage manager.
#pragma once

#include <compare>
#include <string>

#include "kel/Attributes.h"

namespace Stage {

// The stages that an agent serves in one stage class.
class AgentConfig final : public Kel::Entity {
   KEL_ENTITY( AgentConfig, "Stage::AgentConfig", Kel::Name, dirName )
   KEL_MAP( bool, Kel::String8, stage, onStage )
   KEL_ENTITY_END
};

// One stage instance under way, and which of its stages are active. Deleted whole when the instance is over.
class Progress final : public Kel::Entity {
   KEL_ENTITY( Progress, "Stage::Progress", Kel::Name, instanceName )
   KEL_MAP( bool, Kel::String8, stage, onStage )  // true: active
   KEL_ENTITY_END
};

class ProgressDir final : public Kel::Entity {
   KEL_ENTITY( ProgressDir, "Stage::ProgressDir", Kel::Name, dirName )
   KEL_CHILDREN( Progress, Kel::Name, progress, onProgress )
   KEL_ENTITY_END
};

// An instance that the stage manager knows. When the record goes, agents take back their marks of the instance.
class CompletionStatus final : public Kel::Entity {
   KEL_ENTITY( CompletionStatus, "Stage::CompletionStatus", Kel::Name, instanceName )
   KEL_ENTITY_END
};

class CompletionStatusDir final : public Kel::Entity {
   KEL_ENTITY( CompletionStatusDir, "Stage::CompletionStatusDir", Kel::Name, dirName )
   KEL_CHILDREN( CompletionStatus, Kel::Name, status, onStatus )
   KEL_ENTITY_END
};

// A stage of an instance; as text "ratemon:fabric#7". A stage name has no colon.
struct AgentStatusKey {
   Kel::String8 stage;
   Kel::Name instanceName;

   bool operator==( AgentStatusKey const & ) const = default;
   auto operator<=>( AgentStatusKey const & ) const = default;
   [[nodiscard]] std::string text() const { return stage.str() + ":" + instanceName.str(); }
   [[nodiscard]] static AgentStatusKey fromText( std::string_view text );
};

}  // namespace Stage

template<>
struct std::hash<Stage::AgentStatusKey> {
   std::size_t operator()( Stage::AgentStatusKey const & k ) const noexcept {
      return k.stage.hash() * 31 + k.instanceName.hash();
   }
};

template<>
struct Kel::KeyTraits<Stage::AgentStatusKey> {
   static std::string toText( Stage::AgentStatusKey const & k ) { return k.text(); }
   static Stage::AgentStatusKey fromText( std::string_view text ) { return Stage::AgentStatusKey::fromText( text ); }
};

namespace Stage {

// What an agent has completed. Written by the agent.
class AgentStatus final : public Kel::Entity {
   KEL_ENTITY( AgentStatus, "Stage::AgentStatus", Kel::Name, dirName )
   KEL_MAP( bool, AgentStatusKey, complete, onComplete )
   KEL_ENTITY_END
};

}  // namespace Stage

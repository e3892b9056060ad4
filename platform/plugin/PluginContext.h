// What the maintenance service gives to its plug-ins at their start.
//
// The host makes one context for each start and keeps it until it has taken down what the plug-ins made. A plug-in
// creates its loader entity in the plug-in directory; the host deletes that entity to take the plug-in down.
#pragma once

#include <string>

#include "dovra/EntityManager.h"
#include "kel/Dir.h"

namespace KelQuill {
class EntityManager;
}

namespace Maintenance {

class PluginContext;

// Prints a plug-in's whole state as text, on request. Registers with a context, and goes from it when it dies.
class DumpPluginInfo {
 public:
   DumpPluginInfo() = default;
   DumpPluginInfo( DumpPluginInfo const & ) = delete;
   DumpPluginInfo & operator=( DumpPluginInfo const & ) = delete;
   virtual ~DumpPluginInfo();

   // Writes to a descriptor that stays open and belongs to the caller.
   virtual void dump( int fd ) = 0;

 private:
   friend class PluginContext;

   PluginContext * registeredWith_ = nullptr;
};

class PluginContext {
 public:
   PluginContext( Kel::Ptr<Kel::Dir> const & pluginDir, Kel::Ptr<Dovra::EntityManager> const & entityManager,
                  Kel::Ptr<KelQuill::EntityManager> const & quillEntityManager );
   PluginContext( PluginContext const & ) = delete;
   PluginContext & operator=( PluginContext const & ) = delete;
   ~PluginContext();

   [[nodiscard]] Kel::Ptr<Kel::Dir> const & pluginDir() const { return pluginDir_; }
   [[nodiscard]] Kel::Ptr<Dovra::EntityManager> const & entityManager() const { return entityManager_; }
   [[nodiscard]] Kel::Ptr<KelQuill::EntityManager> const & quillEntityManager() const { return quillEntityManager_; }

   // The dumper to ask, null when none is registered. It belongs to the plug-in. A later one replaces an earlier one.
   [[nodiscard]] DumpPluginInfo * dumpPluginInfo() const { return dumper_; }
   void dumpPluginInfoIs( DumpPluginInfo * dumper );

 private:
   Kel::Ptr<Kel::Dir> const pluginDir_;
   Kel::Ptr<Dovra::EntityManager> const entityManager_;
   Kel::Ptr<KelQuill::EntityManager> const quillEntityManager_;
   DumpPluginInfo * dumper_ = nullptr;
};

// What the context's dumper prints; empty when there is none. Throws std::system_error when there is no room for it.
[[nodiscard]] std::string dumpText( PluginContext const & context );

}  // namespace Maintenance

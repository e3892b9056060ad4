#include "plugin/PluginContext.h"

#include "quill/EntityManager.h"

namespace Maintenance {

DumpPluginInfo::~DumpPluginInfo() {
   if( registeredWith_ ) registeredWith_->dumpPluginInfoIs( nullptr );
}

PluginContext::PluginContext( Kel::Ptr<Kel::Dir> const & pluginDir,
                              Kel::Ptr<Dovra::EntityManager> const & entityManager,
                              Kel::Ptr<KelQuill::EntityManager> const & quillEntityManager )
   : pluginDir_( pluginDir ), entityManager_( entityManager ), quillEntityManager_( quillEntityManager ) {}

PluginContext::~PluginContext() { dumpPluginInfoIs( nullptr ); }

void PluginContext::dumpPluginInfoIs( DumpPluginInfo * dumper ) {
   if( dumper_ ) dumper_->registeredWith_ = nullptr;
   dumper_ = dumper;
   if( !dumper ) return;
   // A dumper is known to one context at a time.
   if( dumper->registeredWith_ ) dumper->registeredWith_->dumper_ = nullptr;
   dumper->registeredWith_ = this;
}

}  // namespace Maintenance

// A plug-in for the tests of the loader: makes an entity and registers a dumper that writes how often it was started.
// Its symbols are hidden like those of the real one.
#include <unistd.h>

#include <string>

#include "kel/Attributes.h"
#include "plugin/Loader.h"
#include "plugin/PluginBase.h"
#include "plugin/PluginContext.h"

namespace {

class Part final : public Kel::Entity, public Maintenance::DumpPluginInfo {
   KEL_ENTITY( Part, "TestPlugin::Part", Kel::Name, partName )
   KEL_ATTR( uint32_t, start )
   KEL_ATTR( bool, countsAtomically )  // as seen from inside the shared object
   KEL_ENTITY_END

   void dump( int fd ) override {
      std::string const text = "start " + std::to_string( start() ) + "\n";
      static_cast<void>( !::write( fd, text.data(), text.size() ) );
   }
};
KEL_TYPE( Part )

class TestPlugin final : public PluginBase<Maintenance::PluginContext> {
 public:
   TestPlugin() {
      Kel::typeNodeIs( Part::kelType() );
      auto & loader = Maintenance::DefaultPluginLoader();
      loader.registerPlugin( "TestPlugin", loader.typeString(), "", "",
                             [this]( Maintenance::PluginContext * context ) { init( context ); } );
   }

   void init( Maintenance::PluginContext * context ) override {
      auto const part = Kel::dynamicPtrCast<Part>( context->pluginDir()->newEntity( "TestPlugin::Part", "part" ) );
      part->startIs( ++starts_ );
      part->countsAtomicallyIs( Kel::VFPtrInterface::enableThreadSafePointers );
      context->dumpPluginInfoIs( part.get() );
   }

 private:
   uint32_t starts_ = 0;
};

TestPlugin testPlugin;

}  // namespace

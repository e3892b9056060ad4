#include "plugin/PluginContext.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "quill/EntityManager.h"

namespace Maintenance {

DumpPluginInfo::~DumpPluginInfo() {
   if( registeredWith_ ) registeredWith_->dumpPluginInfoIs( nullptr );
}

PluginContext::PluginContext( Kel::Ptr<Kel::Dir> const & pluginDir,
                              Kel::Ptr<Dovra::EntityManager> const & entityManager,
                              Kel::Ptr<KelQuill::EntityManager> const & quillEntityManager )
   : pluginDir_( pluginDir ), entityManager_( entityManager ), quillEntityManager_( quillEntityManager ) {}

// A dumper of a plug-in that was never taken down outlives the context, and must not come back to it when it dies.
PluginContext::~PluginContext() { dumpPluginInfoIs( nullptr ); }

void PluginContext::dumpPluginInfoIs( DumpPluginInfo * dumper ) {
   // The earlier one must not remove the later when it dies. This also lets a dumper take its own place again.
   if( dumper_ ) dumper_->registeredWith_ = nullptr;
   dumper_ = dumper;
   if( !dumper ) return;
   // A dumper is known to one context at a time.
   if( dumper->registeredWith_ ) dumper->registeredWith_->dumper_ = nullptr;
   dumper->registeredWith_ = this;
}

namespace {

struct MemoryFile {
   int const fd = ::memfd_create( "dump", MFD_CLOEXEC );
   ~MemoryFile() {
      if( fd >= 0 ) ::close( fd );
   }
};

[[noreturn]] void failed( char const * doing ) { throw std::system_error( errno, std::generic_category(), doing ); }

}  // namespace

// A dumper writes to a descriptor. Nobody reads it meanwhile, so it must take all of the text, which no pipe does.
std::string dumpText( PluginContext const & context ) {
   if( !context.dumpPluginInfo() ) return "";
   MemoryFile const file;
   if( file.fd < 0 ) failed( "making a file in memory for a dump" );
   context.dumpPluginInfo()->dump( file.fd );
   off_t const bytes = ::lseek( file.fd, 0, SEEK_END );
   std::string text( static_cast<std::size_t>( bytes ), '\0' );
   // From the beginning, wherever the dumper has left the file's own position.
   if( ::pread( file.fd, text.data(), text.size(), 0 ) != bytes ) failed( "reading a dump back" );
   return text;
}

}  // namespace Maintenance

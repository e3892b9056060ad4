#include "plugin/Loader.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>

#include "kel/Assert.h"

std::string Plugin::besideProgram( std::string const & file ) {
   // From the kernel, as argv[0] may be relative to a directory that was left, or a name found along PATH.
   auto const directory = std::filesystem::read_symlink( "/proc/self/exe" ).parent_path();
   auto const beside = directory / file;
   auto const installed = ( directory / RATEMON_PLUGIN_DIR / file ).lexically_normal();
   std::error_code unreadable;  // counts as not there
   bool const isInstalled =
      !std::filesystem::exists( beside, unreadable ) && std::filesystem::exists( installed, unreadable );
   return ( isInstalled ? installed : beside ).string();
}

namespace Plugin::Impl {

std::vector<std::string> LoaderImpl::plugins() const {
   std::vector<std::string> names;
   names.reserve( plugins_.size() );
   for( auto const & plugin : plugins_ ) names.push_back( plugin.first );
   return names;
}

void LoaderImpl::registerPlugin( std::string const & name, std::string const & typeString, std::string const & variant,
                                 std::string const & parentVariant, LoaderInitCaller initCaller ) {
   KEL_ASSERT( typeString == typeString_ );
   KEL_ASSERT( variant.empty() && parentVariant.empty() );
   // The same plug-in, copied to a second file, would otherwise run twice on the same records.
   bool const taken =
      std::any_of( plugins_.begin(), plugins_.end(), [&]( auto const & plugin ) { return plugin.first == name; } );
   if( !taken ) plugins_.emplace_back( name, std::move( initCaller ) );
}

void LoaderImpl::load( std::string const & path ) {
   std::size_t const before = plugins_.size();
   // dlopen looks for a bare file name among the system's libraries.
   std::string const file = std::filesystem::absolute( path ).string();
   // All symbols now: one that is missing refuses the file here and does not end the agent later, at its first call.
   // Local, so that plug-ins may use the same names.
   void * const handle = dlopen( file.c_str(), RTLD_NOW | RTLD_LOCAL );
   if( !handle ) throw LoadError( std::string( "cannot load a plug-in: " ) + dlerror() );
   // The same handle as before means the same file. Its static initialisation has not run again, so this is asked
   // before what it has registered.
   if( std::find( files_.begin(), files_.end(), handle ) != files_.end() ) return;
   // Not closed even then: what it registered elsewhere, types and trace points, points into it.
   if( plugins_.size() == before ) throw LoadError( file + " registers no plug-in that is not there already" );
   files_.push_back( handle );
}

void LoaderImpl::initPlugins( Maintenance::PluginContext & context ) const {
   for( auto const & plugin : plugins_ ) plugin.second( &context );
}

}  // namespace Plugin::Impl

namespace Maintenance {

Plugin::Impl::LoaderImpl & DefaultPluginLoader() {
   static Plugin::Impl::LoaderImpl loader( "Maintenance::PluginContext" );
   return loader;
}

}  // namespace Maintenance

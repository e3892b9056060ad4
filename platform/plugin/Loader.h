// The plug-in loader: opens plug-in files and starts what registered itself.
//
// A plug-in registers while its file is being opened, from its static initialisation, by its name, the loader's type
// string and a caller that starts it. The host opens files with load() and then starts all plug-ins with
// initPlugins(), once for each context.
//
// Files are never closed: a plug-in's types, trace points and statics stay registered for the life of the process. A
// plug-in is taken down by deleting the entity that it made in the context's plug-in directory.
#pragma once

#include <concepts>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Maintenance {
class PluginContext;
}

namespace Plugin {

// How the loader starts one plug-in.
class LoaderInitCaller {
 public:
   template<std::invocable<Maintenance::PluginContext *> Call>
   LoaderInitCaller( Call call ) : call_( std::move( call ) ) {}
   void operator()( Maintenance::PluginContext * context ) const { call_( context ); }

 private:
   std::function<void( Maintenance::PluginContext * )> call_;
};

// A file that cannot be opened, or that brings no plug-in.
class LoadError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// The path of a plug-in's file unless told otherwise: in the directory of the running program, as in a build, or else
// where an installation has plug-ins. It is the first where it is in neither, for whoever reports that.
[[nodiscard]] std::string besideProgram( std::string const & file );

namespace Impl {

class LoaderImpl {
 public:
   // `typeString` names the context that this loader's plug-ins are started with.
   explicit LoaderImpl( std::string typeString ) : typeString_( std::move( typeString ) ) {}
   LoaderImpl( LoaderImpl const & ) = delete;
   LoaderImpl & operator=( LoaderImpl const & ) = delete;

   [[nodiscard]] std::string const & typeString() const { return typeString_; }
   [[nodiscard]] std::vector<std::string> plugins() const;  // names, in the order of registration

   // For plug-ins. The type string is this loader's own. A name that is taken stays with the plug-in that has it. The
   // two texts before the caller name variants of a plug-in on platforms that have them; here there are none, and both
   // are empty.
   void registerPlugin( std::string const & name, std::string const & typeString, std::string const & variant,
                        std::string const & parentVariant, LoaderInitCaller initCaller );

   // For the host. Opens a plug-in file; one that was opened before, under whatever name, is left alone. Throws
   // LoadError.
   void load( std::string const & path );
   // Starts every registered plug-in, in the order of registration. The context outlives what they make in it.
   void initPlugins( Maintenance::PluginContext & context ) const;

 private:
   std::string const typeString_;
   std::vector<std::pair<std::string, LoaderInitCaller>> plugins_;
   std::vector<void *> files_;  // handles of those that brought a plug-in
};

}  // namespace Impl
}  // namespace Plugin

namespace Maintenance {

// The maintenance service's loader, one in the process.
[[nodiscard]] Plugin::Impl::LoaderImpl & DefaultPluginLoader();

}  // namespace Maintenance

// What a plug-in derives from: the object of which its shared object holds one static instance.
//
// The constructor registers the instance with the loader (plugin/Loader.h), which calls init each time the service
// starts its plug-ins. Several starts can follow each other in one process; what a start made is gone before the next
// one.
#pragma once

template<class Context>
class PluginBase {
 public:
   PluginBase() = default;
   PluginBase( PluginBase const & ) = delete;
   PluginBase & operator=( PluginBase const & ) = delete;
   virtual ~PluginBase() = default;

   // The context outlives everything that the plug-in makes in it.
   virtual void init( Context * context ) = 0;
};

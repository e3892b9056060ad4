// Plug-in files, their start in a context and the dumper that a plug-in registers there.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "kel/Assert.h"
#include "plugin/Loader.h"
#include "plugin/PluginContext.h"
#include "quill/EntityManager.h"

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string dumped( Maintenance::DumpPluginInfo & dumper ) {
   std::array<int, 2> ends{};
   EXPECT_EQ( pipe( ends.data() ), 0 );
   dumper.dump( ends[1] );
   close( ends[1] );
   std::array<char, 100> text{};
   ssize_t const length = read( ends[0], text.data(), text.size() );
   close( ends[0] );
   return { text.data(), static_cast<std::size_t>( std::max<ssize_t>( length, 0 ) ) };
}

// Why a file could not be loaded, empty when it could.
std::string whyNot( Plugin::Impl::LoaderImpl & loader, std::string const & file ) {
   try {
      loader.load( file );
      return "";
   } catch( Plugin::LoadError const & error ) {
      return error.what();
   }
}

struct Start {
   Kel::Ptr<Kel::Dir> dir{ new Kel::Dir( "plugins" ) };
   Maintenance::PluginContext context{ dir, new Dovra::EntityManager, nullptr };
};

class Dumper final : public Maintenance::DumpPluginInfo {
 public:
   void dump( int ) override {}
};

// One loader serves the process and files stay loaded, so what follows a load is one story.
TEST( Loader, aFileRegistersOnceAndItsPluginStartsInEveryContext ) {
   auto & loader = Maintenance::DefaultPluginLoader();
   EXPECT_THAT( loader.plugins(), ElementsAre() );
   loader.load( RATEMON_TESTPLUGIN_PATH );
   EXPECT_THAT( loader.plugins(), ElementsAre( "TestPlugin" ) );

   std::string const otherName = ::testing::TempDir() + "alias" + std::to_string( getpid() ) + ".so";
   std::filesystem::create_symlink( RATEMON_TESTPLUGIN_PATH, otherName );
   for( std::string const & again : { std::string( RATEMON_TESTPLUGIN_PATH ), otherName } ) {
      EXPECT_EQ( whyNot( loader, again ), "" );
      EXPECT_THAT( loader.plugins(), ElementsAre( "TestPlugin" ) );
   }
   std::filesystem::remove( otherName );

   for( std::string const expected : { "start 1\n", "start 2\n" } ) {
      Start start;
      loader.initPlugins( start.context );
      ASSERT_TRUE( start.dir->entityRef( "part" ) );
      ASSERT_TRUE( start.context.dumpPluginInfo() );
      EXPECT_EQ( dumped( *start.context.dumpPluginInfo() ), expected );
      start.dir->entityDel( "part" );
      EXPECT_EQ( start.context.dumpPluginInfo(), nullptr );
   }

   // How references are counted is one choice, the host's, also for code that hides its symbols.
   Start start;
   Kel::VFPtrInterface::enableThreadSafePointers = true;
   loader.initPlugins( start.context );
   Kel::VFPtrInterface::enableThreadSafePointers = false;
   auto const part = start.dir->entityRef( "part" );
   EXPECT_EQ( part->kelTypeInfo().attribute( "countsAtomically" )->print( *part ), "true" );
}

TEST( Loader, saysWhichFileItCannotLoadAndWhy ) {
   auto & loader = Maintenance::DefaultPluginLoader();
   auto const before = loader.plugins();
   std::string const garbage = ::testing::TempDir() + "garbage" + std::to_string( getpid() ) + ".so";
   std::ofstream( garbage ) << "this is no shared object, and it is long enough to have a header of one ......";
   Dl_info kel{};
   ASSERT_NE( dladdr( reinterpret_cast<void *>( &Kel::assertionFailed ), &kel ), 0 );

   EXPECT_THAT( whyNot( loader, "/nowhere/Absent.so" ),
                AllOf( HasSubstr( "/nowhere/Absent.so" ), HasSubstr( "No such" ) ) );
   EXPECT_THAT( whyNot( loader, garbage ), AllOf( HasSubstr( garbage ), HasSubstr( "ELF" ) ) );
   // A library that the process has anyway brings no plug-in. A bare name is no wish to search the system's libraries.
   for( int i = 0; i < 2; ++i ) EXPECT_THAT( whyNot( loader, kel.dli_fname ), HasSubstr( "registers no plug-in" ) );
   EXPECT_THAT( whyNot( loader, "libc.so.6" ), HasSubstr( "No such" ) );
   EXPECT_EQ( loader.plugins(), before );
   std::filesystem::remove( garbage );
}

TEST( Loader, startsInTheOrderOfRegistrationAndANameKeepsItsFirstPlugin ) {
   Plugin::Impl::LoaderImpl loader( "some context" );
   std::string started;
   Maintenance::PluginContext * given = nullptr;
   auto const pluginIs = [&]( char const * name, char mark ) {
      loader.registerPlugin( name, loader.typeString(), "", "",
                             [&started, &given, mark]( Maintenance::PluginContext * c ) {
                                started += mark;
                                given = c;
                             } );
   };
   pluginIs( "second by name", 'a' );
   pluginIs( "first by name", 'b' );
   pluginIs( "second by name", 'c' );
   Start start;
   loader.initPlugins( start.context );
   EXPECT_EQ( started, "ab" );
   EXPECT_EQ( given, &start.context );
   EXPECT_DEATH( loader.registerPlugin( "odd", "another context", "", "", []( Maintenance::PluginContext * ) {} ),
                 "typeString == typeString_" );
}

TEST( Context, forgetsADumperThatDiesAndNeverTouchesOneThatOutlivesIt ) {
   Dumper survivor;
   Start start;
   {
      Dumper first;
      start.context.dumpPluginInfoIs( &first );
      start.context.dumpPluginInfoIs( &survivor );
   }
   EXPECT_EQ( start.context.dumpPluginInfo(), &survivor )
      << "the death of a dumper that was replaced took its successor";
   {
      Start other;
      other.context.dumpPluginInfoIs( &survivor );
      EXPECT_EQ( start.context.dumpPluginInfo(), nullptr )
         << "a dumper that moved on is still asked by its first context";
      Dumper shortLived;
      other.context.dumpPluginInfoIs( &shortLived );
   }
   {
      Start last;
      last.context.dumpPluginInfoIs( &survivor );
   }
   start.context.dumpPluginInfoIs( &survivor );
   start.context.dumpPluginInfoIs( &survivor );
   EXPECT_EQ( start.context.dumpPluginInfo(), &survivor );
}

}  // namespace
